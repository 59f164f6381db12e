// The interfaces of the network configuration engine that the module calls (netcfgx.h, netcfgn.h, netcon.h), in slot
// order, with the platform's identifiers. Texts that the engine hands out are freed with CoTaskMemFree by the receiver;
// interface pointers that it hands out carry one reference.
#pragma once

#include "platform/com.h"
#include "platform/types.h"

namespace platform {

class IEnumNetCfgBindingInterface;
class INetCfg;
class INetCfgBindingPath;
class INetCfgComponent;

// The engine's identifiers differ in their first group only, but for the few that are written out below.
constexpr IID NetCfgIid(std::uint32_t first) {
  return IID{first, 0x306E, 0x11D1, {0xAA, 0xCF, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};
}
inline constexpr CLSID CLSID_CNetCfg{0x5B035261, 0x40F9, 0x11D1, {0xAA, 0xEC, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};
inline constexpr IID IID_IEnumNetCfgBindingPath = NetCfgIid(0xC0E8AE91);
inline constexpr IID IID_IEnumNetCfgComponent = NetCfgIid(0xC0E8AE92);
inline constexpr IID IID_INetCfg = NetCfgIid(0xC0E8AE93);
inline constexpr IID IID_INetCfgBindingPath = NetCfgIid(0xC0E8AE96);
inline constexpr IID IID_INetCfgClass = NetCfgIid(0xC0E8AE97);
inline constexpr IID IID_INetCfgComponent = NetCfgIid(0xC0E8AE99);
inline constexpr IID IID_INetCfgClassSetup = NetCfgIid(0xC0E8AE9D);
inline constexpr IID IID_INetCfgComponentBindings = NetCfgIid(0xC0E8AE9E);
inline constexpr IID IID_INetCfgLock = NetCfgIid(0xC0E8AE9F);
inline constexpr IID IID_INetCfgPnpReconfigCallback{
    0x8D84BD35, 0xE227, 0x11D2, {0xB7, 0x00, 0x00, 0xA0, 0xC9, 0x8A, 0x6A, 0x85}};
inline constexpr IID IID_INetLanConnectionUiInfo{
    0xC08956A6, 0x1CD3, 0x11D1, {0xB1, 0xC5, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};

// Device classes of network components (devguid.h).
inline constexpr GUID GUID_DEVCLASS_NET{0x4D36E972, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
inline constexpr GUID GUID_DEVCLASS_NETSERVICE{
    0x4D36E974, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
inline constexpr GUID GUID_DEVCLASS_NETTRANS{
    0x4D36E975, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

// Result codes of the engine (netcfgx.h).
constexpr HRESULT NETCFG_E_ALREADY_INITIALIZED = HresultFromBits(0x8004A020);
constexpr HRESULT NETCFG_E_NOT_INITIALIZED = HresultFromBits(0x8004A021);
constexpr HRESULT NETCFG_E_IN_USE = HresultFromBits(0x8004A022);
constexpr HRESULT NETCFG_E_NO_WRITE_LOCK = HresultFromBits(0x8004A024);
constexpr HRESULT NETCFG_S_REBOOT = 0x0004A020;  // success; a restart is needed

// Layers of a reconfiguration request (netcfgn.h).
enum NCRP_LAYER : std::int32_t { NCRL_NDIS = 1, NCRL_TDI = 2 };

// Change flags of notifications (netcfgn.h).
constexpr DWORD NCN_ADD = 0x00000001;
constexpr DWORD NCN_REMOVE = 0x00000002;
constexpr DWORD NCN_UPDATE = 0x00000004;
constexpr DWORD NCN_ENABLE = 0x00000010;
constexpr DWORD NCN_DISABLE = 0x00000020;
constexpr DWORD NCN_BINDING_PATH = 0x00000100;
constexpr DWORD NCN_NET = 0x00010000;
constexpr DWORD NCN_NETTRANS = 0x00020000;
constexpr DWORD NCN_NETSERVICE = 0x00080000;

// Installing a component (netcfgx.h).
enum OBO_TOKEN_TYPE : std::int32_t { OBO_USER = 1, OBO_COMPONENT = 2, OBO_SOFTWARE = 3 };
struct OBO_TOKEN {  // on whose behalf
  OBO_TOKEN_TYPE Type;
  INetCfgComponent* pncc;
  const char16_t* pszwManufacturer;
  const char16_t* pszwProduct;
  const char16_t* pszwDisplayName;
  BOOL fRegistered;
};
constexpr DWORD NSF_POSTSYSINSTALL = 2;

constexpr DWORD EBP_BELOW = 2;

template <class Item>
class IEnumNetCfg : public IUnknown {
 public:
  // S_OK and the items, S_FALSE at the end. `fetched` may be null when `count` is 1.
  virtual HRESULT Next(ULONG count, Item** items, ULONG* fetched) = 0;
  virtual HRESULT Skip(ULONG count) = 0;
  virtual HRESULT Reset() = 0;
  virtual HRESULT Clone(IEnumNetCfg** copy) = 0;
};
using IEnumNetCfgComponent = IEnumNetCfg<INetCfgComponent>;
using IEnumNetCfgBindingPath = IEnumNetCfg<INetCfgBindingPath>;

class INetCfg : public IUnknown {
 public:
  virtual HRESULT Initialize(void* reserved) = 0;
  virtual HRESULT Uninitialize() = 0;
  virtual HRESULT Apply() = 0;  // commits what the session changed
  virtual HRESULT Cancel() = 0;
  virtual HRESULT EnumComponents(const GUID* deviceClass, IEnumNetCfgComponent** components) = 0;
  // S_OK with the component when the INF id is installed, S_FALSE when it is not. `component` may be null.
  virtual HRESULT FindComponent(const char16_t* infId, INetCfgComponent** component) = 0;
  virtual HRESULT QueryNetCfgClass(const GUID* deviceClass, REFIID riid, void** object) = 0;
};

class INetCfgLock : public IUnknown {
 public:
  // Waits up to `timeout` milliseconds; S_FALSE when another client holds the lock, whose description `*holder` is
  // then, or null; the caller frees it with CoTaskMemFree.
  virtual HRESULT AcquireWriteLock(DWORD timeout, const char16_t* description, char16_t** holder) = 0;
  virtual HRESULT ReleaseWriteLock() = 0;
  virtual HRESULT IsWriteLocked(char16_t** holder) = 0;
};

class INetCfgClass : public IUnknown {
 public:
  virtual HRESULT FindComponent(const char16_t* infId, INetCfgComponent** component) = 0;
  virtual HRESULT EnumComponents(IEnumNetCfgComponent** components) = 0;
};

class INetCfgClassSetup : public IUnknown {
 public:
  virtual HRESULT SelectAndInstall(HWND parent, OBO_TOKEN* onBehalfOf, INetCfgComponent** component) = 0;
  virtual HRESULT Install(const char16_t* infId, OBO_TOKEN* onBehalfOf, DWORD setupFlags, DWORD upgradeFromBuild,
                          const char16_t* answerFile, const char16_t* answerSections, INetCfgComponent** component) = 0;
  virtual HRESULT DeInstall(INetCfgComponent* component, OBO_TOKEN* onBehalfOf, char16_t** references) = 0;
};

class INetCfgComponent : public IUnknown {
 public:
  virtual HRESULT GetDisplayName(char16_t** name) = 0;
  virtual HRESULT SetDisplayName(const char16_t* name) = 0;
  virtual HRESULT GetHelpText(char16_t** text) = 0;
  virtual HRESULT GetId(char16_t** id) = 0;
  virtual HRESULT GetCharacteristics(DWORD* characteristics) = 0;
  virtual HRESULT GetInstanceGuid(GUID* guid) = 0;
  virtual HRESULT GetPnpDevNodeId(char16_t** devNodeId) = 0;
  virtual HRESULT GetClassGuid(GUID* guid) = 0;
  virtual HRESULT GetBindName(char16_t** name) = 0;
  virtual HRESULT GetDeviceStatus(ULONG* status) = 0;
  virtual HRESULT OpenParamKey(HKEY* key) = 0;  // the caller closes the key
  virtual HRESULT RaisePropertyUi(HWND parent, DWORD flags, IUnknown* context) = 0;
};

class INetCfgComponentBindings : public IUnknown {
 public:
  virtual HRESULT BindTo(INetCfgComponent* lower) = 0;
  virtual HRESULT UnbindFrom(INetCfgComponent* lower) = 0;
  virtual HRESULT SupportsBindingInterface(DWORD flags, const char16_t* interfaceName) = 0;
  virtual HRESULT IsBoundTo(INetCfgComponent* lower) = 0;  // S_OK when bound, S_FALSE when not
  virtual HRESULT IsBindableTo(INetCfgComponent* lower) = 0;
  virtual HRESULT EnumBindingPaths(DWORD flags, IEnumNetCfgBindingPath** paths) = 0;
  virtual HRESULT MoveBefore(INetCfgBindingPath* source, INetCfgBindingPath* destination) = 0;
  virtual HRESULT MoveAfter(INetCfgBindingPath* source, INetCfgBindingPath* destination) = 0;
};

class INetCfgBindingPath : public IUnknown {
 public:
  virtual HRESULT IsSamePathAs(INetCfgBindingPath* path) = 0;
  virtual HRESULT IsSubPathOf(INetCfgBindingPath* path) = 0;
  virtual HRESULT IsEnabled() = 0;  // S_OK or S_FALSE
  virtual HRESULT Enable(BOOL enable) = 0;
  virtual HRESULT GetPathToken(char16_t** token) = 0;
  virtual HRESULT GetOwner(INetCfgComponent** component) = 0;
  virtual HRESULT GetDepth(ULONG* interfaces) = 0;
  virtual HRESULT EnumBindingInterfaces(IEnumNetCfgBindingInterface** interfaces) = 0;
};

class INetCfgPnpReconfigCallback : public IUnknown {
 public:
  virtual HRESULT SendPnpReconfig(NCRP_LAYER layer, const char16_t* upper, const char16_t* lower, void* data,
                                  DWORD dataBytes) = 0;
};

class INetLanConnectionUiInfo : public IUnknown {
 public:
  virtual HRESULT GetDeviceGuid(GUID* guid) = 0;
};

}  // namespace platform
