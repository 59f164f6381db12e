// Copying and deleting registry trees.
#pragma once

#include "platform/registry.h"
#include "platform/types.h"

namespace ztl {

// What the deletion of a tree reports of each of its keys: its start (with ERROR_SUCCESS), and every call that failed.
// A key that is not there is no failure. `name` is the key's own, and there during the call alone.
enum class DeletionStep { Start, Open, Enumerate, Delete };
using DeletionReport = void (*)(DeletionStep step, const char16_t* name, platform::LSTATUS rc);

// Deletes the key with everything below it. What cannot be deleted stays, with the keys above it; the rest is deleted.
// Returns the system error code of the key's own deletion: ERROR_FILE_NOT_FOUND when there is no such key.
platform::LSTATUS DeleteTree(platform::HKEY parent, const char16_t* name, DeletionReport report);

// The same with the reports in the log.
platform::LSTATUS DeleteKey(platform::HKEY parentKey, const char16_t* subkeyName);

// Copies the values and subkeys of one key into another, which is made when it is missing. When `overwrite` is 0, a
// destination value of the same type stays as it is. Subkeys named "Adapters" are left out at every level, and nothing
// is deleted. Failures are logged, and the rest is copied; but a name of more than 259 characters or data of more than
// 520 bytes ends the copying of that key's values.
void CopyRegTree(platform::HKEY sourceParent, const char16_t* sourceSubkey, platform::HKEY destinationParent,
                 const char16_t* destinationSubkey, platform::DWORD overwrite);

}  // namespace ztl
