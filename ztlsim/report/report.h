// What a run of ztlsim prints: a report for people, or one JSON object for scripts.
#pragma once

#include <string>
#include <vector>

#include "ztlsim/inspect/bindings.h"
#include "ztlsim/inspect/check.h"
#include "ztlsim/inspect/stacks.h"
#include "ztlsim/scenario/run_scenario.h"

namespace ztlsim {

// All texts are UTF-8 and end with a line feed.
std::string FormatRunAsJson(const std::string& scenario, const ScenarioResult& result);
std::string FormatStateAsJson(const MachineState& state, const BindingState& bindings);
std::string FormatFindingsAsJson(const std::vector<Finding>& findings);

std::string FormatRun(const std::string& scenario, const ScenarioResult& result, bool colour);
std::string FormatState(const MachineState& state, const BindingState& bindings);
std::string FormatFindings(const std::vector<Finding>& findings);  // a line for each, and one that counts them

}  // namespace ztlsim
