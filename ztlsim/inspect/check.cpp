#include "ztlsim/inspect/check.h"

#include "module/names.h"
#include "simulation/machine.h"
#include "ztlsim/inspect/bindings.h"
#include "ztlsim/inspect/check_order.h"
#include "ztlsim/inspect/check_stacks.h"
#include "ztlsim/inspect/check_values.h"
#include "ztlsim/inspect/finding_list.h"
#include "ztlsim/inspect/stacks.h"
#include "ztlsim/inspection.h"

namespace ztlsim {

namespace {

void CheckBindings(const simulation::Machine& machine, const BindingState& bindings, Findings& findings) {
  for (const BindLoopInstance& loop : bindings.loops)
    findings.Add(FindingKind::BindLoop, LinkagePath(machine, loop.instance), ztl::kUpperBindValue,
                 Quoted(loop.service) + " is bound directly above its own virtual adapter " + Quoted(loop.description),
                 loop.repairable
                     ? "The next transaction disables and enables again its binding path to the adapter underneath"
                     : "The next transaction finds it and cannot repair it: no interface link of the adapter "
                       "underneath leads to a binding path of the driver");
  for (const ExcludedEntry& excluded : bindings.excluded)
    if (excluded.adapters.empty())
      findings.Add(FindingKind::ExcludedEntryUnmatched, FullPath(machine, ztl::kParametersKey), ztl::kExcludedMacsValue,
                   "The entry " + Quoted(excluded.entry) + " matches the DeviceInstanceID of no adapter",
                   "It excludes nothing: correct or remove it");
}

}  // namespace

std::vector<Finding> CheckMachine(const simulation::Registry& registry) {
  simulation::Machine machine;
  machine.registry.CopyFrom(registry);
  const Inspection inspection(machine);
  const MachineState state = ReadMachineState(machine);
  const BindingState bindings = ReadBindings(machine);
  Findings findings;
  // Later checks leave out what an unreadable value explains, and the pass changes the machine.
  CheckKeys(machine, state, findings);
  CheckValues(machine, state, findings);
  CheckConfiguredOrder(machine, state, findings);
  PassComparison pass(registry, machine, state, findings);
  pass.CheckStacks();
  CheckBindings(machine, bindings, findings);
  pass.CheckRecords();
  return findings.Take();
}

}  // namespace ztlsim
