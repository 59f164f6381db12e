// The simulated machine's setup files: real files below its root.
#include "platform/setup_files.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

#include "simulation/machine.h"
#include "simulation/text_encoding.h"

namespace platform {

namespace fs = std::filesystem;
using simulation::InfFile;
using simulation::Machine;
using simulation::Operation;

namespace {

constexpr DWORD SPOST_NONE = 0;
constexpr DWORD SP_COPY_NOOVERWRITE = 8;

// What is stored beside an INF begins with this; the system's own installed INFs do not, and are passed over.
constexpr std::u16string_view kInstalledInfMark = u"\xFEFF; ZTL stored setup information\r\n";

BOOL Fail(LSTATUS code) {
  simulation::Current().lastError = static_cast<DWORD>(code);
  return 0;
}

bool Enter(Operation operation, const char16_t* name = nullptr, DWORD flags = 0) {
  const auto code = simulation::Current().Enter(operation, {.name = name, .flags = flags});
  if (code) Fail(*code);
  return !code;
}

std::string Bytes(std::u16string_view text) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  for (const char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

// Copies a text out the way SetupAPI does. False, with the last error set, when it does not fit.
bool CopyOut(std::u16string_view value, char16_t* text, DWORD capacity, DWORD* size) {
  const std::size_t needed = value.size() + 1;
  if (size != nullptr) *size = static_cast<DWORD>(needed);
  if (text == nullptr) return true;
  if (needed > capacity) return Fail(ERROR_INSUFFICIENT_BUFFER) != 0;
  *std::copy(value.begin(), value.end(), text) = u'\0';
  return true;
}

bool HasExtension(std::u16string_view name, std::u16string_view extension) {
  return name.size() >= extension.size() &&
         simulation::UpperCase(name.substr(name.size() - extension.size())) == extension;
}

// The real file of the installed INF beside an INF. It is looked for in this letter case alone: a search for every INF
// of a large directory would take long.
fs::path InstalledInfPath(const simulation::Files& files, const char16_t* inf) {
  fs::path real = files.RealPath(inf).replace_extension(".PNF");
  std::error_code error;
  if (!fs::is_symlink(real, error)) return real;
  const std::u16string_view path(inf);
  return files.RealPath((std::u16string(path.substr(0, path.rfind(u'.'))) + u".PNF").c_str());
}

// Reads an INF for its contents. ERROR_SUCCESS, or why it is none.
LSTATUS Load(std::string_view bytes, InfFile& inf, UINT& errorLine) {
  if (bytes.empty()) return ERROR_FILE_INVALID;
  const LSTATUS rc = inf.Read(bytes, errorLine);
  return rc == ERROR_SUCCESS && !inf.HasSignature() ? ERROR_WRONG_INF_STYLE : rc;
}

bool IsOfClass(const InfFile& inf, std::u16string_view infClass) {
  constexpr std::u16string_view kClass = u"Class";
  const std::optional<InfFile::Place> place = inf.Find(u"Version", &kClass);
  return place && simulation::UpperCase(inf.Field(*place, 1).value_or(u"")) == simulation::UpperCase(infClass);
}

// Runs `use` with an open INF.
template <class Use>
BOOL WithInf(HINF handle, Use&& use) {
  Machine& machine = simulation::Current();
  const std::lock_guard lock(machine.mutex);
  const auto inf = machine.openInfs.find(handle);
  return inf == machine.openInfs.end() ? Fail(ERROR_INVALID_HANDLE) : use(*inf->second);
}

// The number of a name of the form oemN.inf.
std::optional<std::uint64_t> OemNumber(std::u16string_view name) {
  const std::u16string upper = simulation::UpperCase(name);
  if (!upper.starts_with(u"OEM") || !HasExtension(upper, u".INF") || upper.size() < 8 || upper.size() > 16)
    return std::nullopt;
  std::uint64_t number = 0;
  for (const char16_t digit : std::u16string_view(upper).substr(3, upper.size() - 7)) {
    if (digit < u'0' || digit > u'9') return std::nullopt;
    number = number * 10 + (digit - u'0');
  }
  return number;
}

// The name under which the INF directory holds these bytes, or else the next free one.
std::u16string OemName(const fs::path& directory, std::string_view bytes, bool& isThere) {
  std::set<std::uint64_t> taken;
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
    std::u16string name = simulation::FileName(entry->path());
    const std::optional<std::uint64_t> number = OemNumber(name);
    if (!number) continue;
    taken.insert(*number);
    std::error_code unreadable;
    if (entry->file_size(unreadable) != bytes.size()) continue;
    LSTATUS ignored;
    isThere = simulation::ReadFile(entry->path(), ignored) == bytes;
    if (isThere) return name;
  }
  std::uint64_t number = 0;
  while (taken.contains(number)) ++number;
  return simulation::Utf8ToUtf16("oem" + std::to_string(number) + ".inf");
}

// The installed INF that records where an INF came from.
std::string InstalledInf(std::u16string_view mediaLocation) {
  std::u16string text(kInstalledInfMark);
  text += u"[InfSourcePathInfo]\r\nOriginalInfSourcePath = \"";
  for (const char16_t c : mediaLocation) text.append(c == u'"' || c == u'%' ? 2 : 1, c);
  return Bytes(text + u"\"\r\n");
}

}  // namespace

BOOL SetupGetInfFileListW(const char16_t* directory, DWORD style, char16_t* list, DWORD capacity, DWORD* size) {
  if (!Enter(Operation::SetupGetInfFileListW, directory, style)) return 0;
  const simulation::Files& files = simulation::Current().files;
  const fs::path real = files.RealPath(directory);
  if (real == simulation::DeniedPath()) return Fail(ERROR_ACCESS_DENIED);
  std::error_code error;
  if (fs::exists(real, error) && !fs::is_directory(real, error)) return Fail(ERROR_DIRECTORY);
  std::vector<std::pair<std::u16string, std::u16string>> names;  // in upper case, as they are
  for (fs::directory_iterator entry(real, error), end; !error && entry != end; entry.increment(error)) {
    std::u16string name = simulation::FileName(entry->path());
    if ((style & INF_STYLE_WIN4) == 0 || !HasExtension(name, u".INF")) continue;
    LSTATUS unreadable;
    const fs::path file =
        entry->is_symlink() ? files.RealPath((std::u16string(directory) + u"\\" + name).c_str()) : entry->path();
    const std::optional<std::string> bytes = simulation::ReadFile(file, unreadable);
    InfFile inf;
    UINT line;
    if (!bytes || inf.Read(*bytes, line, true) != ERROR_SUCCESS || !inf.HasSignature()) continue;
    std::u16string upper = simulation::UpperCase(name);
    names.emplace_back(std::move(upper), std::move(name));
  }
  std::sort(names.begin(), names.end());
  std::u16string text;
  for (const auto& name : names) text.append(name.second).push_back(u'\0');
  return CopyOut(text, list, capacity, size) ? 1 : 0;
}

HINF SetupOpenInfFileW(const char16_t* path, const char16_t* infClass, DWORD style, UINT* errorLine) {
  const auto fail = [](LSTATUS code) {
    Fail(code);
    return INVALID_HINF;
  };
  if (errorLine != nullptr) *errorLine = 0;
  if (!Enter(Operation::SetupOpenInfFileW, path, style)) return INVALID_HINF;
  if ((style & INF_STYLE_WIN4) == 0) return fail(ERROR_INVALID_PARAMETER);
  Machine& machine = simulation::Current();
  LSTATUS rc;
  const fs::path real = machine.files.RealPath(path);
  const std::optional<std::string> bytes = simulation::ReadFile(real, rc);
  if (!bytes) return fail(rc);
  const std::u16string_view place(path);
  auto inf = std::make_unique<InfFile>(InfFile::Places{simulation::Utf8ToUtf16(machine.files.windowsDirectory),
                                                       std::u16string(place.substr(0, place.rfind(u'\\') + 1))});
  UINT line = 0;
  if (rc = Load(*bytes, *inf, line); rc != ERROR_SUCCESS) {
    if (errorLine != nullptr) *errorLine = line;
    return fail(rc);
  }
  if (infClass != nullptr && !IsOfClass(*inf, infClass)) return fail(ERROR_CLASS_MISMATCH);
  const auto stored = simulation::ReadFile(InstalledInfPath(machine.files, path), rc);
  if (stored && stored->starts_with(Bytes(kInstalledInfMark))) inf->Read(*stored, line);
  InfFile* const handle = inf.get();
  const std::lock_guard lock(machine.mutex);
  machine.openInfs.emplace(handle, std::move(inf));
  return handle;
}

void SetupCloseInfFile(HINF inf) {
  Enter(Operation::SetupCloseInfFile);
  Machine& machine = simulation::Current();
  const std::lock_guard lock(machine.mutex);
  machine.openInfs.erase(inf);
}

BOOL SetupFindFirstLineW(HINF inf, const char16_t* section, const char16_t* key, INFCONTEXT* line) {
  if (!Enter(Operation::SetupFindFirstLineW, section)) return 0;
  return WithInf(inf, [=](const InfFile& file) {
    const std::u16string_view name = key != nullptr ? key : u"";
    const std::optional<InfFile::Place> place = file.Find(section, key != nullptr ? &name : nullptr);
    if (!place) return Fail(ERROR_LINE_NOT_FOUND);
    *line = {inf, inf, place->section, place->line};
    return 1;
  });
}

BOOL SetupGetStringFieldW(const INFCONTEXT* line, DWORD field, char16_t* text, DWORD capacity, DWORD* size) {
  if (!Enter(Operation::SetupGetStringFieldW)) return 0;
  return WithInf(line->CurrentInf, [=](const InfFile& file) {
    const std::optional<std::u16string> value = file.Field({line->Section, line->Line}, field);
    if (!value) return Fail(ERROR_INVALID_PARAMETER);
    return CopyOut(*value, text, capacity, size) ? 1 : 0;
  });
}

BOOL SetupCopyOEMInfW(const char16_t* source, const char16_t* mediaLocation, DWORD mediaType, DWORD copyStyle,
                      char16_t* destination, DWORD capacity, DWORD* size, char16_t** component) {
  if (!Enter(Operation::SetupCopyOEMInfW, source, mediaType)) return 0;
  if (source == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const simulation::Files& files = simulation::Current().files;
  LSTATUS rc;
  const std::optional<std::string> bytes = simulation::ReadFile(files.RealPath(source), rc);
  if (!bytes) return Fail(rc);
  InfFile inf;
  UINT line;
  if (rc = Load(*bytes, inf, line); rc != ERROR_SUCCESS) return Fail(rc);

  const std::u16string directory = simulation::Utf8ToUtf16(files.windowsDirectory) + u"\\Inf";
  const fs::path realDirectory = files.RealPath(directory.c_str());
  std::error_code error;
  if (realDirectory == simulation::DeniedPath()) return Fail(ERROR_ACCESS_DENIED);
  if (realDirectory.empty() || (fs::create_directories(realDirectory, error), error)) return Fail(ERROR_PATH_NOT_FOUND);
  bool isThere = false;
  const std::u16string path = directory + u"\\" + OemName(realDirectory, *bytes, isThere);
  if (!isThere || (copyStyle & SP_COPY_NOOVERWRITE) == 0) {
    // A directory is the media unless another place is named.
    const std::u16string_view place(source);
    const std::u16string_view media =
        mediaLocation != nullptr ? mediaLocation : place.substr(0, place.find_last_of(u"\\/"));
    const fs::path stored = InstalledInfPath(files, path.c_str());
    // The installed INF comes first: an INF without one would have lost its origin.
    if (mediaType == SPOST_NONE) {
      fs::remove(stored, error);
    } else if (simulation::WriteFileWhole(stored, InstalledInf(media))) {
      return Fail(ERROR_ACCESS_DENIED);
    }
    if (!isThere && simulation::WriteFileWhole(files.RealPath(path.c_str()), *bytes)) {
      fs::remove(stored, error);
      return Fail(ERROR_ACCESS_DENIED);
    }
  }
  if (!CopyOut(path, destination, capacity, size)) return 0;
  if (component != nullptr && destination != nullptr) *component = destination + directory.size() + 1;
  return isThere && (copyStyle & SP_COPY_NOOVERWRITE) != 0 ? Fail(ERROR_FILE_EXISTS) : 1;
}

DWORD GetPrivateProfileStringW(const char16_t* section, const char16_t* key, const char16_t* fallback, char16_t* text,
                               DWORD capacity, const char16_t* path) {
  std::u16string value = fallback != nullptr ? fallback : u"";
  while (value.ends_with(u' ')) value.pop_back();
  if (Enter(Operation::GetPrivateProfileStringW, key)) {
    LSTATUS rc;
    const std::optional<std::string> bytes = simulation::ReadFile(simulation::Current().files.RealPath(path), rc);
    std::optional<std::u16string> found;
    if (bytes && section != nullptr && key != nullptr)
      // UTF-8 has no meaning in these files: its mark is read as three characters.
      found = simulation::ProfileValue(bytes->starts_with("\xEF\xBB\xBF") ? simulation::Windows1252ToUtf16(*bytes)
                                                                          : simulation::DecodeSetupText(*bytes),
                                       section, key);
    if (found) value = std::move(*found);
    if (!found) Fail(bytes ? ERROR_FILE_NOT_FOUND : rc);
  }
  if (capacity == 0) return 0;
  value.resize(std::min<std::size_t>(value.size(), capacity - 1));
  *std::copy(value.begin(), value.end(), text) = u'\0';
  return static_cast<DWORD>(value.size());
}

}  // namespace platform
