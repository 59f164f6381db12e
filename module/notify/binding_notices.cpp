// CSampleFilter's answers to binding notifications: every query and notice is recorded in the trace and none is
// objected to.
#include "module/log/log_facility.h"
#include "module/notify/notify_object.h"
#include "platform/com.h"

namespace ztl {

using namespace platform;

namespace {

// `name` is the method's, `comma` what follows it in its first line.
HRESULT TraceBindingPath(const char16_t* name, const char16_t* comma, DWORD changeFlag, INetCfgBindingPath* path) {
  TraceLine(u"--> ::%s%s dwChangeFlag 0x%08x\n", name, comma, changeFlag);
  const HRESULT enabled = path != nullptr ? path->IsEnabled() : E_POINTER;
  TraceLine(u"--> ::%s path %s\n", name, enabled == S_OK ? u"enable" : enabled == S_FALSE ? u"disable" : u"error");
  char16_t* token = nullptr;
  const HRESULT hr = path != nullptr ? path->GetPathToken(&token) : E_POINTER;
  if (hr == S_OK) {
    TraceLine(u"PathToken <%s>\n", static_cast<const char16_t*>(token));
    platform::CoTaskMemFree(token);
  } else {
    TraceLine(u"GetPathToken hr=%x\n", hr);  // there is no token, whatever the pointer is
  }
  return S_OK;
}

}  // namespace

HRESULT CSampleFilter::GetSupportedNotifications(DWORD* dwNotifications) {
  TraceLine(u"--> ::GetSupportedNotifications\n");
  if (dwNotifications == nullptr) return E_POINTER;
  *dwNotifications = NCN_ADD | NCN_REMOVE | NCN_UPDATE | NCN_ENABLE | NCN_DISABLE | NCN_BINDING_PATH | NCN_NET |
                     NCN_NETTRANS | NCN_NETSERVICE;
  return S_OK;
}

HRESULT CSampleFilter::SysQueryBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) {
  return TraceBindingPath(u"SysQueryBindingPath", u"", dwChangeFlag, pIPath);
}

HRESULT CSampleFilter::SysNotifyBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) {
  return TraceBindingPath(u"SysNotifyBindingPath", u",", dwChangeFlag, pIPath);
}

HRESULT CSampleFilter::QueryBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) {
  return TraceBindingPath(u"QueryBindingPath", u"", dwChangeFlag, pIPath);
}

HRESULT CSampleFilter::NotifyBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) {
  return TraceBindingPath(u"NotifyBindingPath", u"", dwChangeFlag, pIPath);
}

}  // namespace ztl
