#include "module/install/saved_parameters.h"

#include "module/install/control_device.h"
#include "module/install/registry_tree.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/registry_key.h"
#include "platform/system_info.h"

namespace ztl {

using namespace platform;

namespace {

constexpr DWORD kLowestSavingVersion = 0x030A0000;
constexpr DWORD SERVICE_DISABLED = 4;

}  // namespace

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

void RestoreZtlParams() {
  TraceLine(u"--> RestoreZtlParams\n");
  CopyRegTree(HKEY_LOCAL_MACHINE, kSavedParametersKey, HKEY_LOCAL_MACHINE, kLiveParametersKey, 0);
  DeleteKey(HKEY_LOCAL_MACHINE, kSavedParametersKey);
  UniqueKey key;
  platform::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProductKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                            nullptr, key.Receive(), nullptr);
  key.Close();
  // Where the saved copy could not be deleted, the values that it still has are copied again.
  CopyRegTree(HKEY_LOCAL_MACHINE, kSavedParametersKey, HKEY_LOCAL_MACHINE, kLiveParametersKey, 0);
  if (key.Open(HKEY_LOCAL_MACHINE, kServiceKey, KEY_ALL_ACCESS) == ERROR_SUCCESS)
    platform::RegDeleteValueW(key.Get(), kDeleteFlagValue);
}

}  // namespace ztl
