// Any bytes are read as a dialog template. What was read survives being written and read again, is not read from a
// template that ends before it, and becomes one window and one for each control.
#include "fuzz/fuzz.h"
#include "simulation/dialog_template.h"
#include "simulation/machine.h"

using simulation::ReadDialogTemplate;

namespace {

std::vector<platform::BYTE> Written(const simulation::DialogTemplate& dialog) {
  std::vector<platform::BYTE> bytes(8);  // styles
  const auto put = [&bytes](std::size_t word) {
    for (const std::size_t byte : {word & 0xFF, word >> 8}) bytes.push_back(static_cast<platform::BYTE>(byte));
  };
  const auto putText = [&put](const std::u16string& text) {
    for (const char16_t unit : text + u'\0') put(unit);
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

void ztl_fuzz::Check(std::string_view bytes) {
  const auto dialog = ReadDialogTemplate({reinterpret_cast<const platform::BYTE*>(bytes.data()), bytes.size()});
  if (!dialog) return;
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
}
