#include "module/notify/notify_object.h"

#include <string_view>

#include "module/install/control_device.h"
#include "module/install/miniport_inf.h"
#include "module/install/saved_parameters.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/order/order_im.h"
#include "module/repair/check_bind_loop.h"
#include "module/repair/excluded_macs.h"
#include "platform/com.h"
#include "platform/registry_key.h"

namespace ztl {

using namespace platform;

namespace {

// A release runs the excluded-adapter pass. One that is nested in that pass leaves the binding-loop pass out.
std::uint8_t g_fInExcludedMacsPass = 0;

constexpr std::size_t kAdapterGuidCapacity = 47;
constexpr std::size_t kLowerNameCapacity = 64;

// Stores the text without its terminator.
void SetParameter(HKEY key, const char16_t* name, const char16_t (&text)[kParameterCapacity]) {
  SetExactValue(key, name, REG_SZ, text, static_cast<DWORD>(std::u16string_view(text).size() * sizeof(char16_t)));
}

}  // namespace

HRESULT HrCreateSampleFilter(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) {
  return CreateComObject<CSampleFilter>(pUnkOuter, riid, ppvObject);
}

CSampleFilter::CSampleFilter() {
  TraceLine(u"--> ::CSampleFilter\n");
  EnumCount();  // for its trace
}

// The engine's objects are released first: the passes work on the machine with no part in the engine's transaction.
// The last two change bindings in sessions of their own, and each such session ends in the release of another instance.
CSampleFilter::~CSampleFilter() {
  TraceLine(u"--> ::~CSampleFilter ApplyAction=%u OrderIM=%u\n", m_ApplyAction, m_fOrderIMDone);
  m_pComponent.Reset();
  m_pNetCfg.Reset();
  m_pContext.Reset();
  const bool install = m_ApplyAction == eActNone || m_ApplyAction == eActInstall || m_ApplyAction == eActUpgrade;
  if (install && m_fOrderIMDone == 0) {
    std::uint8_t changed;
    OrderIM(&changed);
  }
  if (m_ApplyAction != eActRemove && g_fInExcludedMacsPass == 0) CheckBindLoop();
  if (install) {
    g_fInExcludedMacsPass = 1;
    UnBindZTLFromExcludedMacs();
    g_fInExcludedMacsPass = 0;
  }
}

HRESULT CSampleFilter::InternalQueryInterface(REFIID riid, void** object) {
  if (object == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_INetCfgComponentControl)
    *object = static_cast<INetCfgComponentControl*>(this);
  else if (riid == IID_INetCfgComponentSetup)
    *object = static_cast<INetCfgComponentSetup*>(this);
  else if (riid == IID_INetCfgComponentPropertyUi)
    *object = static_cast<INetCfgComponentPropertyUi*>(this);
  else if (riid == IID_INetCfgComponentNotifyBinding)
    *object = static_cast<INetCfgComponentNotifyBinding*>(this);
  else if (riid == IID_INetCfgComponentNotifyGlobal)
    *object = static_cast<INetCfgComponentNotifyGlobal*>(this);
  else {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  static_cast<INetCfgComponentControl*>(this)->AddRef();
  return S_OK;
}

HRESULT CSampleFilter::Initialize(INetCfgComponent* pIComp, INetCfg* pINetCfg, BOOL fInstalling) {
  TraceLine(u"--> ::Initialize\n");
  m_pComponent = ComPtr<INetCfgComponent>::Share(pIComp);
  m_pNetCfg = ComPtr<INetCfg>::Share(pINetCfg);
  if (fInstalling != 0) HrCopyMiniportInf();
  return S_OK;
}

HRESULT CSampleFilter::Install(DWORD) {
  TraceLine(u"--> ::Install eActInstall\n");
  m_ApplyAction = eActInstall;
  return S_OK;
}

HRESULT CSampleFilter::Upgrade(DWORD, DWORD) {
  TraceLine(u"--> ::Upgrade eActUpgrade\n");
  m_ApplyAction = eActUpgrade;
  return S_OK;
}

HRESULT CSampleFilter::Removing() {
  TraceLine(u"--> ::Removing eActRemove\n");
  m_ApplyAction = eActRemove;
  return S_OK;
}

// The answer file is not read; the text reaches the registry only when a property page is applied.
HRESULT CSampleFilter::ReadAnswerFile(const char16_t*, const char16_t*) {
  TraceLine(u"--> ::ReadAnswerFile\n");
  Join(m_szParam1, u"ParamFromAnswerFile");
  return S_OK;
}

HRESULT CSampleFilter::CancelChanges() {
  TraceLine(u"--> ::CancelChanges\n");
  m_szParam1[0] = u'\0';
  return S_OK;
}

HRESULT CSampleFilter::ApplyRegistryChanges() {
  TraceLine(u"--> ::ApplyRegistryChanges\n");
  HRESULT hr = S_OK;
  switch (m_ApplyAction) {
    case eActInstall:
      TraceLine(u"--> ::ApplyRegistryChanges eActInstall\n");
      RestoreZtlParams();
      break;
    case eActRemove:
      TraceLine(u"--> ::ApplyRegistryChanges eActRemove\n");
      break;
    case eActPropertyUI:
      TraceLine(u"--> ::ApplyRegistryChanges eActPropertyUI\n");
      hr = ApplyPropertyChanges();
      break;
    default:
      TraceLine(u"--> ::ApplyRegistryChanges default %d\n", m_ApplyAction);
  }
  TraceLine(u"--> ::ApplyRegistryChanges exit\n");
  return hr;
}

HRESULT CSampleFilter::ApplyPropertyChanges() {
  UniqueKey component;
  const HRESULT opened = m_pComponent ? m_pComponent->OpenParamKey(component.Receive()) : E_POINTER;
  if (Succeeded(opened))
    SetParameter(component.Get(), kParam1Value, m_szParam1);
  else
    LogMessage(g_ModuleLog, SEV_ERROR, "ApplyRegistryChange OpenParamKey rc=%x", opened);
  component.Close();

  UniqueKey adapter;
  const HRESULT hr = OpenAdapterKey(adapter);
  if (hr == S_OK) SetParameter(adapter.Get(), kBundleIdValue, m_szBundleId);
  return Failed(hr) ? hr : S_OK;
}

HRESULT CSampleFilter::OpenAdapterKey(UniqueKey& key) {
  HKEY parameters = nullptr;
  if (const LSTATUS rc = platform::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kParametersKey, 0, KEY_ALL_ACCESS, &parameters);
      rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "HrOpenAdapterParamsKey RegOpenKeyEx rc=%x", rc);
    return S_FALSE;
  }
  return HrOpenAdapterParamsKey(&m_AdapterGuid, key.Receive(), &parameters);
}

