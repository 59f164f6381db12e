// A property sheet of the operating system, with its user before it.
#pragma once

#include <nlohmann/json.hpp>
#include <span>

#include "ztlsim/scenario/host_process.h"

namespace ztl_conformance {

// Shows the pages, which it takes over, and does what the input says; `applied` becomes whether the pages took it. What
// the user saw, as ztlsim reports it: null when no page could be shown.
nlohmann::ordered_json UseSheet(std::span<const platform::HPROPSHEETPAGE> pages, const ztlsim::PageInput& input,
                                bool& applied);

}  // namespace ztl_conformance
