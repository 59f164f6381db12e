// The ordered lists of intermediate drivers, built from the configured order in the filter service's parameters.
//
// The IM list holds service names in stacking order, the first one next to the transports; the DevID list, entry by
// entry, the device id ("FilterDeviceInfId") of each one's virtual adapters.
#pragma once

#include <string_view>

#include "platform/multi_string.h"
#include "platform/types.h"

namespace ztl {

// Characters, terminators included; each list keeps one for its final NUL.
inline constexpr std::size_t kImListCapacity = 256;
inline constexpr std::size_t kDevIdListCapacity = 512;
inline constexpr std::size_t kClassServicesCapacity = 260;  // of the drivers of one class

// Bytes of "IMOrder"; the rest of the buffer stays NULs, whatever is stored.
inline constexpr platform::DWORD kOrderLimit = 516;

// Fills both lists and logs them. `ownClass` is the filter class of the filter's own service, a one-entry multi-string.
// Returns 0 in every case: a problem ends or shortens the lists and is logged.
platform::LSTATUS BuildImOrder(platform::MultiStringView ownClass, char16_t (&imList)[kImListCapacity],
                               char16_t (&devIdList)[kDevIdListCapacity]);

// Appends the drivers of one filter class that are neither in the IM list yet nor named in `configuredOrder`.
// `imList` is the list that `ims` builds. Returns 0, or ReturnFilterClassIMs' code with nothing changed.
platform::LSTATUS AddFilterClassIMs(const char16_t* className, platform::MultiStringView configuredOrder,
                                    platform::MultiStringView imList, platform::MultiStringBuilder& ims,
                                    platform::MultiStringBuilder& devIds);

}  // namespace ztl