HRESULT HrOpenAdapterParamsKey(const GUID* adapterGuid, HKEY* adapterKey, HKEY* parametersKey) {
  char16_t guid[kAdapterGuidCapacity] = {};
  char16_t subKey[64];
  // Without a name, the path would be that of all adapters' common key.
  const LSTATUS rc =
      platform::StringFromGUID2(*adapterGuid, guid, kAdapterGuidCapacity) == 0 || !Join(subKey, kAdapters, u"\\", guid)
          ? ERROR_INVALID_PARAMETER
          : platform::RegOpenKeyExW(*parametersKey, subKey, 0, KEY_ALL_ACCESS, adapterKey);
  const HRESULT hr = HresultFromError(rc);
  if (rc != ERROR_SUCCESS) LogMessage(g_ModuleLog, SEV_ERROR, "HrOpenAdapterParamsKey RegOpenKeyEx 2 rc=%x", hr);
  platform::RegCloseKey(*parametersKey);
  return hr;
}

HRESULT CSampleFilter::ApplyPnpChanges(INetCfgPnpReconfigCallback* pICallback) {
  TraceLine(u"--> ::ApplyPnpChanges\n");
  char16_t lower[kLowerNameCapacity] = {};
  platform::StringFromGUID2(m_AdapterGuid, lower, kLowerNameCapacity);
  std::uint8_t changed = 0;
  OrderIM(&changed);
  m_fOrderIMDone = 1;
  // The bridge holds on to the adapters' bindings, so that a removal below it is complete only after a restart.
  if (m_ApplyAction == eActRemove && changed == 0 && m_pNetCfg) {
    ComPtr<INetCfgComponent> bridge;
    if (m_pNetCfg->FindComponent(kBridgeComponent, bridge.Receive()) == S_OK) changed = 1;
  }
  if (pICallback != nullptr)
    pICallback->SendPnpReconfig(NCRL_NDIS, kReconfigName, lower, m_szBundleId,
                                static_cast<DWORD>((std::u16string_view(m_szBundleId).size() + 1) * sizeof(char16_t)));
  TraceLine(u"--> ::ApplyPnpChanges exit\n");
  return changed != 0 ? NETCFG_S_REBOOT : S_OK;
}

HRESULT CSampleFilter::SysNotifyComponent(DWORD dwChangeFlag, INetCfgComponent*) {
  TraceLine(u"--> ::SysNotifyComponent dwChangeFlag 0x%08x\n", dwChangeFlag);
  if ((dwChangeFlag & (NCN_ADD | NCN_NETTRANS)) != 0) {
    TraceLine(u"--> ::SysNotifyComponent eActUpgrade\n");
    m_ApplyAction = eActUpgrade;
  }
  return S_OK;
}

}  // namespace ztl
