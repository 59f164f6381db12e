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

#define EXPECT_SLOT(interface_, method) \
  EXPECT_EQ(Slot(&platform::interface_::method), Slot(&::interface_::method)) << #interface_ "::" #method

TEST(ComLayout, TheEnginesInterfaces) {
  ExpectIid<::INetCfg>(platform::IID_INetCfg);
  EXPECT_SLOT(INetCfg, Initialize);
  EXPECT_SLOT(INetCfg, Uninitialize);
  EXPECT_SLOT(INetCfg, Apply);
  EXPECT_SLOT(INetCfg, Cancel);
  EXPECT_SLOT(INetCfg, EnumComponents);
  EXPECT_SLOT(INetCfg, FindComponent);
  EXPECT_SLOT(INetCfg, QueryNetCfgClass);
  ExpectIid<::INetCfgLock>(platform::IID_INetCfgLock);
  EXPECT_SLOT(INetCfgLock, AcquireWriteLock);
  EXPECT_SLOT(INetCfgLock, ReleaseWriteLock);
  EXPECT_SLOT(INetCfgLock, IsWriteLocked);
  ExpectIid<::INetCfgClass>(platform::IID_INetCfgClass);
  EXPECT_SLOT(INetCfgClass, FindComponent);
  EXPECT_SLOT(INetCfgClass, EnumComponents);
  ExpectIid<::INetCfgClassSetup>(platform::IID_INetCfgClassSetup);
  EXPECT_SLOT(INetCfgClassSetup, SelectAndInstall);
  EXPECT_SLOT(INetCfgClassSetup, Install);
  EXPECT_SLOT(INetCfgClassSetup, DeInstall);
  ExpectIid<::INetCfgComponent>(platform::IID_INetCfgComponent);
  EXPECT_SLOT(INetCfgComponent, GetDisplayName);
  EXPECT_SLOT(INetCfgComponent, SetDisplayName);
  EXPECT_SLOT(INetCfgComponent, GetHelpText);
  EXPECT_SLOT(INetCfgComponent, GetId);
  EXPECT_SLOT(INetCfgComponent, GetCharacteristics);
  EXPECT_SLOT(INetCfgComponent, GetInstanceGuid);
  EXPECT_SLOT(INetCfgComponent, GetPnpDevNodeId);
  EXPECT_SLOT(INetCfgComponent, GetClassGuid);
  EXPECT_SLOT(INetCfgComponent, GetBindName);
  EXPECT_SLOT(INetCfgComponent, GetDeviceStatus);
  EXPECT_SLOT(INetCfgComponent, OpenParamKey);
  EXPECT_SLOT(INetCfgComponent, RaisePropertyUi);
  ExpectIid<::INetCfgComponentBindings>(platform::IID_INetCfgComponentBindings);
  EXPECT_SLOT(INetCfgComponentBindings, BindTo);
  EXPECT_SLOT(INetCfgComponentBindings, UnbindFrom);
  EXPECT_SLOT(INetCfgComponentBindings, SupportsBindingInterface);
  EXPECT_SLOT(INetCfgComponentBindings, IsBoundTo);
  EXPECT_SLOT(INetCfgComponentBindings, IsBindableTo);
  EXPECT_SLOT(INetCfgComponentBindings, EnumBindingPaths);
  EXPECT_SLOT(INetCfgComponentBindings, MoveBefore);
  EXPECT_SLOT(INetCfgComponentBindings, MoveAfter);
  ExpectIid<::INetCfgBindingPath>(platform::IID_INetCfgBindingPath);
  EXPECT_SLOT(INetCfgBindingPath, IsSamePathAs);
  EXPECT_SLOT(INetCfgBindingPath, IsSubPathOf);
  EXPECT_SLOT(INetCfgBindingPath, IsEnabled);
  EXPECT_SLOT(INetCfgBindingPath, Enable);
  EXPECT_SLOT(INetCfgBindingPath, GetPathToken);
  EXPECT_SLOT(INetCfgBindingPath, GetOwner);
  EXPECT_SLOT(INetCfgBindingPath, GetDepth);
  EXPECT_SLOT(INetCfgBindingPath, EnumBindingInterfaces);
  ExpectIid<::IEnumNetCfgComponent>(platform::IID_IEnumNetCfgComponent);
  ExpectIid<::IEnumNetCfgBindingPath>(platform::IID_IEnumNetCfgBindingPath);
  EXPECT_SLOT(IEnumNetCfgComponent, Next);
  EXPECT_SLOT(IEnumNetCfgComponent, Skip);
  EXPECT_SLOT(IEnumNetCfgComponent, Reset);
  EXPECT_SLOT(IEnumNetCfgBindingPath, Clone);
  ExpectIid<::INetCfgPnpReconfigCallback>(platform::IID_INetCfgPnpReconfigCallback);
  EXPECT_SLOT(INetCfgPnpReconfigCallback, SendPnpReconfig);
  ExpectIid<::INetLanConnectionUiInfo>(platform::IID_INetLanConnectionUiInfo);
  EXPECT_SLOT(INetLanConnectionUiInfo, GetDeviceGuid);
  EXPECT_EQ(std::memcmp(&platform::CLSID_CNetCfg, &CLSID_CNetCfg, sizeof(GUID)), 0);
}

