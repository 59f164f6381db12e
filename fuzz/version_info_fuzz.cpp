// Any bytes are read as an executable, and as a version block: nothing outside of them is given out. A block in an
// executable's resources is found there.
#include <cstring>

#include "fuzz/fuzz.h"
#include "platform/version_info.h"
#include "simulation/machine.h"
#include "simulation/pe_image.h"

using simulation::Bytes;

namespace {

constexpr std::size_t kHeader = 0x40, kOptional = kHeader + 24, kSections = kOptional + 136;
constexpr std::size_t kResources = kSections + 40, kBlock = kResources + 88;  // three directories, one data entry

// The smallest executable with this version resource: three directories of one entry each, and the data's place.
std::string Executable(std::string_view block) {
  std::string file(kBlock, '\0');
  const auto put = [&file](std::size_t at, std::size_t number) {
    for (std::size_t i = 0; i < (number < 0x10000 ? 2 : 4); ++i) file[at + i] = static_cast<char>(number >> 8 * i);
  };
  put(0, 0x5A4D);
  put(0x3C, kHeader);
  put(kHeader, 0x4550);
  put(kHeader + 6, 1);      // sections
  put(kHeader + 20, 136);   // bytes of the optional header
  put(kOptional, 0x20B);    // 64 bits
  put(kOptional + 108, 3);  // data directories
  put(kOptional + 128, 0x1000);
  const std::size_t section[] = {kBlock - kResources + block.size(), 0x1000, kBlock - kResources + block.size(),
                                 kResources};
  for (std::size_t i = 0; i < 4; ++i) put(kSections + 8 + 4 * i, section[i]);
  for (std::size_t level = 0; level < 3; ++level) {
    const std::size_t directory = kResources + 24 * level;
    put(directory + 14, 1);  // numbered entries
    put(directory + 16, level == 0 ? 16 : 1);
    put(directory + 20, 24 * (level + 1));
    if (level < 2) file[directory + 23] = static_cast<char>(0x80);
  }
  put(kResources + 72, 0x1000 + kBlock - kResources);
  put(kResources + 76, block.size());
  return file.append(block);
}

Bytes AsBytes(std::string_view text) { return {reinterpret_cast<const platform::BYTE*>(text.data()), text.size()}; }

bool IsInside(Bytes whole, const void* part, std::size_t bytes) {
  const auto* const first = static_cast<const platform::BYTE*>(part);
  return first >= whole.data() && first <= whole.data() + whole.size() &&
         bytes <= static_cast<std::size_t>(whole.data() + whole.size() - first);
}

}  // namespace

std::vector<std::string> ztl_fuzz::Seeds() {
  const std::string driver = Sample("samples/package-4.17/ztl2000.sys", 4096);
  const Bytes block = simulation::VersionResource(AsBytes(driver));
  const std::string text(block.begin(), block.end());
  ZTL_HOLDS(!text.empty());
  return {text, Executable(text.substr(0, 100))};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, size);
  if (const Bytes found = simulation::VersionResource(bytes); !found.empty())
    ZTL_HOLDS(IsInside(bytes, found.data(), found.size()));
  if (size < 0x8000) {
    const std::string file = Executable({reinterpret_cast<const char*>(data), size});
    const Bytes found = simulation::VersionResource(AsBytes(file));
    ZTL_HOLDS(std::equal(found.begin(), found.end(), bytes.begin(), bytes.end()));
  }
  static simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  const platform::HGLOBAL memory = platform::GlobalAlloc(platform::GMEM_MOVEABLE, size);
  void* const block = platform::GlobalLock(memory);
  if (size != 0) std::memcpy(block, data, size);
  for (const char16_t* const entry :
       {u"\\", u"\\VarFileInfo\\Translation", u"\\StringFileInfo\\040904b0\\FileVersion"}) {
    void* value = nullptr;
    platform::UINT length = 0;
    if (platform::VerQueryValueW(block, entry, &value, &length))
      ZTL_HOLDS(IsInside({static_cast<const platform::BYTE*>(block), size}, value, 0));
  }
  platform::GlobalUnlock(memory);
  platform::GlobalFree(memory);
  return 0;
}
