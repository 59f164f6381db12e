// A scenario runs on a machine that the input makes: a registry of the tool's benchmarks or of a sample with changes to
// its keys and values, the Windows version, a call that fails. Whatever it holds, the process ends with nothing left.
// Nothing is on a disk: the machine has no drive, so the log formats its lines and finds no file.
#include <set>

#include "bench/machines.h"
#include "fuzz/fuzz.h"
#include "module/log/log_facility.h"
#include "module/notify/module.h"
#include "module/notify/property_page.h"
#include "ztlsim/input/load_machine.h"
#include "ztlsim/scenario/simulated_process.h"

using namespace platform;
using simulation::Operation;
using simulation::Registry;
using simulation::RegistryKey;

namespace {

struct Base {
  std::unique_ptr<Registry> registry;
  std::vector<std::u16string> keys;  // by their full paths
};

void AddPaths(const RegistryKey& key, const std::u16string& path, std::vector<std::u16string>& paths) {
  for (const auto& subkey : key.subkeys) {
    if (subkey->link) continue;
    paths.push_back(path + subkey->name);
    AddPaths(*subkey, paths.back() + u'\\', paths);
  }
}

std::vector<Base> Bases() {
  std::vector<Base> bases;
  bases.push_back({ztl_bench::MakeMachine(3, ztl_bench::Drive())->registry.Copy(), {}});
  for (const char* const sample : {"loop", "windows-5.2", "saved-parameters"}) {
    bases.push_back({std::make_unique<Registry>(), {}});
    ZTL_HOLDS(
        !ztlsim::LoadRegistry({ZTL_SOURCE_DIR "/samples/" + std::string(sample) + ".reg"}, *bases.back().registry));
  }
  for (Base& base : bases) AddPaths(base.registry->Root(), u"", base.keys);
  return bases;
}

RegistryKey* AnyKey(ztl_fuzz::Input& input, Registry& registry, const Base& base) {
  return registry.Find(base.keys[input.Below(base.keys.size())]);
}

void Change(ztl_fuzz::Input& input, Registry& registry, const Base& base) {
  RegistryKey* const key = AnyKey(input, registry, base);
  const std::size_t change = input.Below(8);
  if (key == nullptr || key->values.empty()) return;
  simulation::RegistryValue& value = key->values.Edit()[input.Below(key->values.size())];
  if (change == 0 && key->parent->parent != nullptr) {
    key->parent->DeleteSubkey(std::u16string(key->name));
  } else if (change == 1) {
    key->DeleteValue(std::u16string(value.name));
  } else if (change == 2) {
    value.data.resize(input.Below(1024));
  } else if (change == 3) {
    value.type = static_cast<DWORD>(input.Below(12));
  } else if (change < 6) {
    const std::string_view bytes = input.Bytes(input.Byte());
    if (change == 4) value.data.clear();
    value.data.insert(value.data.begin(), bytes.begin(), bytes.end());
  } else if (const RegistryKey* const other = AnyKey(input, registry, base);
             other != nullptr && !other->values.empty()) {
    const std::vector<BYTE> data = other->values[input.Below(other->values.size())].data;
    if (change == 6) value.data.clear();
    value.data.insert(value.data.begin(), data.begin(), data.end());
  }
}

// Calls whose failure leaves what they were to close are not made to fail.
const std::set<Operation> kClosing = {Operation::RegCloseKey,      Operation::_close,     Operation::CoTaskMemFree,
                                      Operation::CoUninitialize,   Operation::GlobalFree, Operation::CloseHandle,
                                      Operation::SetupCloseInfFile};

}  // namespace

void ztl_fuzz::Check(std::string_view bytes) {
  static const std::vector<Base> bases = Bases();
  Input input(bytes);
  simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  machine.clock = 1709647432;
  const Base& base = bases[input.Below(bases.size())];
  machine.registry.CopyFrom(*base.registry);
  const ztlsim::Scenario& scenario = ztlsim::kScenarios[input.Below(std::size(ztlsim::kScenarios))];
  machine.version = {.major = input.Below(2) != 0 ? 5u : 10u, .minor = 2};
  ztlsim::CallOptions options;
  options.paths = {{u"qro_ztl->x", S_OK}, {u"x->y", S_FALSE}};
  options.adapter = GUID{0x635699C6, 0xF3BE, 0x4629, {0xBC, 0xED, 0x47, 0xAB, 0x3C, 0x5D, 0x1A, 0xEE}};
  options.page.texts = {{ztl::kParam1Control, u"one"}};
  const std::size_t failing = input.Below(2048);
  const bool failsOfCom = input.Below(2) != 0;
  if (failing != 0)
    machine.faults = {{.first = failing,
                       .code = failsOfCom ? E_FAIL : ERROR_ACCESS_DENIED,
                       .matches = [failsOfCom](Operation operation, const simulation::Arguments&) {
                         return (operation >= Operation::CoInitializeEx) == failsOfCom && !kClosing.contains(operation);
                       }}};
  for (int changes = 0; changes < 32 && !input.Empty(); ++changes) Change(input, machine.registry, base);
  {
    std::vector<ztlsim::ShownPage> pages;
    ztlsim::SimulatedProcess process(machine, ztlsim::ModuleUse::Transaction, false, pages);
    ztl::g_ModuleLog = {.available = 1,
                        .popupStyle = ztl::kNoPopup,
                        .sizeLimit = 1024,
                        .path = "C:\\log",
                        .tag = "ztl",
                        .mode = ztl::LOG_MODE_EXISTING};
    scenario.calls(options, process);
  }
  ZTL_HOLDS(machine.registry.OpenHandles() == 0 && machine.files.OpenDescriptors() == 0);
  ZTL_HOLDS(machine.taskAllocations == 0 && machine.globalMemory.empty() && machine.openInfs.empty());
  ZTL_HOLDS(machine.engine.objects == 0 && machine.engine.lockHolders == 0 && ztl::DllCanUnloadNow() == S_OK);
  ZTL_HOLDS(machine.comInitializations.empty() && machine.dialogs.Windows() + machine.dialogs.Pages() == 0);
  ZTL_HOLDS(machine.Calls() < 1000000);
}
