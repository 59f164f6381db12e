#include "module/install/miniport_inf.h"

#include <algorithm>
#include <string_view>

#include "module/install/versions.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/files.h"
#include "platform/multi_string.h"
#include "platform/system_info.h"
#include "platform/task_text.h"
#include "platform/text.h"

namespace ztl {

using namespace platform;

namespace {

constexpr std::u16string_view kInfFolder = u"Inf\\";
constexpr DWORD kPathCapacity = 260;
constexpr UINT kPathTail = 18;  // a backslash, the folder's name and the miniport INF's fit in

constexpr HRESULT kNoMemory = HresultFromError(ERROR_NOT_ENOUGH_MEMORY);

HRESULT LastFailure() { return HresultFromError(static_cast<LSTATUS>(platform::GetLastError())); }

// An open INF, closed when it goes out of scope.
class InfFile {
 public:
  explicit InfFile(const char16_t* path)
      : handle_(platform::SetupOpenInfFileW(path, nullptr, INF_STYLE_WIN4, nullptr)) {}
  ~InfFile() {
    if (IsOpen()) platform::SetupCloseInfFile(handle_);
  }
  InfFile(const InfFile&) = delete;
  InfFile& operator=(const InfFile&) = delete;

  bool IsOpen() const { return handle_ != INVALID_HINF; }
  // A text that was handed out by HrGetKeyValue; null when there is none.
  HRESULT Read(const char16_t* section, const char16_t* key, DWORD field, TaskText& value) const {
    char16_t* text = nullptr;
    const HRESULT hr = HrGetKeyValue(handle_, section, key, field, &text);
    value.reset(text);
    return hr;
  }

