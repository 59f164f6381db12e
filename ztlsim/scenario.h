// A scenario: the calls that the configuration engine makes to the notify object in one transaction.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/simulated/machine.h"
#include "ztlsim/registry_changes.h"
#include "ztlsim/stacks.h"

namespace ztlsim {

enum class Scenario { Install, Upgrade, Remove, Notify };

struct ScenarioResult {
  // The methods whose result matters to the engine, in the order of the calls.
  std::vector<std::pair<std::string, platform::HRESULT>> results;
  MachineState before;
  MachineState after;
  std::vector<RegistryChange> changes;
  std::vector<platform::simulated::PnpReconfig> pnpReconfigs;
  std::vector<std::string> log;          // the message of every line written to the log, without its head
  std::vector<std::string> logTroubles;  // what kept lines from the log

  bool RebootRequired() const;
  bool Failed() const;  // a method of the notify object failed
};

// Runs the scenario on the current machine.
ScenarioResult RunScenario(Scenario scenario);

}  // namespace ztlsim
