// The notify-object interfaces that the network configuration engine calls (netcfgn.h), in slot order, with the
// platform's identifiers.
#pragma once

#include "platform/netcfg.h"

namespace platform {

constexpr IID NotifyIid(std::uint32_t first) {
  return IID{first, 0xBEA1, 0x11D0, {0x92, 0x98, 0x00, 0xC0, 0x4F, 0xC9, 0x9D, 0xCF}};
}
inline constexpr IID IID_INetCfgComponentControl = NotifyIid(0x932238DF);
inline constexpr IID IID_INetCfgComponentPropertyUi = NotifyIid(0x932238E0);
inline constexpr IID IID_INetCfgComponentNotifyBinding = NotifyIid(0x932238E1);
inline constexpr IID IID_INetCfgComponentNotifyGlobal = NotifyIid(0x932238E2);
inline constexpr IID IID_INetCfgComponentSetup = NotifyIid(0x932238E3);

class INetCfgComponentControl : public IUnknown {
 public:
  virtual HRESULT Initialize(INetCfgComponent* pIComp, INetCfg* pINetCfg, BOOL fInstalling) = 0;
  virtual HRESULT ApplyRegistryChanges() = 0;
  virtual HRESULT ApplyPnpChanges(INetCfgPnpReconfigCallback* pICallback) = 0;
  virtual HRESULT CancelChanges() = 0;
};

class INetCfgComponentSetup : public IUnknown {
 public:
  virtual HRESULT Install(DWORD dwSetupFlags) = 0;
  virtual HRESULT Upgrade(DWORD dwSetupFlags, DWORD dwUpgradeFomBuildNo) = 0;
  virtual HRESULT ReadAnswerFile(const char16_t* pszwAnswerFile, const char16_t* pszwAnswerSections) = 0;
  virtual HRESULT Removing() = 0;
};

class INetCfgComponentPropertyUi : public IUnknown {
 public:
  virtual HRESULT QueryPropertyUi(IUnknown* pUnkReserved) = 0;
  virtual HRESULT SetContext(IUnknown* pUnkReserved) = 0;
  virtual HRESULT MergePropPages(DWORD* pdwDefPages, BYTE** pahpspPrivate, UINT* pcPages, HWND hwndParent,
                                 const char16_t** pszStartPage) = 0;
  virtual HRESULT ValidateProperties(HWND hwndSheet) = 0;
  virtual HRESULT ApplyProperties() = 0;
  virtual HRESULT CancelProperties() = 0;
};

class INetCfgComponentNotifyBinding : public IUnknown {
 public:
  virtual HRESULT QueryBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) = 0;
  virtual HRESULT NotifyBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) = 0;
};

class INetCfgComponentNotifyGlobal : public IUnknown {
 public:
  virtual HRESULT GetSupportedNotifications(DWORD* dwNotifications) = 0;
  virtual HRESULT SysQueryBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) = 0;
  virtual HRESULT SysNotifyBindingPath(DWORD dwChangeFlag, INetCfgBindingPath* pIPath) = 0;
  virtual HRESULT SysNotifyComponent(DWORD dwChangeFlag, INetCfgComponent* pIComp) = 0;
};

}  // namespace platform
