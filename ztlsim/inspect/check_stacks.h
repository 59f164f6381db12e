// Findings of the stacks and of the adapter records: what is in the registry, compared with what a pass makes of
// it.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "simulation/machine.h"
#include "ztlsim/inspect/finding_list.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/inspect/stacks.h"

namespace ztlsim {

class PassComparison {
 public:
  // Runs a pass on the machine, which it changes, with a key for every adapter. `machine` is current and holds a copy
  // of `original`; `before` was read from it. All four must outlive this object.
  PassComparison(const simulation::Registry& original, simulation::Machine& machine, const MachineState& before,
                 Findings& findings);

  // Adds what is wrong with the stacks, in the order of the findings' keys.
  void CheckStacks();
  // Adds what is wrong with the adapter records, but for those of adapters whose stack has been reported as the cause.
  void CheckRecords();

 private:
  void RunPass();
  void CheckStackOrder(const StackPair& pair, const std::u16string& linkage);
  void CheckStackEntry(platform::HKEY classKey, const AdapterStack& stack, std::size_t level);
  void CheckRecord(const RegistryChange& change);

  const simulation::Registry& original_;
  simulation::Machine& machine_;
  const MachineState& before_;
  Findings& findings_;
  MachineState after_;
  bool adaptersKeyIsMissing_ = false;                              // before the pass
  std::set<std::u16string> createdKeys_;                           // that were made for the pass
  std::vector<RegistryChange> recordChanges_;                      // the adapter records that the pass changes
  std::map<std::u16string, std::vector<std::u16string>> records_;  // after the pass, by the upper-cased adapter
  std::set<std::u16string> reportedAdapters_;  // upper-cased; their records change for a cause that has been reported
};

}  // namespace ztlsim
