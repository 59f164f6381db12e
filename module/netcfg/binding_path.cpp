#include "module/netcfg/binding_path.h"

#include "module/log/log_facility.h"
#include "module/netcfg/configuration_session.h"
#include "platform/com.h"
#include "platform/text.h"

namespace ztl {

using namespace platform;

namespace {

bool HasToken(INetCfgBindingPath* path, const char16_t* wanted) {
  char16_t* token = nullptr;
  if (Failed(path->GetPathToken(&token)) || token == nullptr) return false;
  const bool equal = EqualNoCase(token, wanted);
  platform::CoTaskMemFree(token);
  return equal;
}

HRESULT ChangeBindingPath(const char16_t* componentId, const char16_t* pathToken, bool enable) {
  UniqueSession session;
  HRESULT hr = HrOpenSession(session);
  if (hr != S_OK) return hr;
  const ComPtr<INetCfgBindingPath> path = FindBindingPath(session.get(), componentId, pathToken);
  if (!path) {
    LogMessage(g_ModuleLog, SEV_ERROR, "FindBindingPath return NULL");
    return hr;
  }
  hr = path->Enable(enable ? 1 : 0);
  if (hr != S_OK) {
    LogMessage(g_ModuleLog, SEV_ERROR, "Enable failed");
    return hr;
  }
  hr = session->Apply();
  if (hr != S_OK) LogMessage(g_ModuleLog, SEV_ERROR, "Apply failed");
  return hr;
}

}  // namespace

ComPtr<INetCfgBindingPath> FindBindingPath(INetCfg* session, const char16_t* componentId, const char16_t* pathToken) {
  ComPtr<INetCfgComponent> component;
  if (session->FindComponent(componentId, component.Receive()) != S_OK) {
    LogMessage(g_ModuleLog, SEV_ERROR, "Couldn't get an interface pointer to %S.", componentId);
    return {};
  }
  ComPtr<INetCfgComponentBindings> bindings;
  ComPtr<IEnumNetCfgBindingPath> paths;
  HRESULT hr = component->QueryInterface(IID_INetCfgComponentBindings, reinterpret_cast<void**>(bindings.Receive()));
  if (!Failed(hr)) hr = bindings->EnumBindingPaths(EBP_BELOW, paths.Receive());
  bindings.Reset();
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "Couldn't get the binding path enumerator interface.");
    return {};
  }
  paths->Reset();
  ComPtr<INetCfgBindingPath> path;
  while (paths->Next(1, path.Receive(), nullptr) == S_OK)
    if (HasToken(path.Get(), pathToken)) return path;
  return {};
}

HRESULT EnableBindingPath(const char16_t* componentId, const char16_t* pathToken, bool enable) {
  const HRESULT hr = ChangeBindingPath(componentId, pathToken, enable);
  if (enable)
    LogMessage(g_ModuleLog, SEV_INFO, "Enable Binding Path rc=%d", hr);
  else
    LogMessage(g_ModuleLog, SEV_INFO, "Disable Binding Path rc=%d", hr);
  return hr;
}

}  // namespace ztl
