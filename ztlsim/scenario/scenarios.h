// The scenarios, a row each. The command line, its help, a run and a real process take them from here.
#pragma once

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

#include "ztlsim/scenario/arguments.h"
#include "ztlsim/scenario/host_process.h"

namespace ztlsim {

enum class ModuleUse {
  Transaction,  // by the configuration engine, through the notify object
  Entry,        // one entry of a module that is loaded
  Life          // how the module is loaded and unloaded matters too
};

struct Scenario {
  const char* name;
  const char* help;    // what its process does
  const char* passes;  // of the module that run in it
  Calls* calls;
  ModuleUse use;
  bool searchesInf = false;
  std::span<const CallOption> options = {};  // that it alone takes
};

inline constexpr Scenario kScenarios[] = {
    {"install", "installs the filter in one transaction", "order, loops, exclusions", Install, ModuleUse::Transaction,
     true},
    {"upgrade", "upgrades it", "order, loops, exclusions", Upgrade, ModuleUse::Transaction},
    {"remove", "removes it", "order", Remove, ModuleUse::Transaction},
    {"notify", "reports binding paths or its component to the notify object", "order, loops, exclusions", Notify,
     ModuleUse::Transaction, false, kNotifyOptions},
    {"properties", "opens its page in a connection's properties", "loops; order, unless cancelled", ShowProperties,
     ModuleUse::Transaction, false, kPropertiesOptions},
    {"reinstall", "calls the export ReInstallZtl", "order, loops, exclusions", Reinstall, ModuleUse::Entry},
    {"register", "loads the module and registers it", "none", Register, ModuleUse::Life},
    {"unregister", "loads the module and unregisters it", "none", Unregister, ModuleUse::Life},
    {"load", "loads the module, makes one instance, and unloads it", "order, loops, exclusions", LoadAndUnload,
     ModuleUse::Life},
};

// Null for an unknown name.
constexpr const Scenario* FindScenario(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kScenarios), std::end(kScenarios),
                                         [name](const Scenario& scenario) { return scenario.name == name; });
  return found == std::end(kScenarios) ? nullptr : found;
}

}  // namespace ztlsim
