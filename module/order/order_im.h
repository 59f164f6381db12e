// The binding-order pass: sorts the intermediate drivers of every adapter stack into the configured order, rewrites the
// stacks' linkage in the registry, and records each physical adapter's resulting stack.
#pragma once

#include "module/order/build_im_order.h"
#include "module/order/class_lookups.h"
#include "platform/multi_string.h"
#include "platform/types.h"

namespace ztl {

// Sizes of name buffers in characters: a longer subkey name ends the search that finds it.
inline constexpr std::size_t kAdapterNameCapacity = 64;   // the adapter keys
inline constexpr std::size_t kSetOrderPathCapacity = 20;  // the instances, with the linkage suffix

// Runs the pass. `*changed` becomes 1 when at least one stack was sorted and its new top stored, else 0. Returns a
// system error code, 0 when the pass ran to its end.
platform::LSTATUS OrderIM(std::uint8_t* changed);

// Deletes the adapter record ("IMOrder") of every adapter key. Returns a system error code.
platform::LSTATUS DeleteBindOrders();

// Sorts and rewrites the stack whose top is the instance `instanceName`. True when the sorted stack's new top was
// stored. `classKey` here and below is the open net adapter class key, with all access.
bool ImposeOrder(platform::HKEY classKey, const char16_t* instanceName, platform::MultiStringView imList,
                 platform::MultiStringView devIdList);

// Writes both values, of the given sizes in bytes (at most 1,024), to the linkage of the instance whose stored
// "RootDevice" starts with the entry that `rootDevice` starts with. Returns the result of writing "UpperBind", or the
// enumeration's code when there is no such instance.
platform::LSTATUS SetOrder(platform::HKEY classKey, const char16_t* rootDevice, platform::DWORD rootBytes,
                           const char16_t* upperBind, platform::DWORD upperBytes);

// Logs a stack and, when "Tcpip" is bound above it and the filter is in it, writes the adapter record.
void OutputBindOrders(platform::HKEY classKey, platform::MultiStringView rootDevice,
                      platform::MultiStringView upperBind);

}  // namespace ztl
