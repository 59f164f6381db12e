// The control channel to the running filter driver, and what the module does before it is unregistered.
//
// Each operation opens the driver's control device, sends one request and closes it. Where the device cannot be opened
// the driver is taken for not running.
#pragma once

#include "platform/registry.h"
#include "platform/types.h"

namespace ztl {

constexpr platform::DWORD IOCTL_ZTL_DESTROY_SYMLINK_KEY = 0x222010;
constexpr platform::DWORD IOCTL_ZTL_UNLINK_PARAMS_SAVE = 0x222014;
constexpr platform::DWORD IOCTL_ZTL_RUNNING_VERSION = 0x222018;

struct ZTL_VERSION_REPLY {
  platform::DWORD parts[4];
};
static_assert(sizeof(ZTL_VERSION_REPLY) == 16);

// The running driver's packed version (install/versions.h). 0 when it cannot be had.
platform::DWORD ZtlRunningVersion();

// Asks the driver to destroy the registry link `linkName` below `keyPath`. 0, also when the driver is not running, or
// the system error code of the request. `root` is HKEY_LOCAL_MACHINE.
platform::DWORD DestroySymLinkKey(platform::HKEY root, const char16_t* keyPath, const char16_t* linkName);

// Has the driver's parameters saved, by the running driver, else by copying them. 0 or the system error code of the
// request.
platform::DWORD UnlinkZtlParamKeySaveZtlParams();

// Removes the pending start-up command and has the parameters saved.
void FixupRegistry();

// Disables the service's start. With a running driver of version 3.10.0 or later, runs FixupRegistry.
void PrepareZtlForUnload();

// The number of device instances that the system counts for the driver's service; 0 when it cannot be read.
platform::DWORD EnumCount();

}  // namespace ztl
