// A scenario's run on a simulated machine, and its result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulation/machine.h"
#include "ztlsim/inspect/bindings.h"
#include "ztlsim/inspect/inf_search.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/inspect/stacks.h"
#include "ztlsim/scenario/scenarios.h"

namespace ztlsim {

// A property page as its user saw it.
struct ShownPage {
  std::u16string title;
  std::vector<simulation::Control> opened;
  std::vector<simulation::Control> closed;  // when the last button was pressed
  bool applyEnabled = false;                // by then
};

struct ScenarioResult {
  CallResults results;
  MachineState before;
  MachineState after;
  std::vector<StackPair> stacks;
  BindingState bindingsBefore;
  BindingState bindingsAfter;
  std::vector<RegistryChange> changes;
  std::vector<simulation::PnpReconfig> pnpReconfigs;
  std::vector<simulation::DeviceRequest> deviceRequests;
  std::vector<ShownPage> pages;
  std::optional<InfSearch> inf;  // before the run, when the scenario installs
  bool asProcess = false;
  std::vector<simulation::EngineRequest> engineRequests;  // when run as a process
  std::vector<std::string> debugOutput;
  std::vector<std::string> log;            // the message of every line written to the log, without its head
  std::vector<std::string> logTroubles;    // what kept lines from the log
  std::vector<std::string> driveTroubles;  // what the directory that stands for drive C: refused
  std::u16string standardOutput;           // what the module wrote to its process's
  std::int64_t elapsedMilliseconds = 0;    // on the simulated clock, which only the engine's waiting moves

  bool RebootRequired() const;
  bool Failed() const;  // a method of the notify object, or the entry, failed
};

// Runs the scenario with its options on the machine. As a whole process the module is loaded, asked for its
// class object for each notify object, and unloaded, as COM does it; what it and the engine exchange is recorded. Else
// only its log is open where the scenario is not about that life.
ScenarioResult RunScenario(simulation::Machine& machine, const Scenario& scenario, const CallOptions& options,
                           bool asProcess = false);

}  // namespace ztlsim
