// The driver's parameters that survive a removal of the component: saved when the module is unregistered, restored at
// the next installation. The start-up command that is pending until then (RunOnce) is deleted when they
// are saved.
#pragma once

#include "platform/types.h"

namespace ztl {

// Has the driver's parameters saved, by the running driver, else by copying them. 0 or the system error code of the
// request.
platform::DWORD UnlinkZtlParamKeySaveZtlParams();

// Removes the pending start-up command and has the parameters saved.
void FixupRegistry();

// Disables the service's start. With a running driver of version 3.10.0 or later, runs FixupRegistry.
void PrepareZtlForUnload();

// Puts the saved parameters back into the driver's own, where those lack them, and deletes the saved copy.
void RestoreZtlParams();

}  // namespace ztl
