#include "ztlsim/scenario/simulated_process.h"

#include "module/names.h"
#include "module/notify/module.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "platform/com_ptr.h"
#include "simulation/property_sheet.h"

namespace ztlsim {

using namespace platform;

SimulatedProcess::SimulatedProcess(simulation::Machine& machine, ModuleUse use, bool asProcess,
                                   std::vector<ShownPage>& pages)
    : machine_(machine), pages_(pages), entersModule_(asProcess || use == ModuleUse::Life) {
  auto create = [this](IUnknown* outer, REFIID riid, void** object) {
    return CreateByClassObject(outer, riid, object);
  };
  machine_.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
  if (asProcess) {
    machine_.comClasses.back().create = create;
    machine_.comClasses.back().unloadUnused = [this] {
      if (ztl::DllCanUnloadNow() == S_OK) Unload(loadedByCom_);
    };
  }
  if (!entersModule_) ztl::OpenModuleLog();
}

SimulatedProcess::~SimulatedProcess() {
  if (!entersModule_) ztl::CloseModuleLog();
  machine_.comClasses.pop_back();
}

INetCfg* SimulatedProcess::CreateTransaction() { return simulation::CreateTransaction(); }

INetCfgPnpReconfigCallback* SimulatedProcess::CreatePnpReconfigCallback() {
  return simulation::CreatePnpReconfigCallback();
}

INetLanConnectionUiInfo* SimulatedProcess::CreateLanConnection(const GUID& adapter) {
  return simulation::CreateLanConnection(adapter);
}

bool SimulatedProcess::ShowPages(std::span<const HPROPSHEETPAGE> pages, const PageInput& input) {
  simulation::PropertySheet sheet(pages);
  if (!sheet.Open()) return false;
  ShownPage& page = pages_.emplace_back();
  page.title = sheet.Title();
  page.opened = sheet.Controls();
  for (const auto& [control, text] : input.texts) sheet.Type(control, text, true);
  page.closed = sheet.Controls();
  page.applyEnabled = sheet.ApplyEnabled();
  const bool applied =
      (input.button == PageButton::Ok && sheet.PressOk()) || (input.button == PageButton::Apply && sheet.PressApply());
  if (sheet.IsOpen()) sheet.PressCancel();
  return applied;
}

ModuleEntries SimulatedProcess::LoadModule() {
  Load(loadedByProcess_);
  return {ztl::DllCanUnloadNow, ztl::DllGetClassObject, ztl::DllRegisterServer, ztl::DllUnregisterServer,
          ztl::ReInstallZtl};
}

void SimulatedProcess::UnloadModule() { Unload(loadedByProcess_); }

// `holder` is who has it loaded from now on, or has not any more.
void SimulatedProcess::Load(bool& holder) {
  const bool isLoaded = loadedByProcess_ || loadedByCom_;
  holder = true;
  if (entersModule_ && !isLoaded) ztl::DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

void SimulatedProcess::Unload(bool& holder) {
  holder = false;
  if (entersModule_ && !loadedByProcess_ && !loadedByCom_) ztl::DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}

HRESULT SimulatedProcess::CreateByClassObject(IUnknown* outer, REFIID riid, void** object) {
  Load(loadedByCom_);
  ComPtr<IClassFactory> factory;
  const HRESULT hr =
      ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory, reinterpret_cast<void**>(factory.Receive()));
  return Failed(hr) ? hr : factory->CreateInstance(outer, riid, object);
}

}  // namespace ztlsim
