// A machine's adapter stacks as its registry has them, read through the module's own lookups.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulation/machine.h"

namespace ztlsim {

// One adapter instance of a stack.
struct StackEntry {
  std::u16string guid;         // as the stack names it; an instance GUID, or another name
  std::u16string instance;     // its subkey of the net adapter class; empty when there is no such instance
  std::u16string description;  // "DriverDesc"; empty when there is none
  std::u16string service;      // the service that owns it; empty when there is none
  std::vector<std::u16string> upperBind;
};

// The stack of an instance that a transport is bound to, from that top down to the physical adapter.
struct AdapterStack {
  std::u16string top;  // the top's subkey of the net adapter class
  std::vector<StackEntry> entries;

  // The physical adapter's name in the stack; empty for an empty stack.
  std::u16string Adapter() const { return entries.empty() ? std::u16string() : entries.back().guid; }
};

struct MachineState {
  std::vector<AdapterStack> stacks;             // in the order of the tops' subkeys
  std::vector<std::u16string> configuredOrder;  // "IMOrder"
  bool orderIsSet = false;                      // false: configuredOrder is what the module takes in its place
  std::u16string ownClass;                      // the filter's own class; empty when it has none
  std::vector<std::u16string> imList;           // what the configured order resolves to
  std::vector<std::u16string> devIdList;
  std::vector<std::u16string> missingKeys;  // keys that a pass starts from and that are not there
};

// Nothing is changed. The entries' owners in `before` (may be null) are taken over: a transaction does not
// change them.
MachineState ReadMachineState(simulation::Machine& machine, const MachineState* before = nullptr);

// One stack before and after a run.
struct StackPair {
  std::optional<AdapterStack> before;  // unset: no transport was bound to it
  std::optional<AdapterStack> after;   // unset: no transport is bound to it any more
  // Of each entry of `after`, where both have entries: it is new, or is at another height above the physical
  // adapter.
  std::vector<bool> moved;
  bool changed = false;  // an entry or what is bound to the top, where both have entries

  bool HasMoved() const;  // any entry
};

// The stacks of `before` in their order, each with the stack of `after` over the same physical adapter; then the stacks
// of `after` that are new.
std::vector<StackPair> PairStacks(const std::vector<AdapterStack>& before, const std::vector<AdapterStack>& after);

}  // namespace ztlsim
