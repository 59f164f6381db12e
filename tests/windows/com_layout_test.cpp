// Holds the interfaces of the boundary against the public headers: the same identifiers, the same slots.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/netcfg.h"
#include "platform/netcfg_notify.h"
#include "platform/system_info.h"
// The public headers come last: they define some of the boundary's names as macros.
#include <netcfgn.h>
#include <netcfgx.h>
#include <netcon.h>
#include <windows.h>

namespace {

// A pointer to a virtual method holds its offset in the table, plus one.
template <class Method>
std::size_t Slot(Method method) {
  union {
    Method pointer;
    std::ptrdiff_t words[2];
  } bits = {method};
  return static_cast<std::size_t>(bits.words[0] - 1) / sizeof(void*);
}

template <class Public>
void ExpectIid(const platform::GUID& ours) {
  const GUID theirs = __uuidof(Public);
  EXPECT_EQ(std::memcmp(&ours, &theirs, sizeof ours), 0);
}

// EXPECT_SLOTS(Interface, Method…): each method stands in the same slot in both declarations.
#define PARENTHESES ()
#define EXPAND(...) EXPAND3(EXPAND3(EXPAND3(__VA_ARGS__)))
#define EXPAND3(...) EXPAND2(EXPAND2(EXPAND2(__VA_ARGS__)))
#define EXPAND2(...) __VA_ARGS__
#define EXPECT_SLOT(interface_, method, ...)                                              \
  EXPECT_EQ(Slot(&platform::interface_::method), Slot(&::interface_::method)) << #method; \
  __VA_OPT__(EXPECT_SLOT_AGAIN PARENTHESES(interface_, __VA_ARGS__))
#define EXPECT_SLOT_AGAIN() EXPECT_SLOT
#define EXPECT_SLOTS(interface_, ...) EXPAND(EXPECT_SLOT(interface_, __VA_ARGS__))

TEST(ComLayout, TheEnginesInterfaces) {
  ExpectIid<::INetCfg>(platform::IID_INetCfg);
  EXPECT_SLOTS(INetCfg, Initialize, Uninitialize, Apply, Cancel, EnumComponents, FindComponent, QueryNetCfgClass);
  ExpectIid<::INetCfgLock>(platform::IID_INetCfgLock);
  EXPECT_SLOTS(INetCfgLock, AcquireWriteLock, ReleaseWriteLock, IsWriteLocked);
  ExpectIid<::INetCfgClass>(platform::IID_INetCfgClass);
  EXPECT_SLOTS(INetCfgClass, FindComponent, EnumComponents);
  ExpectIid<::INetCfgClassSetup>(platform::IID_INetCfgClassSetup);
  EXPECT_SLOTS(INetCfgClassSetup, SelectAndInstall, Install, DeInstall);
  ExpectIid<::INetCfgComponent>(platform::IID_INetCfgComponent);
  EXPECT_SLOTS(INetCfgComponent, GetDisplayName, SetDisplayName, GetHelpText, GetId, GetCharacteristics,
               GetInstanceGuid, GetPnpDevNodeId, GetClassGuid, GetBindName, GetDeviceStatus, OpenParamKey,
               RaisePropertyUi);
  ExpectIid<::INetCfgComponentBindings>(platform::IID_INetCfgComponentBindings);
  EXPECT_SLOTS(INetCfgComponentBindings, BindTo, UnbindFrom, SupportsBindingInterface, IsBoundTo, IsBindableTo,
               EnumBindingPaths, MoveBefore, MoveAfter);
  ExpectIid<::INetCfgBindingPath>(platform::IID_INetCfgBindingPath);
  EXPECT_SLOTS(INetCfgBindingPath, IsSamePathAs, IsSubPathOf, IsEnabled, Enable, GetPathToken, GetOwner, GetDepth,
               EnumBindingInterfaces);
  ExpectIid<::IEnumNetCfgComponent>(platform::IID_IEnumNetCfgComponent);
  ExpectIid<::IEnumNetCfgBindingPath>(platform::IID_IEnumNetCfgBindingPath);
  EXPECT_SLOTS(IEnumNetCfgComponent, Next, Skip, Reset);
  EXPECT_SLOTS(IEnumNetCfgBindingPath, Clone);
  ExpectIid<::INetCfgPnpReconfigCallback>(platform::IID_INetCfgPnpReconfigCallback);
  EXPECT_SLOTS(INetCfgPnpReconfigCallback, SendPnpReconfig);
  ExpectIid<::INetLanConnectionUiInfo>(platform::IID_INetLanConnectionUiInfo);
  EXPECT_SLOTS(INetLanConnectionUiInfo, GetDeviceGuid);
  EXPECT_EQ(std::memcmp(&platform::CLSID_CNetCfg, &CLSID_CNetCfg, sizeof(GUID)), 0);
}

TEST(ComLayout, TheNotifyObjectsInterfaces) {
  ExpectIid<::IUnknown>(platform::IID_IUnknown);
  EXPECT_SLOTS(IUnknown, AddRef, Release);
  ExpectIid<::INetCfgComponentControl>(platform::IID_INetCfgComponentControl);
  EXPECT_SLOTS(INetCfgComponentControl, Initialize, ApplyRegistryChanges, ApplyPnpChanges, CancelChanges);
  ExpectIid<::INetCfgComponentSetup>(platform::IID_INetCfgComponentSetup);
  EXPECT_SLOTS(INetCfgComponentSetup, Install, Upgrade, ReadAnswerFile, Removing);
  ExpectIid<::INetCfgComponentPropertyUi>(platform::IID_INetCfgComponentPropertyUi);
  EXPECT_SLOTS(INetCfgComponentPropertyUi, QueryPropertyUi, SetContext, MergePropPages, ValidateProperties,
               ApplyProperties, CancelProperties);
  ExpectIid<::INetCfgComponentNotifyBinding>(platform::IID_INetCfgComponentNotifyBinding);
  EXPECT_SLOTS(INetCfgComponentNotifyBinding, QueryBindingPath, NotifyBindingPath);
  ExpectIid<::INetCfgComponentNotifyGlobal>(platform::IID_INetCfgComponentNotifyGlobal);
  EXPECT_SLOTS(INetCfgComponentNotifyGlobal, GetSupportedNotifications, SysQueryBindingPath, SysNotifyBindingPath,
               SysNotifyComponent);
}

}  // namespace
