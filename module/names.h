// The names that the product shares with its INF files, its driver and the system: registry keys and values,
// components and classes, files.
//
// Keys are paths below HKEY_LOCAL_MACHINE. Letter case never matters to the registry, but it shows in the log and in
// the calls of the boundary, so a name that is used in several cases has a constant for each.
#pragma once

#include <string_view>

#include "platform/types.h"

namespace ztl {

// The filter.
inline constexpr char16_t kFilterComponent[] = u"qro_ztl";
inline constexpr char16_t kFilterService[] = u"ZTL";
inline constexpr char16_t kReconfigName[] = u"ztl2000";             // the upper layer of a PnP reconfiguration
inline constexpr char16_t kDriverFile[] = u"drivers\\ztl2000.sys";  // below the system directory
inline constexpr char16_t kMiniportInf[] = u"ztl2000m.inf";
inline constexpr char16_t kControlDevice[] = u"\\\\.\\ZTL";
inline constexpr char16_t kClientDescription[] = u"ZTL Installation Notify Object";  // the write lock's holder
inline constexpr platform::CLSID CLSID_CSampleFilter{
    0x5B1E7C42, 0x93D0, 0x4F6A, {0x8E, 0x25, 0xC0, 0x7A, 0x1D, 0x39, 0xB4, 0xE8}};

// The module log.
inline constexpr char kLogFile[] = "ztlinst.log";
inline constexpr char kLogFolder[] = "temp";  // in the Windows directory
inline constexpr char kLogTag[] = "ztli64x";

// Other components.
inline constexpr char16_t kBridgeComponent[] = u"ms_bridge";
inline constexpr char16_t kTcpipService[] = u"Tcpip";

// The keys of the filter's service: of the passes and the property page, ...
inline constexpr char16_t kParametersKey[] = u"SYSTEM\\CurrentControlSet\\Services\\ZTL\\Parameters";
inline constexpr char16_t kAdaptersKey[] = u"SYSTEM\\CurrentControlSet\\Services\\ZTL\\Parameters\\Adapters";
inline constexpr char16_t kMarkerKey[] = u"SYSTEM\\CurrentControlSet\\Services\\ZTL\\CheckBindLoop";
// ... and of the installation, whose trace shows them in this letter case.
inline constexpr char16_t kServiceKey[] = u"System\\CurrentControlSet\\Services\\ZTL";
inline constexpr char16_t kLiveParametersKey[] = u"System\\CurrentControlSet\\Services\\ZTL\\Parameters";
inline constexpr char16_t kServiceEnumKey[] = u"System\\CurrentControlSet\\Services\\ZTL\\Enum";

inline constexpr char16_t kAdapters[] = u"Adapters";     // the subkey of the Parameters key with a key for each adapter
inline constexpr char16_t kImOrderValue[] = u"IMOrder";  // of the Parameters key
inline constexpr char16_t kOthers[] = u"Others";         // the entry for the drivers that no other one names
inline constexpr char16_t kRecordValue[] = u"IMOrder";   // of an adapter's key
inline constexpr char16_t kExcludedMacsValue[] = u"ExcludedMacs";
inline constexpr char16_t kBundleIdValue[] = u"BundleId";  // of an adapter's key
inline constexpr char16_t kParam1Value[] = u"Param1";      // of the component's parameters
inline constexpr char16_t kStartValue[] = u"Start";
inline constexpr char16_t kDeleteFlagValue[] = u"DeleteFlag";
inline constexpr char16_t kCountValue[] = u"Count";  // of the Enum key

// The parameters that survive a removal of the component.
inline constexpr char16_t kProductKey[] = u"Software\\Quillmark\\ZTL";
inline constexpr char16_t kSavedParameters[] = u"Parameters";
inline constexpr char16_t kSavedParametersKey[] = u"Software\\Quillmark\\ZTL\\Parameters";
inline constexpr char16_t kOrderLink[] = u"Order";

inline constexpr char16_t kRunOnceKey[] = u"Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
inline constexpr char16_t kRunOnceValue[] = u"InstallZtl";

// The system's network classes.
inline constexpr char16_t kControlNetworkKey[] = u"SYSTEM\\CurrentControlSet\\Control\\Network";
inline constexpr char16_t kNetServiceClassKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E974-E325-11CE-BFC1-08002BE10318}";
inline constexpr char16_t kNetTransClassKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E975-E325-11CE-BFC1-08002BE10318}";
inline constexpr char16_t kNetAdapterClassKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}";
inline constexpr char16_t kLanInterfacesKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{AD498944-762F-11D0-8DCB-00C04FC3358C}";

// Subkeys of components and instances, as suffixes of their keys: as the order pass spells them, and as the
// binding-loop pass does.
inline constexpr std::u16string_view kNdiSuffix = u"\\NDI";
inline constexpr std::u16string_view kLinkageSuffix = u"\\LINKAGE";
inline constexpr char16_t kComponentNdi[] = u"\\Ndi";
inline constexpr char16_t kInstanceLinkage[] = u"\\Linkage";

inline constexpr char16_t kFilterClassesValue[] = u"FilterClasses";
inline constexpr char16_t kFilterClassValue[] = u"FilterClass";
inline constexpr char16_t kFilterDeviceInfIdValue[] = u"FilterDeviceInfId";
inline constexpr char16_t kFilterInfIdValue[] = u"FilterInfId";
inline constexpr char16_t kServiceValue[] = u"Service";
inline constexpr char16_t kComponentIdValue[] = u"ComponentId";
inline constexpr char16_t kNetCfgInstanceIdValue[] = u"NetCfgInstanceId";
inline constexpr char16_t kMatchingDeviceIdValue[] = u"MatchingDeviceId";
inline constexpr char16_t kUpperBindValue[] = u"UpperBind";
inline constexpr char16_t kRootDeviceValue[] = u"RootDevice";
inline constexpr char16_t kDeviceInstanceValue[] = u"DeviceInstance";

}  // namespace ztl
