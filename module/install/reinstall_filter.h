// Installing the filter component again.
#pragma once

#include "platform/types.h"

namespace ztl {

// Installs the filter component once more in a session of its own and applies the change. Returns the result code as an
// unsigned number: that of opening the session when it failed, of the install when that did, else of applying.
platform::DWORD ReInstallFilter();

}  // namespace ztl
