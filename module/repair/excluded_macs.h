// The excluded-adapter pass: unbinds the filter from the adapters that its configuration excludes, on Windows before
// 6.0.
//
// The exclusion list, "ExcludedMacs" in the filter service's parameters, names Plug and Play device node ids or their
// leading parts, without case.
#pragma once

#include <string_view>

#include "platform/multi_string.h"
#include "platform/registry_key.h"
#include "platform/types.h"

namespace ztl {

// Characters; what is read is always followed by two NULs.
using ExcludedMacs = platform::ValueBuffer<512>;
inline constexpr platform::DWORD kExcludedMacsLimit = 1020;  // bytes

// Reads the list from the open Parameters key. False when there is none: the value is missing, of another type or
// larger than the limit.
bool ReadExcludedMacs(platform::HKEY parameters, ExcludedMacs& list);

// Whether an entry excludes the adapter: it begins the adapter's id, or the id begins it.
bool IsExcluded(platform::MultiStringView excludedMacs, std::u16string_view devNodeId);

// Runs the pass. 0 when it ran or found nothing to do, ERROR_NOT_SUPPORTED from Windows 6.0 on, GetVersionExW's
// error code when the version cannot be read.
platform::LSTATUS UnBindZTLFromExcludedMacs();

// Disables the component's binding path to every adapter that it is bound to and the list excludes, in the order in
// which the engine enumerates the adapters. Opens a session of its own, and one inside it for each path.
void DisableExcludedMacBindings(const char16_t* componentId, platform::MultiStringView excludedMacs);

}  // namespace ztl
