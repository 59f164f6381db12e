// The module's exported reinstall entry.
#pragma once

#include "platform/types.h"

namespace ztl {

// Installs the filter component once more in a session of its own and applies the change. Takes the arguments of an
// entry that a command-line host calls and reads none of them. Returns the result code as an unsigned number: that of
// opening the session when it failed, of the install when that did, else of applying.
platform::DWORD ReInstallZtl(void* window, void* instance, char* commandLine, int show);

}  // namespace ztl
