// The filter's bindings as a machine's registry has them: its paths, the adapters that it excludes, its loops.
#pragma once

#include <string>
#include <vector>

#include "simulation/machine.h"

namespace ztlsim {

struct BindingPath {
  std::u16string token;
  std::u16string adapter;  // the adapter's subkey and description
  bool enabled = false;

  friend bool operator==(const BindingPath&, const BindingPath&) = default;
};

struct ExcludedEntry {
  std::u16string entry;
  std::vector<std::u16string> adapters;  // that it matches, by subkey and description
};

struct BindLoopInstance {
  std::u16string instance;  // the virtual adapter's subkey
  std::u16string description;
  std::u16string service;   // that is bound directly above
  bool repairable = false;  // the adapter underneath has an interface link, and the driver a binding path to it
};

struct BindingState {
  std::vector<BindingPath> paths;
  std::vector<ExcludedEntry> excluded;
  std::vector<BindLoopInstance> loops;
};

// Looks through the module's own lookups and the engine. Nothing is changed.
BindingState ReadBindings(simulation::Machine& machine);

}  // namespace ztlsim
