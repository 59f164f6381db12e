#include "ztlsim/input/load_machine.h"

#include <cstdlib>
#include <random>
#include <system_error>

namespace ztlsim {

using simulation::Registry;

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

// Which setting names a directory for temporary files, and what it is.
std::string TemporaryDirectorySetting() {
  for (const char* const name : {"TMPDIR", "TMP", "TEMP", "TEMPDIR"})
    if (const char* const value = std::getenv(name)) return std::string(name) + "=" + value;
  return "/tmp";
}

}  // namespace

std::optional<InputError> LoadRegistry(const std::vector<std::string>& files, Registry& registry) {
  for (const std::string& file : files) {
    if (auto error = ReadRegistryExport(file, registry)) return error;
    LinkControlSet(registry);
  }
  return std::nullopt;
}

std::optional<std::string> DriveDirectory::Make(const std::string& kept) {
  std::error_code error;
  if (kept.empty()) {
    const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
    if (error) return "no directory for temporary files: " + TemporaryDirectorySetting() + ": " + error.message();
    std::random_device random;
    bool isNew = false;
    while (!isNew && !error)
      temporary_.emplace(parent / ("ztlsim-" + std::to_string(random())), [&](const std::filesystem::path& path) {
        isNew = std::filesystem::create_directory(path, error);
      });
    path_ = temporary_->Path();
  } else {
    path_ = kept;
    std::filesystem::create_directories(path_, error);
  }
  if (!error) return std::nullopt;
  return path_.string() + ": " + error.message();
}

}  // namespace ztlsim