TEST(ComLayout, TheNotifyObjectsInterfaces) {
  ExpectIid<::IUnknown>(platform::IID_IUnknown);
  EXPECT_SLOT(IUnknown, AddRef);
  EXPECT_SLOT(IUnknown, Release);
  ExpectIid<::INetCfgComponentControl>(platform::IID_INetCfgComponentControl);
  EXPECT_SLOT(INetCfgComponentControl, Initialize);
  EXPECT_SLOT(INetCfgComponentControl, ApplyRegistryChanges);
  EXPECT_SLOT(INetCfgComponentControl, ApplyPnpChanges);
  EXPECT_SLOT(INetCfgComponentControl, CancelChanges);
  ExpectIid<::INetCfgComponentSetup>(platform::IID_INetCfgComponentSetup);
  EXPECT_SLOT(INetCfgComponentSetup, Install);
  EXPECT_SLOT(INetCfgComponentSetup, Upgrade);
  EXPECT_SLOT(INetCfgComponentSetup, ReadAnswerFile);
  EXPECT_SLOT(INetCfgComponentSetup, Removing);
  ExpectIid<::INetCfgComponentPropertyUi>(platform::IID_INetCfgComponentPropertyUi);
  EXPECT_SLOT(INetCfgComponentPropertyUi, QueryPropertyUi);
  EXPECT_SLOT(INetCfgComponentPropertyUi, SetContext);
  EXPECT_SLOT(INetCfgComponentPropertyUi, MergePropPages);
  EXPECT_SLOT(INetCfgComponentPropertyUi, ValidateProperties);
  EXPECT_SLOT(INetCfgComponentPropertyUi, ApplyProperties);
  EXPECT_SLOT(INetCfgComponentPropertyUi, CancelProperties);
  ExpectIid<::INetCfgComponentNotifyBinding>(platform::IID_INetCfgComponentNotifyBinding);
  EXPECT_SLOT(INetCfgComponentNotifyBinding, QueryBindingPath);
  EXPECT_SLOT(INetCfgComponentNotifyBinding, NotifyBindingPath);
  ExpectIid<::INetCfgComponentNotifyGlobal>(platform::IID_INetCfgComponentNotifyGlobal);
  EXPECT_SLOT(INetCfgComponentNotifyGlobal, GetSupportedNotifications);
  EXPECT_SLOT(INetCfgComponentNotifyGlobal, SysQueryBindingPath);
  EXPECT_SLOT(INetCfgComponentNotifyGlobal, SysNotifyBindingPath);
  EXPECT_SLOT(INetCfgComponentNotifyGlobal, SysNotifyComponent);
}

}  // namespace
