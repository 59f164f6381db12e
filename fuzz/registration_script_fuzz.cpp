// Any bytes are run as a registration script, and one of its calls may fail: what cannot be read does nothing, what
// fails leaves nothing, and registering again gives the same, also after unregistering.
#include "fuzz/fuzz.h"
#include "module/notify/registrar.h"
#include "simulation/machine.h"
#include "ztlsim/inspect/registry_changes.h"

void ztl_fuzz::Check(std::string_view bytes) {
  Input input(bytes);
  simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  for (const char16_t* const root : {u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_USER", u"HKEY_USERS"})
    machine.registry.Create(root);
  const auto nothing = machine.registry.Copy();
  const std::size_t failing = input.Byte();
  const std::string_view script = input.Rest();
  const auto run = [script](bool registering) {
    return ztl::RunRegistrationScript(script, u"C:\\ztl.dll", registering);
  };
  const auto same = [&machine](const simulation::Registry& before) {
    return ztlsim::CompareRegistries(before, machine.registry).empty() && machine.registry.OpenHandles() == 0;
  };
  const auto wasMade = [](simulation::Operation operation, const simulation::Arguments&) {
    return operation == simulation::Operation::RegCreateKeyExW || operation == simulation::Operation::RegSetValueExW;
  };
  if (failing != 0) {
    machine.faults = {{.first = failing, .code = platform::ERROR_ACCESS_DENIED, .matches = wasMade}};
    if (platform::Failed(run(true))) ZTL_HOLDS(same(*nothing));
    machine.faults.clear();
    machine.registry.CopyFrom(*nothing);
  }
  const bool isScript = !platform::Failed(run(true));
  if (!isScript) ZTL_HOLDS(same(*nothing));
  const auto registered = machine.registry.Copy();
  run(true);
  ZTL_HOLDS(same(*registered));
  run(false);
  ZTL_HOLDS(machine.registry.OpenHandles() == 0);
  if (isScript) ZTL_HOLDS(!platform::Failed(run(true)));
  ZTL_HOLDS(same(*registered));
}
