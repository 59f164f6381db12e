// The running filter driver's control device, and what the system counts of the driver's devices.
//
// A device that cannot be opened means that the driver does not run.
#pragma once

#include "platform/device.h"
#include "platform/types.h"

namespace ztl {

// Control codes.
constexpr platform::DWORD IOCTL_ZTL_DESTROY_SYMLINK_KEY = 0x222010;
constexpr platform::DWORD IOCTL_ZTL_UNLINK_PARAMS_SAVE = 0x222014;
constexpr platform::DWORD IOCTL_ZTL_RUNNING_VERSION = 0x222018;

struct ZTL_VERSION_REPLY {
  platform::DWORD parts[4];  // the version's four parts, the first one first
};
static_assert(sizeof(ZTL_VERSION_REPLY) == 16);

// The key `name` below the key `keyPath` of HKEY_LOCAL_MACHINE, as the kernel calls it. Empty when it does not fit.
struct KernelPath {
  KernelPath(const char16_t* keyPath, const char16_t* name);

  char16_t text[260];
  platform::DWORD bytes;  // without the terminator
};

// INVALID_HANDLE_VALUE, with the thread's last error set, on failure. The caller closes the handle.
platform::HANDLE OpenControlDevice();

// Sends a request about a key. 0 or the system error code. The driver may write its answer, of at most `bytes` bytes,
// over the path.
platform::DWORD SendPath(platform::HANDLE device, platform::DWORD code, KernelPath& path);

// The running driver's packed version (install/versions.h); 0 when it does not run or does not answer.
platform::DWORD ZtlRunningVersion();

// Asks the driver to destroy the registry link `linkName` below `keyPath`. 0, also when the driver is not running, or
// the system error code of the request. The driver knows HKEY_LOCAL_MACHINE alone; `root` is not looked at.
platform::DWORD DestroySymLinkKey(platform::HKEY root, const char16_t* keyPath, const char16_t* linkName);

// The number of device instances that the system counts for the driver's service; 0 when it cannot be read.
platform::DWORD EnumCount();

}  // namespace ztl
