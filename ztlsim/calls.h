// The calls that a process makes in a scenario: in one transaction to the notify object, as the configuration engine
// makes them, or to the module's entries. They go through the platform boundary alone, so the simulation and a real
// process run the same ones.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/com.h"
#include "platform/netcfg.h"

namespace ztlsim {

enum class Scenario { Install, Upgrade, Remove, Notify, Reinstall, Register, Unregister, Load };

inline constexpr std::pair<const char*, Scenario> kScenarios[] = {
    {"install", Scenario::Install},       {"upgrade", Scenario::Upgrade},
    {"remove", Scenario::Remove},         {"notify", Scenario::Notify},
    {"reinstall", Scenario::Reinstall},   {"register", Scenario::Register},
    {"unregister", Scenario::Unregister}, {"load", Scenario::Load}};

// Whether it is a transaction of the configuration engine; the others call the module's entries.
constexpr bool IsTransaction(Scenario scenario) {
  return scenario == Scenario::Install || scenario == Scenario::Upgrade || scenario == Scenario::Remove ||
         scenario == Scenario::Notify;
}

// What the module exports.
struct ModuleEntries {
  platform::HRESULT (*canUnloadNow)();
  platform::HRESULT (*getClassObject)(platform::REFCLSID rclsid, platform::REFIID riid, void** ppv);
  platform::HRESULT (*registerServer)();
  platform::HRESULT (*unregisterServer)();
  platform::DWORD (*reInstallZtl)(void*, void*, char*, int);
};

// The process that makes the calls. Objects that it makes carry one reference, which the caller releases.
class Process {
 public:
  // The engine's object and callback for a transaction that is under way.
  virtual platform::INetCfg* CreateTransaction() = 0;
  virtual platform::INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() = 0;

  // The module's entries, which are there until it is unloaded.
  virtual ModuleEntries LoadModule() = 0;
  virtual void UnloadModule() = 0;

 protected:
  ~Process() = default;
};

// The methods whose result matters to the caller, in the order of the calls.
using CallResults = std::vector<std::pair<std::string, platform::HRESULT>>;

// In a transaction, CoCreateInstance makes the notify object.
CallResults MakeCalls(Scenario scenario, Process& process);

}  // namespace ztlsim
