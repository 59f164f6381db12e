#include "module/notify/module_log.h"

#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/system_info.h"

namespace ztl {

using namespace platform;

namespace {

constexpr UINT kWindowsDirectoryCapacity = 244;
constexpr std::uint32_t kSizeLimitKB = 1000;

}  // namespace

void OpenModuleLog() {
  char windows[kWindowsDirectoryCapacity] = {};
  // A directory that does not fit is no directory: the log is then in the root of the current drive.
  if (platform::GetWindowsDirectoryA(windows, kWindowsDirectoryCapacity) >= kWindowsDirectoryCapacity)
    windows[0] = '\0';
  char directory[kWindowsDirectoryCapacity + 8];
  Format(directory, "%s\\%s", static_cast<const char*>(windows), kLogFolder);
  OpenLogMaster(g_ModuleLog, kLogFile, directory, kSizeLimitKB, LOG_MODE_CIRCULAR, kNoPopup, kLogTag);
}

void CloseModuleLog() { g_ModuleLog.available = 0; }

}  // namespace ztl
