#include "ztlsim/load_machine.h"

#include <charconv>
#include <random>
#include <span>
#include <system_error>

namespace ztlsim {

using platform::simulated::Registry;

namespace {

// Makes CurrentControlSet the link that it is on a running system: to the set that Select names, else to the first.
void LinkControlSet(Registry& registry) {
  const std::u16string system = u"HKEY_LOCAL_MACHINE\\SYSTEM\\";
  if (registry.Find(system + u"CurrentControlSet") != nullptr) return;
  std::u16string name = u"ControlSet001";
  if (const auto* const select = registry.Find(system + u"Select"))
    if (const auto* const current = select->FindValue(u"Current"); current != nullptr && !current->data.empty())
      if (current->data[0] < 10 && registry.Find(system + u"ControlSet00" + char16_t(u'0' + current->data[0])))
        name.back() = static_cast<char16_t>(u'0' + current->data[0]);
  if (registry.Find(system + name) != nullptr) registry.Link(system + u"CurrentControlSet", system + name);
}

// Reads numbers that are separated by dots. How many there are; 0 when the text is anything else or has too many.
template <class Number>
std::size_t ReadParts(const std::string& text, std::span<Number> parts) {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::size_t count = 0; count < parts.size();) {
    const auto [next, error] = std::from_chars(at, end, parts[count]);
    if (error != std::errc()) return 0;
    ++count;
    at = next;
    if (at == end) return count;
    if (*at++ != '.') return 0;
  }
  return 0;
}

}  // namespace

std::optional<InputError> LoadRegistry(const std::vector<std::string>& files, Registry& registry) {
  for (const std::string& file : files) {
    if (auto error = ReadRegistryExport(file, registry)) return error;
    LinkControlSet(registry);
  }
  return std::nullopt;
}

std::optional<platform::simulated::WindowsVersion> ParseWindowsVersion(const std::string& text) {
  std::uint16_t parts[3] = {0, 0, 0};
  if (ReadParts<std::uint16_t>(text, parts) < 2) return std::nullopt;
  return platform::simulated::WindowsVersion{.major = parts[0], .minor = parts[1], .servicePack = parts[2]};
}

std::optional<std::array<platform::DWORD, 4>> ParseDriverVersion(const std::string& text) {
  std::array<platform::DWORD, 4> parts{};
  if (ReadParts<platform::DWORD>(text, parts) != 4) return std::nullopt;
  return parts;
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
