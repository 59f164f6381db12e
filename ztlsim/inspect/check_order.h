// Findings of the configured order: which drivers each of its entries means, and whether the module's lists have room.
#pragma once

#include "simulation/machine.h"
#include "ztlsim/inspect/finding_list.h"
#include "ztlsim/inspect/stacks.h"

namespace ztlsim {

// The machine is current, and `state` was read from it. Nothing is changed. An order that is not set, or a filter
// without a class, has no findings.
void CheckConfiguredOrder(const simulation::Machine& machine, const MachineState& state, Findings& findings);

}  // namespace ztlsim
