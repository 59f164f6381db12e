#include "ztlsim/calls.h"

#include "notify/sample_filter.h"
#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"

namespace ztlsim {

using namespace platform;

namespace {

// From the notify object's creation to its release.
void CallNotifyObject(Scenario scenario, Process& process, CallResults& results) {
  const auto netCfg = ComPtr<INetCfg>::Attach(process.CreateTransaction());
  const auto callback = ComPtr<INetCfgPnpReconfigCallback>::Attach(process.CreatePnpReconfigCallback());
  ComPtr<INetCfgComponent> component;
  netCfg->FindComponent(u"qro_ztl", component.Receive());

  auto call = [&results](const char* method, HRESULT hr) { results.emplace_back(method, hr); };
  ComPtr<INetCfgComponentControl> control;
  ComPtr<INetCfgComponentSetup> setup;
  HRESULT hr = platform::CoCreateInstance(ztl::CLSID_CSampleFilter, nullptr, CLSCTX_INPROC_SERVER,
                                          IID_INetCfgComponentControl, reinterpret_cast<void**>(control.Receive()));
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

// Asks for the class object, makes one instance and releases it.
void UseClassObject(const ModuleEntries& module, CallResults& results) {
  IClassFactory* factory = nullptr;
  ComPtr<IUnknown> instance;
  results.emplace_back("DllGetClassObject", module.getClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory,
                                                                  reinterpret_cast<void**>(&factory)));
  if (!Failed(results.back().second)) {
    results.emplace_back("CreateInstance",
                         factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(instance.Receive())));
    instance.Reset();
    factory->Release();
  }
  results.emplace_back("DllCanUnloadNow", module.canUnloadNow());
}

}  // namespace

CallResults MakeCalls(Scenario scenario, Process& process) {
  CallResults results;
  if (IsTransaction(scenario)) {
    platform::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    CallNotifyObject(scenario, process, results);
    platform::CoUninitialize();
    return results;
  }
  const ModuleEntries module = process.LoadModule();
  if (scenario == Scenario::Reinstall)
    results.emplace_back("ReInstallZtl", static_cast<HRESULT>(module.reInstallZtl(nullptr, nullptr, nullptr, 0)));
  if (scenario == Scenario::Register) results.emplace_back("DllRegisterServer", module.registerServer());
  if (scenario == Scenario::Unregister) results.emplace_back("DllUnregisterServer", module.unregisterServer());
  if (scenario == Scenario::Load) UseClassObject(module, results);
  process.UnloadModule();
  return results;
}

}  // namespace ztlsim
