#include "ztlsim/scenario.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "install/reinstall_ztl.h"
#include "log/log_facility.h"
#include "notify/module.h"
#include "notify/module_log.h"
#include "notify/sample_filter.h"
#include "platform/com_ptr.h"

namespace ztlsim {

using namespace platform;

namespace {

// What stands before the message in a line of the log: time stamp, tag and severity.
constexpr std::size_t kLineHeadBytes = 38;

// Collects the messages that are written to the log for as long as it lives.
class LogCapture {
 public:
  LogCapture(simulated::Machine& machine, std::vector<std::string>& messages) : machine_(machine) {
    machine_.files.onWrite = [&messages](const std::string& path, std::string_view line) {
      if (path != ztl::g_ModuleLog.path) return;
      line.remove_prefix(std::min(kLineHeadBytes, line.size()));
      if (line.ends_with('\n')) line.remove_suffix(1);
      messages.emplace_back(line);
    };
  }
  ~LogCapture() { machine_.files.onWrite = nullptr; }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

 private:
  simulated::Machine& machine_;
};

// The log reports a trouble of its own as two debugger texts: a prefix and the trouble.
std::vector<std::string> LogTroubles(const std::vector<std::string>& debugOutput) {
  std::vector<std::string> troubles;
  for (std::size_t i = 0; i + 1 < debugOutput.size(); ++i)
    if (debugOutput[i] == "ERROR: ") troubles.push_back(debugOutput[i + 1].substr(0, debugOutput[i + 1].find('\n')));
  return troubles;
}

// The calls of a transaction, from the notify object's creation to its release.
void CallNotifyObject(Scenario scenario, ScenarioResult& result) {
  const auto netCfg = ComPtr<INetCfg>::Attach(simulated::CreateTransaction());
  const auto callback = ComPtr<INetCfgPnpReconfigCallback>::Attach(simulated::CreatePnpReconfigCallback());
  ComPtr<INetCfgComponent> component;
  netCfg->FindComponent(u"qro_ztl", component.Receive());

  auto call = [&result](const char* method, HRESULT hr) { result.results.emplace_back(method, hr); };
  ComPtr<INetCfgComponentControl> control;
  ComPtr<INetCfgComponentSetup> setup;
  HRESULT hr =
      ztl::HrCreateSampleFilter(nullptr, IID_INetCfgComponentControl, reinterpret_cast<void**>(control.Receive()));
  if (Failed(hr)) return call("CreateInstance", hr);
  hr = control->QueryInterface(IID_INetCfgComponentSetup, reinterpret_cast<void**>(setup.Receive()));
  if (Failed(hr)) return call("QueryInterface", hr);
  hr = control->Initialize(component.Get(), netCfg.Get(), scenario == Scenario::Install ? 1 : 0);
  if (Failed(hr)) call("Initialize", hr);
  if (scenario == Scenario::Install) hr = setup->Install(0);
  if (scenario == Scenario::Upgrade) hr = setup->Upgrade(0, 0);
  if (scenario == Scenario::Remove) hr = setup->Removing();
  if (Failed(hr)) call("setup", hr);
  setup.Reset();
  call("ApplyRegistryChanges", control->ApplyRegistryChanges());
  if (scenario != Scenario::Notify) call("ApplyPnpChanges", control->ApplyPnpChanges(callback.Get()));
}

// A process that loads the module, uses it and unloads it.
void CallModule(Scenario scenario, ScenarioResult& result) {
  auto call = [&result](const char* function, HRESULT hr) {
    result.results.emplace_back(function, hr);
    return hr;
  };
  ztl::DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
  if (scenario == Scenario::Register) call("DllRegisterServer", ztl::DllRegisterServer());
  if (scenario == Scenario::Unregister) call("DllUnregisterServer", ztl::DllUnregisterServer());
  if (scenario == Scenario::Load) {
    IClassFactory* factory = nullptr;
    ComPtr<IUnknown> instance;
    if (!Failed(call("DllGetClassObject", ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory,
                                                                 reinterpret_cast<void**>(&factory))))) {
      call("CreateInstance",
           factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(instance.Receive())));
      instance.Reset();
      factory->Release();
    }
    call("DllCanUnloadNow", ztl::DllCanUnloadNow());
  }
  ztl::DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}

void Call(Scenario scenario, ScenarioResult& result) {
  if (scenario == Scenario::Register || scenario == Scenario::Unregister || scenario == Scenario::Load)
    return CallModule(scenario, result);
  ztl::OpenModuleLog();
  if (scenario == Scenario::Reinstall)
    result.results.emplace_back("ReInstallZtl", static_cast<HRESULT>(ztl::ReInstallZtl(nullptr, nullptr, nullptr, 0)));
  else
    CallNotifyObject(scenario, result);
  ztl::CloseModuleLog();
}

}  // namespace

bool ScenarioResult::RebootRequired() const {
  return std::any_of(results.begin(), results.end(), [](const auto& r) { return r.second == NETCFG_S_REBOOT; });
}

bool ScenarioResult::Failed() const {
  return std::any_of(results.begin(), results.end(), [](const auto& r) { return platform::Failed(r.second); });
}

ScenarioResult RunScenario(Scenario scenario) {
  simulated::Machine& machine = simulated::Current();
  ScenarioResult result;
  result.before = ReadMachineState();
  result.bindingsBefore = ReadBindings();
  const std::unique_ptr<simulated::Registry> registryBefore = machine.registry.Copy();
  {
    const LogCapture capture(machine, result.log);
    machine.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
    Call(scenario, result);
    machine.comClasses.pop_back();
  }
  result.logTroubles = LogTroubles(machine.debugOutput);
  result.after = ReadMachineState(&result.before);
  result.bindingsAfter = ReadBindings();
  result.standardOutput = machine.standardOutput;
  result.elapsedMilliseconds = machine.WaitedMilliseconds();
  result.changes = CompareRegistries(*registryBefore, machine.registry);
  result.pnpReconfigs = machine.engine.pnpReconfigs;
  result.deviceRequests = machine.driver.requests;
  return result;
}

}  // namespace ztlsim
