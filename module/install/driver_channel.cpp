#include "module/install/driver_channel.h"

#include <string_view>

#include "module/install/registry_tree.h"
#include "module/install/versions.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/device.h"
#include "platform/registry_key.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace ztl {

using namespace platform;

namespace {

constexpr DWORD kLowestSavingVersion = 0x030A0000;
constexpr DWORD SERVICE_DISABLED = 4;

HANDLE OpenControlDevice() {
  return platform::CreateFileW(kControlDevice, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

// A key below HKEY_LOCAL_MACHINE as the kernel calls it.
struct KernelPath {
  KernelPath(const char16_t* keyPath, const char16_t* name) {
    Join(text, u"\\Registry\\MACHINE\\", keyPath, u"\\", name);
    bytes = static_cast<DWORD>(std::u16string_view(text).size() * sizeof(char16_t));
  }

  char16_t text[260];
  DWORD bytes;  // without the terminator
};

// Sends the path, which the driver may answer in its own buffer. 0 or the system error code.
DWORD SendPath(HANDLE device, DWORD code, KernelPath& path) {
  DWORD returned = 0;
  const BOOL sent =
      platform::DeviceIoControl(device, code, path.text, path.bytes, path.text, path.bytes, &returned, nullptr);
  return sent != 0 ? 0 : platform::GetLastError();
}

}  // namespace

DWORD ZtlRunningVersion() {
  const HANDLE device = OpenControlDevice();
  if (device == INVALID_HANDLE_VALUE) {
    LogMessage(g_ModuleLog, SEV_ERROR, "ZtlRunningVersion CreateFile err=%u", platform::GetLastError());
    return 0;
  }
  ZTL_VERSION_REPLY reply = {};
  const auto& [first, second, third, build] = reply.parts;
  DWORD returned = 0;
  DWORD packed = 0;
  if (platform::DeviceIoControl(device, IOCTL_ZTL_RUNNING_VERSION, nullptr, 0, &reply, sizeof(reply), &returned,
                                nullptr) != 0) {
    LogMessage(g_ModuleLog, SEV_INFO, "ZtlRunningVersion <%u.%u.%u.%u>", first, second, third, build);
    packed = PackVersion(first, second, third);
  } else {
    LogMessage(g_ModuleLog, SEV_ERROR, "ZtlRunningVersion DeviceIoControl err=%u", platform::GetLastError());
  }
  platform::CloseHandle(device);
  return packed;
}

DWORD DestroySymLinkKey(HKEY, const char16_t* keyPath, const char16_t* linkName) {
  KernelPath path(keyPath, linkName);
  TraceLine(u"--> DestroySymLinkKey %s %d\n", static_cast<const char16_t*>(path.text), path.bytes);
  const HANDLE device = OpenControlDevice();
  if (device == INVALID_HANDLE_VALUE) {
    TraceLine(u"--> DestroySymLinkKey: INVALID HANDLE\n");
    return 0;
  }
  const DWORD status = SendPath(device, IOCTL_ZTL_DESTROY_SYMLINK_KEY, path);
  TraceLine(u"--> DestroySymLinkKey status = %d\n", status);
  if (platform::CloseHandle(device) == 0)
    TraceLine(u"--> DestroySymLinkKey close err = %08x\n", platform::GetLastError());
  return status;
}

DWORD UnlinkZtlParamKeySaveZtlParams() {
  TraceLine(u"--> UnlinkZtlParamKeySaveZtlParams\n");
  DestroySymLinkKey(HKEY_LOCAL_MACHINE, kSavedParametersKey, kOrderLink);
  KernelPath path(kProductKey, kSavedParameters);
  TraceLine(u"--> UnlinkZtlParamKeySaveZtlParams %s %d\n", static_cast<const char16_t*>(path.text), path.bytes);
  const HANDLE device = OpenControlDevice();
  if (device == INVALID_HANDLE_VALUE) {
    TraceLine(u"--> UnlinkZtlParamKeySaveZtlParams: INVALID HANDLE\n");
    CopyRegTree(HKEY_LOCAL_MACHINE, kLiveParametersKey, HKEY_LOCAL_MACHINE, kSavedParametersKey, 1);
    return 0;
  }
  const DWORD status = SendPath(device, IOCTL_ZTL_UNLINK_PARAMS_SAVE, path);
  TraceLine(u"--> UnlinkZtlParamKeySaveZtlParams returns status = %08x\n", status);
  if (platform::CloseHandle(device) == 0)
    TraceLine(u"--> UnlinkZtlParamKeySaveZtlParams close err = %08x\n", platform::GetLastError());
  return status;
}

void FixupRegistry() {
  UniqueKey runOnce;
  if (const LSTATUS rc = runOnce.Open(HKEY_LOCAL_MACHINE, kRunOnceKey, KEY_ALL_ACCESS); rc == ERROR_SUCCESS)
    platform::RegDeleteValueW(runOnce.Get(), kRunOnceValue);
  else
    LogMessage(g_ModuleLog, SEV_ERROR, "FixupRegistry RegOpenKeyEx rc=%x", rc);
  runOnce.Close();
  UnlinkZtlParamKeySaveZtlParams();
}

void PrepareZtlForUnload() {
  UniqueKey service;
  if (service.Open(HKEY_LOCAL_MACHINE, kServiceKey, KEY_ALL_ACCESS) == ERROR_SUCCESS)
    platform::RegSetValueExW(service.Get(), kStartValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&SERVICE_DISABLED),
                             sizeof(SERVICE_DISABLED));
  service.Close();
  if (ZtlRunningVersion() >= kLowestSavingVersion) FixupRegistry();
}

DWORD EnumCount() {
  UniqueKey devices;
  DWORD count = 0;
  DWORD bytes = sizeof(count);
  if (platform::RegOpenKeyW(HKEY_LOCAL_MACHINE, kServiceEnumKey, devices.Receive()) != ERROR_SUCCESS ||
      platform::RegQueryValueExW(devices.Get(), kCountValue, nullptr, nullptr, reinterpret_cast<BYTE*>(&count),
                                 &bytes) != ERROR_SUCCESS) {
    devices.Close();
    TraceLine(u"--> EnumCount 0\n");
    return 0;
  }
  devices.Close();
  TraceLine(u"--> EnumCount %d\n", count);
  return count;
}

}  // namespace ztl
