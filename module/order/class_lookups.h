// Lookups over the network class keys of the registry: filter classes, intermediate drivers, transports, and the owner,
// kind and rank of an adapter instance.
//
// Every lookup reads the registry afresh and keeps nothing. Results are system error codes: 0; ERROR_NOT_FOUND
// when nothing matches; ERROR_INSUFFICIENT_BUFFER when the result does not fit; ERROR_GEN_FAILURE when the match lacks
// the wanted value; a base key's own code when that key does not open. Capacities are in characters, at least 1. Names
// are compared by the whole string, without case.
#pragma once

#include <string_view>

#include "module/log/format.h"
#include "platform/multi_string.h"
#include "platform/registry_key.h"
#include "platform/types.h"

namespace ztl {

inline constexpr std::size_t kComponentNameCapacity = 64;  // a component's subkey, with the NDI suffix
inline constexpr std::size_t kClassListCapacity = 260;
inline constexpr std::size_t kTransportListCapacity = 256;
inline constexpr std::size_t kUpperBindCapacity = 256;
inline constexpr platform::DWORD kUpperBindLimit = 508;  // bytes
inline constexpr std::size_t kRootDeviceCapacity = 512;
inline constexpr platform::DWORD kRootDeviceLimit = 1020;  // bytes

// Opens a key below HKEY_LOCAL_MACHINE. A failure is logged as `failure` at SEV_ERROR and returned.
platform::LSTATUS OpenBase(platform::UniqueKey& key, const char16_t* path, platform::DWORD access,
                           CheckedFormat<char, platform::LSTATUS> failure);

// Logs "label{entry,entry}", or the label and one line an entry when the entries and their terminators take 260
// characters or more. An empty list logs nothing. Every entry must be followed by a NUL.
void LogMultiSz(const char16_t* label, platform::MultiStringView list);

// With a service name: its filter class, as a one-entry multi-string. Without (null): the list of known filter classes,
// which ends with the value's data when that lacks its terminators. `*capacity`, in characters, becomes the number
// stored: the class and its terminator, or the list; after a failure it is as it was.
platform::LSTATUS GetFilterClass(const char16_t* serviceName, char16_t* buffer, platform::DWORD* capacity);

bool IsFilterClass(std::u16string_view name);

// The service names of a filter class's components, as a multi-string in enumeration order. After
// ERROR_INSUFFICIENT_BUFFER the buffer holds nothing of use.
platform::LSTATUS ReturnFilterClassIMs(std::u16string_view className, char16_t* buffer, platform::DWORD capacity);

// The service of the component whose "FilterDeviceInfId" is `deviceId`.
platform::LSTATUS FindSvcFromDeviceId(std::u16string_view deviceId, char16_t* buffer, platform::DWORD capacity);

// The "FilterDeviceInfId" of a service. Returns the characters stored, terminator included; 0 when there is none or it
// does not fit. When the service has a component, `serviceName` is rewritten in place with the registry's letter case.
platform::DWORD GetFilterDeviceInfId(char16_t* serviceName, char16_t* buffer, platform::DWORD capacity);

// The transports' service names. One that does not fit is left out.
platform::LSTATUS GetProto(char16_t (&list)[kTransportListCapacity]);

// Whether an adapter instance is a node: its "UpperBind" names a transport. `classKey` here and below is the open net
// adapter class key, with all access.
bool IsTopBinding(platform::HKEY classKey, const char16_t* instanceName, platform::MultiStringView transports);

// The position of an instance's device id in the DevID list, or -1.
std::int32_t ReturnOrdinal(platform::HKEY classKey, std::u16string_view instanceGuid,
                           platform::MultiStringView devIdList);

// The "Service" of an instance's own NDI key.
platform::LSTATUS FindAdapterSvcFromGuid(platform::HKEY classKey, std::u16string_view instanceGuid, char16_t* buffer,
                                         platform::DWORD capacity);

// The service that owns an instance: an intermediate driver's for its virtual adapter, else the adapter driver's own.
platform::LSTATUS FindSvcFromGuid(platform::HKEY classKey, std::u16string_view instanceGuid, char16_t* buffer,
                                  platform::DWORD capacity);

}  // namespace ztl
