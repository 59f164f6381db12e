// Runs a whole transaction on whatever machine a registry export makes: no content of the registry may bring the module
// down or leave anything open.
#include <cstdint>
#include <cstdlib>

#include "platform/simulated/machine.h"
#include "ztlsim/registry_export.h"
#include "ztlsim/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  platform::simulated::Machine machine;
  const platform::simulated::CurrentMachine current(machine);
  ztlsim::ReadRegistryExport("input", {reinterpret_cast<const char*>(data), size}, machine.registry);
  ztlsim::RunScenario(ztlsim::Scenario::Upgrade);
  if (machine.registry.OpenHandles() != 0 || machine.taskAllocations != 0 || machine.engine.objects != 0) std::abort();
  return 0;
}
