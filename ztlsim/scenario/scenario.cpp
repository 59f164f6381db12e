#include "ztlsim/scenario/scenario.h"

#include <algorithm>
#include <memory>

#include "module/names.h"
#include "module/notify/module.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "platform/com_ptr.h"
#include "simulation/property_sheet.h"
#include "ztlsim/scenario/log_observer.h"

namespace ztlsim {

using namespace platform;

namespace {

// The simulated machine's process. One that is run as a whole, or whose scenario is about the module's life, enters the
// module as it is loaded and unloaded; in the others only the log is open.
class SimulatedProcess final : public Process {
 public:
  SimulatedProcess(simulation::Machine& machine, ModuleUse use, bool asProcess, std::vector<ShownPage>& pages)
      : machine_(machine), pages_(pages), entersModule_(asProcess || use == ModuleUse::Life) {
    auto create = [this](IUnknown* outer, REFIID riid, void** object) {
      return CreateByClassObject(outer, riid, object);
    };
    machine_.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
    if (asProcess) {
      machine_.comClasses.back().create = create;
      machine_.comClasses.back().unloadUnused = [this] { UnloadIfUnused(); };
    }
    if (!entersModule_) ztl::OpenModuleLog();
  }
  ~SimulatedProcess() {
    if (!entersModule_) ztl::CloseModuleLog();
    machine_.comClasses.pop_back();
  }
  SimulatedProcess(const SimulatedProcess&) = delete;
  SimulatedProcess& operator=(const SimulatedProcess&) = delete;

  INetCfg* CreateTransaction() override { return simulation::CreateTransaction(); }
  INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() override { return simulation::CreatePnpReconfigCallback(); }
  INetLanConnectionUiInfo* CreateLanConnection(const GUID& adapter) override {
    return simulation::CreateLanConnection(adapter);
  }
  bool ShowPages(std::span<const HPROPSHEETPAGE> pages, const PageInput& input) override {
    simulation::PropertySheet sheet(pages);
    if (!sheet.Open()) return false;
    ShownPage& page = pages_.emplace_back();
    page.title = sheet.Title();
    page.opened = sheet.Controls();
    for (const auto& [control, text] : input.texts) sheet.Type(control, text, true);
    page.closed = sheet.Controls();
    page.applyEnabled = sheet.ApplyEnabled();
    const bool applied = (input.button == PageButton::Ok && sheet.PressOk()) ||
                         (input.button == PageButton::Apply && sheet.PressApply());
    if (sheet.IsOpen()) sheet.PressCancel();
    return applied;
  }
  ModuleEntries LoadModule() override {
    Load(loadedByProcess_);
    return {ztl::DllCanUnloadNow, ztl::DllGetClassObject, ztl::DllRegisterServer, ztl::DllUnregisterServer,
            ztl::ReInstallZtl};
  }
  void UnloadModule() override { Unload(loadedByProcess_); }

 private:
  // `holder` is who has it loaded from now on, or has not any more.
  void Load(bool& holder) {
    const bool isLoaded = loadedByProcess_ || loadedByCom_;
    holder = true;
    if (entersModule_ && !isLoaded) ztl::DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
  }
  void Unload(bool& holder) {
    holder = false;
    if (entersModule_ && !loadedByProcess_ && !loadedByCom_) ztl::DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
  }
  HRESULT CreateByClassObject(IUnknown* outer, REFIID riid, void** object) {
    Load(loadedByCom_);
    ComPtr<IClassFactory> factory;
    const HRESULT hr = ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory,
                                              reinterpret_cast<void**>(factory.Receive()));
    return Failed(hr) ? hr : factory->CreateInstance(outer, riid, object);
  }
  void UnloadIfUnused() {
    if (ztl::DllCanUnloadNow() == S_OK) Unload(loadedByCom_);
  }

  simulation::Machine& machine_;
  std::vector<ShownPage>& pages_;
  const bool entersModule_;
  bool loadedByProcess_ = false;
  bool loadedByCom_ = false;
};

}  // namespace

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
  return result;
}

}  // namespace ztlsim
