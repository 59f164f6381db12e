// Checks, and runs a whole transaction with the sessions of its release, on whatever machine a registry export makes:
// no content of the registry may bring the module down or leave anything open.
#include <cstdint>
#include <cstdlib>

#include "simulation/machine.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/inspect/check.h"
#include "ztlsim/scenario/run_scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  ztlsim::ReadRegistryExport("input", {reinterpret_cast<const char*>(data), size}, machine.registry);
  machine.version = {.major = 5, .minor = 2};  // where adapters may be excluded
  ztlsim::CheckMachine(machine.registry);
  ztlsim::RunScenario(machine, *ztlsim::FindScenario("install"), {});
  if (machine.registry.OpenHandles() != 0 || machine.taskAllocations != 0 || machine.engine.objects != 0 ||
      machine.engine.lockHolders != 0 || !machine.comInitializations.empty())
    std::abort();
  return 0;
}
