// The process of a simulated machine.
#pragma once

#include <span>
#include <vector>

#include "simulation/machine.h"
#include "ztlsim/scenario/run_scenario.h"

namespace ztlsim {

// One that is run as a whole, or whose scenario is about the module's life, enters the module as it is loaded and
// unloaded; in the others only the log is open. What its user sees of pages goes to `pages`.
class SimulatedProcess final : public Process {
 public:
  SimulatedProcess(simulation::Machine& machine, ModuleUse use, bool asProcess, std::vector<ShownPage>& pages);
  ~SimulatedProcess();
  SimulatedProcess(const SimulatedProcess&) = delete;
  SimulatedProcess& operator=(const SimulatedProcess&) = delete;

  platform::INetCfg* CreateTransaction() override;
  platform::INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() override;
  platform::INetLanConnectionUiInfo* CreateLanConnection(const platform::GUID& adapter) override;
  bool ShowPages(std::span<const platform::HPROPSHEETPAGE> pages, const PageInput& input) override;
  ModuleEntries LoadModule() override;
  void UnloadModule() override;

 private:
  void Load(bool& holder);
  void Unload(bool& holder);
  platform::HRESULT CreateByClassObject(platform::IUnknown* outer, platform::REFIID riid, void** object);

  simulation::Machine& machine_;
  std::vector<ShownPage>& pages_;
  const bool entersModule_;
  bool loadedByProcess_ = false;
  bool loadedByCom_ = false;
};

}  // namespace ztlsim
