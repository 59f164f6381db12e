#include "module/install/control_device.h"

#include <string_view>

#include "module/install/versions.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/device.h"
#include "platform/registry_key.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace ztl {

using namespace platform;

HANDLE OpenControlDevice() {
  return platform::CreateFileW(kControlDevice, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

KernelPath::KernelPath(const char16_t* keyPath, const char16_t* name) {
  Join(text, u"\\Registry\\MACHINE\\", keyPath, u"\\", name);
  bytes = static_cast<DWORD>(std::u16string_view(text).size() * sizeof(char16_t));
}

DWORD SendPath(HANDLE device, DWORD code, KernelPath& path) {
  DWORD returned = 0;
  const BOOL sent =
      platform::DeviceIoControl(device, code, path.text, path.bytes, path.text, path.bytes, &returned, nullptr);
  return sent != 0 ? 0 : platform::GetLastError();
}

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
