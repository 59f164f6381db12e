// CSampleFilter, the notify object of the filter component: created by the network configuration engine for one
// configuration transaction, called at each step of it, and released at its end.
//
// It does little work itself; it decides when the passes over the machine's configuration run.
#pragma once

#include <cstdint>

#include "module/notify/com_object.h"
#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"
#include "platform/registry_key.h"
#include "platform/types.h"

namespace ztl {

// What the object will have to do. Each recording overwrites the one before; nothing goes back to eActNone.
enum ApplyAction : std::uint32_t {
  eActNone = 0,
  eActInstall = 1,
  eActRemove = 2,
  eActPropertyUI = 3,
  eActUpgrade = 4,
};

inline constexpr std::size_t kParameterCapacity = 260;  // characters, with the terminator

// Called by the engine on one thread; no method takes a lock. The methods return S_OK unless said otherwise.
class CSampleFilter : public ComObjectRoot,
                      public platform::INetCfgComponentControl,
                      public platform::INetCfgComponentSetup,
                      public platform::INetCfgComponentPropertyUi,
                      public platform::INetCfgComponentNotifyBinding,
                      public platform::INetCfgComponentNotifyGlobal {
 public:
  using UnknownView = platform::INetCfgComponentControl;  // what a request for IUnknown gets

  CSampleFilter();
  CSampleFilter(const CSampleFilter&) = delete;
  CSampleFilter& operator=(const CSampleFilter&) = delete;

  platform::HRESULT InternalQueryInterface(platform::REFIID riid, void** object);

  // IUnknown, of all interfaces
  platform::HRESULT QueryInterface(platform::REFIID riid, void** object) override {
    return InternalQueryInterface(riid, object);
  }
  platform::ULONG AddRef() override { return ++m_references; }
  platform::ULONG Release() override { return --m_references; }

  // INetCfgComponentControl
  // Keeps references to both, which may be null, until the release.
  platform::HRESULT Initialize(platform::INetCfgComponent* pIComp, platform::INetCfg* pINetCfg,
                               platform::BOOL fInstalling) override;
  // For eActPropertyUI: the failure of HrOpenAdapterParamsKey, with "Param1" already written.
  platform::HRESULT ApplyRegistryChanges() override;
  // NETCFG_S_REBOOT when a stack changed or, for a removal, when the network bridge is installed.
  platform::HRESULT ApplyPnpChanges(platform::INetCfgPnpReconfigCallback* pICallback) override;
  platform::HRESULT CancelChanges() override;

  // INetCfgComponentSetup
  platform::HRESULT Install(platform::DWORD dwSetupFlags) override;
  platform::HRESULT Upgrade(platform::DWORD dwSetupFlags, platform::DWORD dwUpgradeFomBuildNo) override;
  platform::HRESULT ReadAnswerFile(const char16_t* pszwAnswerFile, const char16_t* pszwAnswerSections) override;
  platform::HRESULT Removing() override;

  // INetCfgComponentPropertyUi
  platform::HRESULT QueryPropertyUi(platform::IUnknown* pUnkReserved) override;
  // Keeps a reference to the connection whose properties are opened. Null resets it, and leaves the adapter as it was.
  // Returns the failure to ask the connection for its adapter; it is kept all the same.
  platform::HRESULT SetContext(platform::IUnknown* pUnkReserved) override;
  // `*pahpspPrivate` becomes an array of `*pcPages` page handles in task memory, which the engine frees with
  // CoTaskMemFree; null, with no page, when there is no memory. E_POINTER when one of the three pointers is null.
  platform::HRESULT MergePropPages(platform::DWORD* pdwDefPages, platform::BYTE** pahpspPrivate,
                                   platform::UINT* pcPages, platform::HWND hwndParent,
                                   const char16_t** pszStartPage) override;
  platform::HRESULT ValidateProperties(platform::HWND hwndSheet) override;
  platform::HRESULT ApplyProperties() override;
  platform::HRESULT CancelProperties() override;

  // INetCfgComponentNotifyBinding
  platform::HRESULT QueryBindingPath(platform::DWORD dwChangeFlag, platform::INetCfgBindingPath* pIPath) override;
  platform::HRESULT NotifyBindingPath(platform::DWORD dwChangeFlag, platform::INetCfgBindingPath* pIPath) override;

  // INetCfgComponentNotifyGlobal
  // E_POINTER for null.
  platform::HRESULT GetSupportedNotifications(platform::DWORD* dwNotifications) override;
  platform::HRESULT SysQueryBindingPath(platform::DWORD dwChangeFlag, platform::INetCfgBindingPath* pIPath) override;
  platform::HRESULT SysNotifyBindingPath(platform::DWORD dwChangeFlag, platform::INetCfgBindingPath* pIPath) override;
  platform::HRESULT SysNotifyComponent(platform::DWORD dwChangeFlag, platform::INetCfgComponent* pIComp) override;

 protected:
  ~CSampleFilter();  // the release sequence

 private:
  platform::HRESULT ApplyPropertyChanges();
  void LoadPropertyValues();
  // Opens the adapter's key. S_FALSE when the service's Parameters key does not open, or the failure of
  // HrOpenAdapterParamsKey; both are logged.
  platform::HRESULT OpenAdapterKey(platform::UniqueKey& key);
  friend std::intptr_t OnInitDialog(CSampleFilter* object, platform::HWND hDlg);
  friend std::intptr_t OnOk(CSampleFilter* object, platform::HWND hDlg);

  platform::ComPtr<platform::INetCfgComponent> m_pComponent;  // the filter's own component
  platform::ComPtr<platform::INetCfg> m_pNetCfg;              // the engine object of the transaction
  std::uint32_t m_ApplyAction = eActNone;
  char16_t m_szParam1[kParameterCapacity] = {};
  char16_t m_szBundleId[kParameterCapacity] = {};
  platform::ComPtr<platform::IUnknown> m_pContext;  // of the property page
  platform::GUID m_AdapterGuid = {};                // the adapter whose page is shown
  std::uint32_t m_fValuesLoaded = 0;                // a page has read its values
  std::uint32_t m_fOrderIMDone = 0;                 // OrderIM has run in this object
};

// Opens the adapter's key below the open Parameters key of the filter's service with all access, and closes
// `*parametersKey` in any case. Returns 0 or a COM failure code; the caller closes `*adapterKey`.
platform::HRESULT HrOpenAdapterParamsKey(const platform::GUID* adapterGuid, platform::HKEY* adapterKey,
                                         platform::HKEY* parametersKey);

// Makes a CSampleFilter, aggregated when `pUnkOuter` is not null, and queries it for `riid`. E_POINTER,
// CLASS_E_NOAGGREGATION, E_OUTOFMEMORY or E_NOINTERFACE on failure.
platform::HRESULT HrCreateSampleFilter(platform::IUnknown* pUnkOuter, platform::REFIID riid, void** ppvObject);

}  // namespace ztl
