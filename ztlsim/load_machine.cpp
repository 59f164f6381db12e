#include "ztlsim/load_machine.h"

#include <charconv>
#include <random>
#include <system_error>

namespace ztlsim {

using platform::simulated::Registry;

std::optional<InputError> LoadRegistry(const std::vector<std::string>& files, Registry& registry) {
  for (const std::string& file : files)
    if (auto error = ReadRegistryExport(file, registry)) return error;
  constexpr char16_t kCurrent[] = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet";
  constexpr char16_t kFirst[] = u"HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001";
  if (registry.Find(kCurrent) == nullptr && registry.Find(kFirst) != nullptr) registry.Link(kCurrent, kFirst);
  return std::nullopt;
}

std::optional<platform::simulated::WindowsVersion> ParseWindowsVersion(const std::string& text) {
  std::uint16_t parts[3] = {0, 0, 0};
  const char* at = text.data();
  const char* const end = at + text.size();
  int count = 0;
  while (count < 3) {
    const auto [next, error] = std::from_chars(at, end, parts[count]);
    if (error != std::errc()) return std::nullopt;
    ++count;
    at = next;
    if (at == end) break;
    if (*at++ != '.') return std::nullopt;
  }
  if (at != end || count < 2) return std::nullopt;
  return platform::simulated::WindowsVersion{parts[0], parts[1], parts[2]};
}

std::optional<std::string> DriveDirectory::Make(const std::string& kept) {
  std::error_code error;
  if (kept.empty()) {
    const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
    std::random_device random;
    do path_ = parent / ("ztlsim-" + std::to_string(random()));
    while (!error && !std::filesystem::create_directory(path_, error));
    temporary_ = !error;
  } else {
    path_ = kept;
  }
  if (!error) std::filesystem::create_directories(path_ / "Windows", error);
  if (!error) return std::nullopt;
  return path_.string() + ": " + error.message();
}

DriveDirectory::~DriveDirectory() {
  std::error_code ignored;
  if (temporary_) std::filesystem::remove_all(path_, ignored);
}

}  // namespace ztlsim
