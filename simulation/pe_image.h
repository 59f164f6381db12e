// The resources of executables.
#pragma once

#include "simulation/bytes.h"

namespace simulation {

// The version resource of an executable, in its first language. Empty when there is none.
Bytes VersionResource(Bytes file);

}  // namespace simulation
