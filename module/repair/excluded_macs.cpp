#include "module/repair/excluded_macs.h"

#include <algorithm>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/netcfg/binding_path.h"
#include "module/netcfg/configuration_session.h"
#include "platform/com_ptr.h"
#include "platform/netcfg.h"
#include "platform/system_info.h"
#include "platform/task_text.h"

namespace ztl {

using namespace platform;

namespace {

void DisablePathTo(INetCfgComponentBindings* bindings, INetCfgComponent* adapter, const char16_t* componentId,
                   MultiStringView excludedMacs) {
  if (bindings->IsBoundTo(adapter) != S_OK) return;
  char16_t* received = nullptr;
  const HRESULT hr = adapter->GetPnpDevNodeId(&received);
  const TaskText devNodeId(received);
  if (Failed(hr) || !devNodeId || !IsExcluded(excludedMacs, devNodeId.get())) return;
  const char16_t* const id = devNodeId.get();
  LogMessage(g_ModuleLog, SEV_INFO, "%S in ExcludedMacs", id);
  const TaskText token = JoinTaskText(componentId, kTokenArrow, id);
  if (!token) return;
  const char16_t* const text = token.get();
  LogMessage(g_ModuleLog, SEV_INFO, "disabling %S", text);
  EnableBindingPath(componentId, text, false);
}

}  // namespace

bool ReadExcludedMacs(HKEY parameters, ExcludedMacs& list) {
  return list.Read(parameters, kExcludedMacsValue, REG_MULTI_SZ, kExcludedMacsLimit) == ERROR_SUCCESS;
}

bool IsExcluded(MultiStringView excludedMacs, std::u16string_view devNodeId) {
  for (const std::u16string_view entry : excludedMacs) {
    const std::size_t shorter = std::min(entry.size(), devNodeId.size());
    if (EqualNoCase(std::u16string_view(entry.data(), shorter), std::u16string_view(devNodeId.data(), shorter)))
      return true;
  }
  return false;
}

LSTATUS UnBindZTLFromExcludedMacs() {
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  if (platform::GetVersionExW(&version) == 0) {
    const auto rc = static_cast<LSTATUS>(platform::GetLastError());
    LogMessage(g_ModuleLog, SEV_ERROR, "UnBindZTLFromExcludedMacs: GetVersionEx rc=%d", rc);
    return rc;
  }
  LogMessage(g_ModuleLog, SEV_INFO, "UnBindZTLFromExcludedMacs: Platfrom %d Major %d Minor %d ServPack %hd",
             version.dwPlatformId, version.dwMajorVersion, version.dwMinorVersion,
             static_cast<std::int16_t>(version.wServicePackMajor));
  if (version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion > 5) {
    LogMessage(g_ModuleLog, SEV_INFO, "UnBindZTLFromExcludedMacs: No ExcludedMacs on Vista");
    return ERROR_NOT_SUPPORTED;
  }
  UniqueKey parameters;
  if (parameters.Open(HKEY_LOCAL_MACHINE, kParametersKey, KEY_ALL_ACCESS) != ERROR_SUCCESS) return ERROR_SUCCESS;
  ExcludedMacs list;
  if (!ReadExcludedMacs(parameters.Get(), list)) {
    LogMessage(g_ModuleLog, SEV_INFO, "UnBindZTLFromExcludedMacs: No ExcludedMacs");
    return ERROR_SUCCESS;
  }
  parameters.Close();
  DisableExcludedMacBindings(kFilterComponent, list.List());
  return ERROR_SUCCESS;
}

void DisableExcludedMacBindings(const char16_t* componentId, MultiStringView excludedMacs) {
  char id[64];  // for the formats that take 8-bit text
  Format(id, "%S", componentId);
  const char* const id8 = id;
  UniqueSession session;
  HRESULT hr = HrOpenSession(session);
  if (hr == NETCFG_E_NO_WRITE_LOCK) {
    LogMessage(g_ModuleLog, SEV_ERROR, "lock is being held, try later");
    return;
  }
  if (hr != S_OK) {
    LogMessage(g_ModuleLog, SEV_ERROR, "rc=%08x - can't get the notify object interface", hr);
    return;
  }
  ComPtr<INetCfgComponent> component;
  hr = session->FindComponent(componentId, component.Receive());
  if (hr != S_OK) {
    LogMessage(g_ModuleLog, SEV_ERROR, "rc=%08x - can't get an interface pointer to %s", hr, id8);
    return;
  }
  ComPtr<INetCfgClass> netClass;
  ComPtr<IEnumNetCfgComponent> adapters;
  hr = session->QueryNetCfgClass(&GUID_DEVCLASS_NET, IID_INetCfgClass, reinterpret_cast<void**>(netClass.Receive()));
  if (hr == S_OK) hr = netClass->EnumComponents(adapters.Receive());
  netClass.Reset();
  if (hr != S_OK) {
    LogMessage(g_ModuleLog, SEV_ERROR, "rc=%08x - can't get the network component enumerator", hr);
    return;
  }
  ComPtr<INetCfgComponentBindings> bindings;
  hr = component->QueryInterface(IID_INetCfgComponentBindings, reinterpret_cast<void**>(bindings.Receive()));
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "rc=%08x - can't get the comp. binding interface %s", hr, id8);
    return;
  }
  adapters->Reset();
  ComPtr<INetCfgComponent> adapter;
  while (adapters->Next(1, adapter.Receive(), nullptr) == S_OK)
    DisablePathTo(bindings.Get(), adapter.Get(), componentId, excludedMacs);
}

}  // namespace ztl
