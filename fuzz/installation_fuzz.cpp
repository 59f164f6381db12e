// Any bytes are an INF file and the installed driver's file of a machine that installs the filter. The first two say
// where the second begins.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "module/install/miniport_inf.h"
#include "simulation/machine.h"

namespace {

namespace fs = std::filesystem;

void Write(const fs::path& file, std::string_view bytes) {
  std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fs::path root = fs::temp_directory_path() / ("ztl-fuzz-" + std::to_string(std::random_device()()));
  if (size < 2) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::size_t split = std::min(std::size_t{data[0]} | std::size_t{data[1]} << 8, bytes.size());
  fs::remove_all(root);
  fs::create_directories(root / "Windows/Inf");
  fs::create_directories(root / "Windows/System32/drivers");
  Write(root / "Windows/Inf/oem1.inf", bytes.substr(0, split));
  Write(root / "Windows/System32/drivers/ztl2000.sys", bytes.substr(split));
  simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  machine.files.root = root;
  machine.version = {.major = 5, .minor = 0, .servicePack = 0};
  ztl::HrCopyMiniportInf();
  if (machine.taskAllocations != 0 || !machine.openInfs.empty() || !machine.globalMemory.empty()) std::abort();
  return 0;
}
