// What is wrong with a machine, as the module would meet it.
#pragma once

#include <vector>

#include "simulation/registry.h"
#include "ztlsim/inspect/finding.h"

namespace ztlsim {

// Looks at a copy of the registry through the module's own lookups, and at what a pass changes in that copy. By area
// (keys, values, configured order, stacks, loops, excluded adapters, adapter records), then in the order of the keys.
// The module's log must not be open.
std::vector<Finding> CheckMachine(const simulation::Registry& registry);

}  // namespace ztlsim
