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
  Calls* calls;
  ModuleUse use;
  std::span<const CallOption> options;  // that it alone takes
  bool searchesInf;
};

inline constexpr Scenario kScenarios[] = {
    {"install", Install, ModuleUse::Transaction, {}, true},
    {"upgrade", Upgrade, ModuleUse::Transaction, {}, false},
    {"remove", Remove, ModuleUse::Transaction, {}, false},
    {"notify", Notify, ModuleUse::Transaction, kNotifyOptions, false},
    {"properties", ShowProperties, ModuleUse::Transaction, kPropertiesOptions, false},
    {"reinstall", Reinstall, ModuleUse::Entry, {}, false},
    {"register", Register, ModuleUse::Life, {}, false},
    {"unregister", Unregister, ModuleUse::Life, {}, false},
    {"load", LoadAndUnload, ModuleUse::Life, {}, false},
};

// Null for an unknown name.
constexpr const Scenario* FindScenario(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kScenarios), std::end(kScenarios),
                                         [name](const Scenario& scenario) { return scenario.name == name; });
  return found == std::end(kScenarios) ? nullptr : found;
}

}  // namespace ztlsim