 private:
  HINF handle_;
};

bool BeginsWith(std::u16string_view name, std::u16string_view prefix) {
  return name.size() >= prefix.size() && EqualNoCase(std::u16string_view(name.data(), prefix.size()), prefix);
}

// Logged as a function of its own, though it is the second half of the copy.
HRESULT HrGetMediaRootDir(const char16_t* infPath, TaskText& mediaRoot) {
  const InfFile inf(infPath);
  if (inf.IsOpen()) return inf.Read(u"InfSourcePathInfo", u"OriginalInfSourcePath", 1, mediaRoot);
  const HRESULT hr = LastFailure();
  LogMessage(g_ModuleLog, SEV_ERROR, "HrGetMediaRootDir: SetupOpenInfFileW rc=%x", hr);
  return hr;
}

// Windows 2000 before its second service pack finds the INF only under its own name.
bool NeedsCopyInInfDirectory() {
  OSVERSIONINFOEXW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
  return platform::GetVersionExW(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
         version.dwMajorVersion == 5 && version.dwMinorVersion == 0 && version.wServicePackMajor < 2;
}

// `infDirectory` has room for the miniport INF's name after it.
HRESULT CopyFromMedia(const char16_t* mediaRoot, char16_t* infDirectory) {
  TraceLine(u"Media root directory is %s.\n", mediaRoot);
  const TaskText source = JoinTaskText(mediaRoot, PathSeparator(mediaRoot), kMiniportInf);
  if (!source) return kNoMemory;
  TraceLine(u"Calling SetupCopyOEMInf for %s.\n", static_cast<const char16_t*>(source.get()));
  HRESULT hr = S_OK;
  if (!platform::SetupCopyOEMInfW(source.get(), mediaRoot, SPOST_PATH, 0, nullptr, 0, nullptr, nullptr))
    hr = LastFailure();
  if (NeedsCopyInInfDirectory()) {
    std::copy(std::begin(kMiniportInf), std::end(kMiniportInf),
              infDirectory + std::u16string_view(infDirectory).size());
    platform::CopyFileW(source.get(), infDirectory, 0);
  }
  return hr;
}

// The packed version and the build of the installed driver; 0 when there is none.
DWORD InstalledVersion(DWORD& build) {
  build = 0;
  char16_t directory[kPathCapacity] = {};
  const UINT length = platform::GetSystemDirectoryW(directory, kPathCapacity);
  return length != 0 && length < kPathCapacity ? GetFileVersion(directory, kDriverFile, &build) : 0;
}

// The names of all INF files in the directory, in a buffer of `size` characters; null, with the result, on failure.
HRESULT ListInfFiles(const char16_t* infDirectory, TaskText& list, DWORD& size) {
  if (!platform::SetupGetInfFileListW(infDirectory, INF_STYLE_WIN4, nullptr, 0, &size)) {
    const HRESULT hr = LastFailure();
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetProtocolInf: SetupGetInfFileListW rc=%x", hr);
    return hr;
  }
  list = AllocateTaskText(size);
  if (!list) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetProtocolInf: CoTaskMemAlloc not enough memory");
    return kNoMemory;
  }
  std::fill_n(list.get(), size, u'\0');  // some systems succeed without a list when it has become too long
  if (!platform::SetupGetInfFileListW(infDirectory, INF_STYLE_WIN4, list.get(), size, nullptr)) {
    const HRESULT hr = LastFailure();
    list.reset();
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetProtocolInf: SetupGetInfFileListW 2 rc=%x", hr);
    return hr;
  }
  return S_OK;
}

}  // namespace

HRESULT HrCopyMiniportInf() {
  const UINT length = platform::GetSystemWindowsDirectoryW(nullptr, 0);
  if (length == 0) {
    const HRESULT hr = LastFailure();
    LogMessage(g_ModuleLog, SEV_ERROR, "HrCopyMiniportInf: GetSystemWindowsDirectory rc=%x", hr);
    return hr;
  }
  const TaskText infDirectory = AllocateTaskText(std::size_t{length} + kPathTail);
  if (!infDirectory) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrCopyMiniportInf: CoTaskMemAlloc not enough memory");
    return kNoMemory;
  }
  const UINT read = platform::GetSystemWindowsDirectoryW(infDirectory.get(), length + kPathTail);
  if (read == 0) return LastFailure();
  if (read >= length) return HresultFromError(ERROR_INSUFFICIENT_BUFFER);  // another one than was asked for
  char16_t* end = infDirectory.get() + read;
  for (const std::u16string_view part : {PathSeparator({infDirectory.get(), read}), kInfFolder})
    end = std::copy(part.begin(), part.end(), end);
  *end = u'\0';

  char16_t* found = nullptr;
  HRESULT hr = HrGetProtocolInf(infDirectory.get(), &found);
  const TaskText infPath(found);
  if (Failed(hr) || !infPath) return hr;  // the system may give no code for what failed
  TaskText mediaRoot;
  hr = HrGetMediaRootDir(infPath.get(), mediaRoot);
  return mediaRoot ? CopyFromMedia(mediaRoot.get(), infDirectory.get()) : hr;
}

