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

// EXPECT_SAME(Interface, Method…): both declarations have the same identifier, and each method in the same slot.
#define PARENTHESES ()
#define EXPAND(...) EXPAND3(EXPAND3(EXPAND3(__VA_ARGS__)))
#define EXPAND3(...) EXPAND2(EXPAND2(EXPAND2(__VA_ARGS__)))
#define EXPAND2(...) __VA_ARGS__
#define EXPECT_SLOT(interface_, method, ...)                                              \
  EXPECT_EQ(Slot(&platform::interface_::method), Slot(&::interface_::method)) << #method; \
  __VA_OPT__(EXPECT_SLOT_AGAIN PARENTHESES(interface_, __VA_ARGS__))
#define EXPECT_SLOT_AGAIN() EXPECT_SLOT
#define EXPECT_SAME(interface_, ...)                                                                            \
  EXPECT_EQ(std::memcmp(&platform::IID_##interface_, &__uuidof(::interface_), sizeof(GUID)), 0) << #interface_; \
  EXPAND(EXPECT_SLOT(interface_, __VA_ARGS__))

TEST(ComLayout, IsThatOfThePublicHeaders) {
  EXPECT_SAME(INetCfg, Initialize, Uninitialize, Apply, Cancel, EnumComponents, FindComponent, QueryNetCfgClass);
  EXPECT_SAME(INetCfgLock, AcquireWriteLock, ReleaseWriteLock, IsWriteLocked);
  EXPECT_SAME(INetCfgClass, FindComponent, EnumComponents);
  EXPECT_SAME(INetCfgClassSetup, SelectAndInstall, Install, DeInstall);
  EXPECT_SAME(INetCfgComponent, GetDisplayName, SetDisplayName, GetHelpText, GetId, GetCharacteristics, GetInstanceGuid,
              GetPnpDevNodeId, GetClassGuid, GetBindName, GetDeviceStatus, OpenParamKey, RaisePropertyUi);
  EXPECT_SAME(INetCfgComponentBindings, BindTo, UnbindFrom, SupportsBindingInterface, IsBoundTo, IsBindableTo,
              EnumBindingPaths, MoveBefore, MoveAfter);
  EXPECT_SAME(INetCfgBindingPath, IsSamePathAs, IsSubPathOf, IsEnabled, Enable, GetPathToken, GetOwner, GetDepth,
              EnumBindingInterfaces);
  EXPECT_SAME(IEnumNetCfgComponent, Next, Skip, Reset);
  EXPECT_SAME(IEnumNetCfgBindingPath, Clone);
  EXPECT_SAME(INetCfgPnpReconfigCallback, SendPnpReconfig);
  EXPECT_SAME(INetLanConnectionUiInfo, GetDeviceGuid);
  EXPECT_SAME(IUnknown, AddRef, Release);
  EXPECT_SAME(INetCfgComponentControl, Initialize, ApplyRegistryChanges, ApplyPnpChanges, CancelChanges);
  EXPECT_SAME(INetCfgComponentSetup, Install, Upgrade, ReadAnswerFile, Removing);
  EXPECT_SAME(INetCfgComponentPropertyUi, QueryPropertyUi, SetContext, MergePropPages, ValidateProperties,
              ApplyProperties, CancelProperties);
  EXPECT_SAME(INetCfgComponentNotifyBinding, QueryBindingPath, NotifyBindingPath);
  EXPECT_SAME(INetCfgComponentNotifyGlobal, GetSupportedNotifications, SysQueryBindingPath, SysNotifyBindingPath,
              SysNotifyComponent);
  EXPECT_EQ(std::memcmp(&platform::CLSID_CNetCfg, &CLSID_CNetCfg, sizeof(GUID)), 0);
}

}  // namespace
