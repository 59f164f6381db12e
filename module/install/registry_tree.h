// Copying and deleting registry trees.
#pragma once

#include "platform/registry.h"
#include "platform/types.h"

namespace ztl {

// Deletes the key with everything below it. The system error code of its own deletion: 2 when there is no such key.
// What cannot be deleted stays, with the keys above it; the rest goes.
platform::LSTATUS DeleteKey(platform::HKEY parentKey, const char16_t* subkeyName);

// Copies the values and subkeys of one key into another, which is made when it is missing. Without `overwrite` a
// destination value of the same type stays as it is. Subkeys named "Adapters" are left out at every level, and nothing
// is deleted. Failures are logged and passed over.
void CopyRegTree(platform::HKEY sourceParent, const char16_t* sourceSubkey, platform::HKEY destinationParent,
                 const char16_t* destinationSubkey, platform::DWORD overwrite);

}  // namespace ztl
