// Findings of single keys and values: what the module starts from and does not find, or finds and cannot read.
//
// The machine is current, and `state` was read from it. Nothing is changed.
#pragma once

#include "simulation/machine.h"
#include "ztlsim/inspect/finding_list.h"
#include "ztlsim/inspect/stacks.h"

namespace ztlsim {

// Keys that are missing, and names of keys that end a search.
void CheckKeys(simulation::Machine& machine, const MachineState& state, Findings& findings);

// Values that the module does not read, or reads as another list than the one that is stored; and a filter without a
// class, where no such value is the cause.
void CheckValues(simulation::Machine& machine, const MachineState& state, Findings& findings);

}  // namespace ztlsim
