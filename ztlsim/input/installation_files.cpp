#include "ztlsim/input/installation_files.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "module/install/miniport_inf.h"
#include "module/names.h"
#include "platform/system_info.h"
#include "platform/text.h"
#include "ztlsim/input/input_file.h"
#include "ztlsim/inspection.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {

using namespace platform;

namespace {

namespace fs = std::filesystem;

constexpr char16_t kMedia[] = u"C:\\Media";
constexpr char kInfDirectory[] = "Windows/Inf";  // below the drive's root
constexpr char16_t kSystemDirectory[] = u"C:\\Windows\\System32\\";

std::optional<std::string> Trouble(const fs::path& file, const std::error_code& error) {
  return file.string() + ": " + error.message();
}

// `destination` is a real path of the drive.
std::optional<std::string> CopyInto(const fs::path& file, const simulation::Files& drive, const fs::path& destination) {
  std::string bytes;
  if (const auto trouble = ReadInputFile(file, "a file", bytes)) return file.string() + ": " + *trouble;
  if (destination == simulation::DeniedPath()) return drive.Troubles().back();
  if (const std::error_code error = MakeDirectories(drive.root, destination.parent_path()))
    return Trouble(destination.parent_path(), error);
  return simulation::WriteFileWhole(destination, bytes);
}

std::optional<std::string> CopyDirectory(const fs::path& directory, const simulation::Files& drive,
                                         const fs::path& below) {
  std::error_code error;
  for (fs::recursive_directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
    if (!entry->is_regular_file(error)) continue;
    const fs::path destination = drive.Locate(below / entry->path().lexically_relative(directory));
    if (auto trouble = CopyInto(entry->path(), drive, destination)) return trouble;
  }
  return error ? Trouble(directory, error) : std::nullopt;
}

// Without "." and ".." and without a slash at the end.
fs::path Normal(const fs::path& path) { return (fs::absolute(path) / "").lexically_normal().parent_path(); }

bool IsInside(const fs::path& path, const fs::path& directory) {
  const fs::path outer = Normal(directory), inner = Normal(path);
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

// Stores the INF files of the filter in the media directory, in the order of their names.
std::optional<std::string> StoreFilterInfs(const simulation::Files& drive) {
  std::vector<std::u16string> names;
  std::error_code error;
  for (fs::directory_iterator entry(drive.RealPath(kMedia), error), end; !error && entry != end; entry.increment(error))
    if (std::u16string name = simulation::FileName(entry->path());
        name.size() > 4 && EqualNoCase(std::u16string_view(name).substr(name.size() - 4), u".inf"))
      names.push_back(std::move(name));
  std::sort(names.begin(), names.end());
  for (const std::u16string& name : names) {
    const std::u16string path = std::u16string(kMedia) + u"\\" + name;
    if (!ztl::IsFilterInf(path.c_str())) continue;
    if (SetupCopyOEMInfW(path.c_str(), kMedia, SPOST_PATH, 0, nullptr, 0, nullptr, nullptr)) continue;
    if (const std::vector<std::string> troubles = drive.Troubles(); !troubles.empty()) return troubles.back();
    return Utf16ToUtf8(path) + ": cannot be stored, system error " + std::to_string(GetLastError());
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> PlaceInstallationFiles(simulation::Machine& machine, const InstallationFiles& files) {
  const Inspection inspection(machine);
  const simulation::Files& drive = machine.files;
  for (const std::string& inf : files.infFiles)
    if (auto trouble = CopyInto(inf, drive, drive.Locate(kInfDirectory / fs::path(inf).filename()))) return trouble;
  if (!files.driverFile.empty())
    if (auto trouble = CopyInto(files.driverFile, drive,
                                drive.RealPath((kSystemDirectory + std::u16string(ztl::kDriverFile)).c_str())))
      return trouble;
  if (files.mediaDirectory.empty()) return std::nullopt;
  const fs::path media = files.mediaDirectory;
  std::error_code ignored;
  if (IsInside(drive.RealPath(kMedia), media) && !fs::equivalent(media, drive.RealPath(kMedia), ignored))
    return files.mediaDirectory + ": holds the machine's drive";
  if (auto trouble = CopyDirectory(media, drive, "Media")) return trouble;
  return StoreFilterInfs(drive);
}

}  // namespace ztlsim