HRESULT HrGetProtocolInf(const char16_t* infDirectory, char16_t** infPath) {
  *infPath = nullptr;
  DWORD installedBuild;
  const DWORD installed = InstalledVersion(installedBuild);
  TaskText list;
  DWORD size = 0;
  if (const HRESULT hr = ListInfFiles(infDirectory, list, size); !list) return hr;
  OptFileSearch(list.get(), size);

  HRESULT hr = S_OK;
  char16_t candidate[kPathCapacity] = {};
  int best = 4;
  TaskText taken;
  for (const std::u16string_view name : MultiStringView(list.get(), size)) {
    TaskText path = JoinTaskText(infDirectory, PathSeparator(infDirectory), name);
    if (!path) {
      LogMessage(g_ModuleLog, SEV_ERROR, "HrGetProtocolInf: CoTaskMemAlloc 2 not enough memory");
      hr = kNoMemory;
      break;
    }
    const char16_t* const text = path.get();
    LogMessage(g_ModuleLog, SEV_INFO, "Calling HrGetPnpID %S", text);
    if (!IsFilterInf(text)) continue;
    if (installed == 0) {
      taken = std::move(path);
      break;
    }
    DWORD build = 0;
    const DWORD version = GetInfVersion(text, &build);
    const int rank = RankOf(installed, installedBuild, version, build);
    if (rank > best) continue;
    constexpr const char* kRankNames[] = {"1st", "2st", "3rd", "4th"};
    LogMessage(g_ModuleLog, SEV_INFO, "HrGetProtocolInf: %s choice INF %S", kRankNames[rank - 1], text);
    if (rank == 1) {
      taken = std::move(path);
      break;
    }
    // A path that is too long leaves the candidate before in its place.
    if (std::u16string_view(text).size() >= kPathCapacity) continue;
    Join(candidate, text);
    best = rank;
  }

  if (taken) {
    hr = S_OK;
  } else if (candidate[0] == u'\0') {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetProtocolInf: HrGetPnpID file not found");
    hr = HresultFromError(ERROR_FILE_NOT_FOUND);
  } else if (taken = JoinTaskText(candidate); !taken) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetProtocolInf: CoTaskMemAlloc 3 not enough memory");
    hr = kNoMemory;
  }
  *infPath = taken.release();
  list.reset();
  LogMessage(g_ModuleLog, SEV_INFO, "HrGetProtocolInf: rc=%x", hr);
  return hr;
}

char16_t* OptFileSearch(char16_t* list, DWORD capacity) {
  if (capacity == 0) return list;
  const TaskText work = AllocateTaskText(capacity);
  if (!work) {
    LogMessage(g_ModuleLog, SEV_WARNING, "OptFileSearch alloc err");
    return list;
  }
  std::fill_n(work.get(), capacity, u'\0');
  MultiStringBuilder ordered(work.get(), capacity);
  for (const std::u16string_view prefix : {u"oem", u"zt"})
    for (const std::u16string_view name : MultiStringView(list, capacity))
      if (BeginsWith(name, prefix)) ordered.Append(name);
  std::copy_n(work.get(), capacity, list);
  return list;
}

HRESULT HrGetPnpID(const char16_t* infPath, char16_t** pnpId) {
  *pnpId = nullptr;
  const InfFile inf(infPath);
  if (!inf.IsOpen()) return LastFailure();
  TaskText models;
  if (const HRESULT hr = inf.Read(u"Manufacturer", nullptr, 1, models); !models) return hr;
  TaskText id;
  const HRESULT hr = inf.Read(models.get(), nullptr, 2, id);
  *pnpId = id.release();
  return hr;
}

bool IsFilterInf(const char16_t* infPath) {
  char16_t* id = nullptr;
  HrGetPnpID(infPath, &id);
  const TaskText pnpId(id);
  return pnpId && EqualNoCase(pnpId.get(), kFilterComponent);
}

HRESULT HrGetKeyValue(HINF inf, const char16_t* section, const char16_t* key, DWORD fieldIndex, char16_t** value) {
  *value = nullptr;
  INFCONTEXT line;
  if (!platform::SetupFindFirstLineW(inf, section, key, &line)) {
    const HRESULT hr = LastFailure();
    LogMessage(g_ModuleLog, SEV_INFO, "HrGetKeyValue: SetupFindFirstLineW section <%S> key <%S> rc=%x", section, key,
               hr);
    return hr;
  }
  DWORD size = 0;
  platform::SetupGetStringFieldW(&line, fieldIndex, nullptr, 0, &size);
  TaskText text = AllocateTaskText(size);
  if (!text) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetKeyValue: CoTaskMemAlloc not enough memory");
    return kNoMemory;
  }
  if (!platform::SetupGetStringFieldW(&line, fieldIndex, text.get(), size, nullptr)) {
    const HRESULT hr = LastFailure();
    LogMessage(g_ModuleLog, SEV_INFO, "HrGetKeyValue: SetupGetStringFieldW index %d rc=%x", fieldIndex, hr);
    return hr;
  }
  *value = text.release();
  return S_OK;
}

}  // namespace ztl
