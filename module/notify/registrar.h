// Registration scripts: which keys and values a COM class writes below HKEY_CLASSES_ROOT or another root, and removes
// again.
//
//   script  = root "{" key… "}"                        root is HKCR, HKCU, HKLM or HKU
//   key     = ["NoRemove" | "ForceRemove"] name ["=" value] ["{" (key | "val" name "=" value)… "}"]
//   value   = "s" text                                  stored as REG_SZ
//
// Words are separated by blanks and line ends. Text between single quotes may hold anything; a quote in it is doubled.
// %MODULE% is replaced by the module's path, in any word.
#pragma once

#include <string_view>

#include "platform/types.h"

namespace ztl {

// Makes the script's keys and values, deleting those marked ForceRemove before; or, with `registering` false, deletes
// the keys but for those marked NoRemove, as far as that is possible. E_FAIL for a script that cannot be read, with
// nothing done; otherwise the first failure of the registry. The keys that a failed registration has made are deleted
// again; what it deleted or overwrote before does not come back. A script has at most 64 keys; a key's name is one
// level.
platform::HRESULT RunRegistrationScript(std::string_view script, std::u16string_view modulePath, bool registering);

}  // namespace ztl
