#include "ztlsim/scenario/run_scenario.h"

#include <algorithm>
#include <memory>

#include "ztlsim/scenario/log_observer.h"
#include "ztlsim/scenario/simulated_process.h"

namespace ztlsim {

using namespace platform;

bool ScenarioResult::RebootRequired() const {
  return std::any_of(results.begin(), results.end(), [](const auto& r) { return r.second == NETCFG_S_REBOOT; });
}

bool ScenarioResult::Failed() const {
  return std::any_of(results.begin(), results.end(), [](const auto& r) { return platform::Failed(r.second); });
}

ScenarioResult RunScenario(simulation::Machine& machine, const Scenario& scenario, const CallOptions& options,
                           bool asProcess) {
  const simulation::CurrentMachine current(machine);
  ScenarioResult result;
  result.before = ReadMachineState(machine);
  result.bindingsBefore = ReadBindings(machine);
  if (scenario.searchesInf) result.inf = SearchInfFiles(machine);
  const std::unique_ptr<simulation::Registry> registryBefore = machine.registry.Copy();
  machine.debugOutput.clear();  // of what went before
  {
    const LogObserver observer(machine, result.log);
    SimulatedProcess process(machine, scenario.use, asProcess, result.pages);
    machine.engine.recordRequests = result.asProcess = asProcess;
    result.results = scenario.calls(options, process);
    machine.engine.recordRequests = false;
  }
  result.engineRequests = machine.engine.requests;
  result.debugOutput = machine.debugOutput;
  result.logTroubles = ReadLogTroubles(result.debugOutput);
  result.after = ReadMachineState(machine, &result.before);
  result.stacks = PairStacks(result.before.stacks, result.after.stacks);
  result.bindingsAfter = ReadBindings(machine);
  result.standardOutput = machine.standardOutput;
  result.elapsedMilliseconds = machine.WaitedMilliseconds();
  result.changes = CompareRegistries(*registryBefore, machine.registry);
  result.pnpReconfigs = machine.engine.pnpReconfigs;
  result.deviceRequests = machine.driver.requests;
  result.driveTroubles = machine.files.Troubles();
  return result;
}

}  // namespace ztlsim
