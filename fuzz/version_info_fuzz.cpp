// Any bytes are read as an executable, and as a version block: nothing outside of them is given out. A block in an
// executable's resources is found there.
#include <cstring>
#include <filesystem>

#include "fuzz/fuzz.h"
#include "platform/version_info.h"
#include "simulation/machine.h"
#include "simulation/pe_image.h"
#include "simulation/whole_file.h"

using namespace platform;
using simulation::Bytes;

namespace {

Bytes AsBytes(std::string_view text) { return {reinterpret_cast<const BYTE*>(text.data()), text.size()}; }

bool IsInside(Bytes whole, const void* part, std::size_t bytes) {
  const auto* const first = static_cast<const BYTE*>(part);
  return first >= whole.data() && first <= whole.data() + whole.size() &&
         bytes <= static_cast<std::size_t>(whole.data() + whole.size() - first);
}

}  // namespace

void ztl_fuzz::Check(std::string_view bytes) {
  const Bytes input = AsBytes(bytes);
  if (const Bytes found = simulation::VersionResource(input); !found.empty())
    ZTL_HOLDS(IsInside(input, found.data(), found.size()));

  // The sample driver, with the input in place of its block: the last bytes of its last section.
  static LSTATUS error = 0;
  static const auto driver = simulation::ReadFile(ZTL_SOURCE_DIR "/samples/package-4.17/ztl2000.sys", error);
  constexpr std::size_t kSection = 0x800, kBlock = 0x858;
  std::string file = driver->substr(0, kBlock).append(bytes);
  for (const auto& [at, first] : {std::pair(0x1E0, kSection), {0x1E8, kSection}, {0x84C, kBlock}}) {
    const std::size_t size = file.size() - first;
    std::memcpy(&file[static_cast<std::size_t>(at)], &size, 4);
  }
  const Bytes found = simulation::VersionResource(AsBytes(file));
  ZTL_HOLDS(std::equal(found.begin(), found.end(), input.begin(), input.end()));

  static simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
  void* const block = GlobalLock(memory);
  std::copy(bytes.begin(), bytes.end(), static_cast<char*>(block));
  for (const char16_t* const entry :
       {u"\\", u"\\VarFileInfo\\Translation", u"\\StringFileInfo\\040904b0\\FileVersion"}) {
    void* value = nullptr;
    UINT length = 0;
    if (VerQueryValueW(block, entry, &value, &length))
      ZTL_HOLDS(IsInside({static_cast<const BYTE*>(block), bytes.size()}, value, 0));
  }
  GlobalUnlock(memory);
  GlobalFree(memory);
}
