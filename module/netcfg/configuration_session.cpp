#include "module/netcfg/configuration_session.h"

#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/com.h"
#include "platform/com_ptr.h"
#include "platform/standard_output.h"

namespace ztl {

using namespace platform;

namespace {

constexpr DWORD kLockTimeout = 15000;  // milliseconds

void ReportHolder(const char16_t* holder) {
  char16_t text[kStandardOutputCapacity];
  Format(text, u"Could not lock INetcfg, it is already locked by '%s'", holder);
  platform::WriteStandardOutput(text);
  LogMessage(g_ModuleLog, SEV_ERROR, "HrGetINetCfg: already locked by %S", holder);
}

HRESULT AcquireWriteLock(INetCfgLock* lock) {
  char16_t* holder = nullptr;
  HRESULT hr = lock->AcquireWriteLock(kLockTimeout, kClientDescription, &holder);
  if (hr == S_FALSE) {
    hr = NETCFG_E_NO_WRITE_LOCK;
    ReportHolder(holder);
  }
  if (holder != nullptr) platform::CoTaskMemFree(holder);
  return hr;
}

// Creates the engine object, locks and initializes it. What was done of that is undone after a failure, but for COM.
HRESULT CreateLockedNetCfg(ComPtr<INetCfg>& netCfg) {
  ComPtr<INetCfg> created;
  HRESULT hr = platform::CoCreateInstance(CLSID_CNetCfg, nullptr, CLSCTX_INPROC_SERVER, IID_INetCfg,
                                          reinterpret_cast<void**>(created.Receive()));
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetINetCfg: CoCreateInstance rc=%x", hr);
    return hr;
  }
  ComPtr<INetCfgLock> lock;
  hr = created->QueryInterface(IID_INetCfgLock, reinterpret_cast<void**>(lock.Receive()));
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetINetCfg: QueryInterface rc=%x", hr);
    return hr;
  }
  hr = AcquireWriteLock(lock.Get());
  if (Failed(hr)) return hr;
  hr = created->Initialize(nullptr);
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrGetINetCfg: Initialize rc=%x", hr);
    lock->ReleaseWriteLock();
    return hr;
  }
  netCfg = std::move(created);
  return hr;
}

HRESULT ReleaseWriteLock(INetCfg* session) {
  ComPtr<INetCfgLock> lock;
  HRESULT hr = session->QueryInterface(IID_INetCfgLock, reinterpret_cast<void**>(lock.Receive()));
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrReleaseINetCfg: QueryInterface rc=%x", hr);
    return hr;
  }
  hr = lock->ReleaseWriteLock();
  lock.Reset();
  if (Failed(hr)) LogMessage(g_ModuleLog, SEV_ERROR, "HrReleaseINetCfg: ReleaseWriteLock rc=%x", hr);
  return hr;
}

}  // namespace

HRESULT HrGetINetCfg(INetCfg** session) {
  ComPtr<INetCfg> netCfg;
  const HRESULT hr = CreateLockedNetCfg(netCfg);
  if (Failed(hr))
    platform::CoUninitialize();
  else
    *session = netCfg.Detach();
  return hr;
}

HRESULT HrReleaseINetCfg(bool hasWriteLock, INetCfg* session) {
  HRESULT hr = session->Uninitialize();
  if (Failed(hr))
    LogMessage(g_ModuleLog, SEV_ERROR, "HrReleaseINetCfg: Uninitialize rc=%x", hr);
  else if (hasWriteLock)
    hr = ReleaseWriteLock(session);
  session->Release();
  platform::CoUninitialize();
  return hr;
}

HRESULT HrInstallNetComponent(INetCfg* session, const char16_t* componentId, const GUID& classGuid) {
  OBO_TOKEN token{};
  token.Type = OBO_USER;
  ComPtr<INetCfgClassSetup> setup;
  HRESULT hr = session->QueryNetCfgClass(&classGuid, IID_INetCfgClassSetup, reinterpret_cast<void**>(setup.Receive()));
  if (Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrInstallNetComponent: QueryNetCfgClass rc=%x", hr);
    return hr;
  }
  ComPtr<INetCfgComponent> component;
  hr = setup->Install(componentId, &token, NSF_POSTSYSINSTALL, 0, nullptr, nullptr, component.Receive());
  component.Reset();
  if (hr != S_OK) LogMessage(g_ModuleLog, SEV_ERROR, "HrInstallNetComponent: Install rc=%x", hr);
  return hr;
}

HRESULT HrOpenSession(UniqueSession& session) {
  HRESULT hr = platform::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  if (Failed(hr)) return hr;
  INetCfg* opened = nullptr;
  hr = HrGetINetCfg(&opened);
  if (!Failed(hr)) session.reset(opened);
  return hr;
}

}  // namespace ztl
