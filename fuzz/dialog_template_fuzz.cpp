// Any bytes are read as a dialog template. What was read survives being written and read again, is not read from a
// template that ends before it, and becomes one window and one for each control.
#include "fuzz/fuzz.h"
#include "simulation/machine.h"
#include "simulation/resources.h"

using simulation::ReadDialogTemplate;

namespace {

std::vector<platform::BYTE> Written(const simulation::DialogTemplate& dialog) {
  std::vector<platform::BYTE> bytes(8);  // styles
  const auto put = [&bytes](std::size_t word) {
    bytes.push_back(static_cast<platform::BYTE>(word));
    bytes.push_back(static_cast<platform::BYTE>(word >> 8));
  };
  const auto putText = [&put](const std::u16string& text) {
    for (const char16_t unit : text) put(unit);
    put(0);
  };
  put(dialog.controls.size());
  bytes.resize(bytes.size() + 8 + 4);  // its place, no menu, no class
  putText(dialog.caption);
  for (const simulation::Control& control : dialog.controls) {
    bytes.resize((bytes.size() + 3) / 4 * 4 + 16);
    put(static_cast<std::size_t>(control.id));
    putText(control.windowClass);
    putText(control.text);
    put(0);  // no creation data
  }
  return bytes;
}

}  // namespace

std::vector<std::string> ztl_fuzz::Seeds() {
  std::vector<std::string> seeds;
  for (const simulation::Resource& resource : simulation::kResources)
    if (ReadDialogTemplate({resource.data, resource.bytes}))
      seeds.emplace_back(resource.data, resource.data + resource.bytes);
  const auto written = Written({u"caption", {{u"Edit", 1000, u"text"}, {u"SysLink", 65535, u""}}});
  seeds.emplace_back(written.begin(), written.end());
  ZTL_HOLDS(seeds.size() == 2);
  return seeds;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto dialog = ReadDialogTemplate({data, size});
  if (!dialog) return 0;
  std::vector<platform::BYTE> written = Written(*dialog);
  const auto again = ReadDialogTemplate(written);
  ZTL_HOLDS(again && again->caption == dialog->caption && again->controls == dialog->controls);
  simulation::Dialogs dialogs;
  const auto handle = dialogs.CreateDialogIndirect(
      written, nullptr, [](auto...) -> std::intptr_t { return 0; }, 0);
  ZTL_HOLDS(dialogs.Windows() == 1 + dialog->controls.size());
  dialogs.Destroy(handle);
  ZTL_HOLDS(dialogs.Windows() == 0);
  written.pop_back();
  const std::vector<platform::BYTE> cut(written);  // exactly its size
  ZTL_HOLDS(!ReadDialogTemplate(cut));
  return 0;
}
