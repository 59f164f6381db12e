#include "module/repair/excluded_macs.h"

#include <algorithm>
#include <iterator>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/netcfg/binding_path.h"
#include "module/netcfg/configuration_session.h"
#include "module/order/build_im_order.h"
#include "platform/com.h"
#include "platform/com_ptr.h"
#include "platform/netcfg.h"
#include "platform/system_info.h"

namespace ztl {

using namespace platform;

namespace {

// A text that the engine handed out.
class TaskText {
 public:
  TaskText() = default;
  ~TaskText() { platform::CoTaskMemFree(text_); }
  TaskText(const TaskText&) = delete;
  TaskText& operator=(const TaskText&) = delete;

  char16_t** Receive() { return &text_; }
  const char16_t* Get() const { return text_; }

 private:
  char16_t* text_ = nullptr;
};

// "component->adapter" in task memory; null when there is none to be had.
char16_t* AllocateToken(std::u16string_view componentId, std::u16string_view devNodeId) {
  auto* const token =
      static_cast<char16_t*>(platform::CoTaskMemAlloc((componentId.size() + devNodeId.size() + 3) * sizeof(char16_t)));
  if (token == nullptr) return nullptr;
  char16_t* end = token;
  for (const std::u16string_view part : {componentId, std::u16string_view(kTokenArrow), devNodeId})
    end = std::copy(part.begin(), part.end(), end);
  *end = u'\0';
  return token;
}

void DisablePathTo(INetCfgComponentBindings* bindings, INetCfgComponent* adapter, const char16_t* componentId,
                   MultiStringView excludedMacs) {
  if (bindings->IsBoundTo(adapter) != S_OK) return;
  TaskText devNodeId;
  if (Failed(adapter->GetPnpDevNodeId(devNodeId.Receive())) || devNodeId.Get() == nullptr) return;
  if (!IsExcluded(excludedMacs, devNodeId.Get())) return;
  LogMessage(g_ModuleLog, SEV_INFO, "%S in ExcludedMacs", devNodeId.Get());
  char16_t* const token = AllocateToken(componentId, devNodeId.Get());
  if (token == nullptr) return;
  LogMessage(g_ModuleLog, SEV_INFO, "disabling %S", static_cast<const char16_t*>(token));
  EnableBindingPath(componentId, token, false);
  platform::CoTaskMemFree(token);
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
