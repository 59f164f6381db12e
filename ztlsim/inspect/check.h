// What is wrong with a machine, as the module would meet it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulation/registry.h"

namespace ztlsim {

struct Finding {
  std::string kind;                     // short and stable, such as "stack-out-of-order"
  std::u16string key;                   // full path, in the letter case of the registry
  std::optional<std::u16string> value;  // the value's name; unset when the finding is of the key
  // UTF-8 sentences without their full stops; control characters of the registry's texts stand as they are.
  std::string text;         // what is wrong
  std::string consequence;  // what will happen because of it
};

// Looks at a copy of the registry through the module's own lookups, and at what a pass changes in that copy. By area
// (keys, values, configured order, stacks, loops, excluded adapters, adapter records), then in the order of the keys.
// Call it while the module log is not open.
std::vector<Finding> CheckMachine(const simulation::Registry& registry);

// UTF-8: a line for each finding and one that counts them; or one JSON object.
std::string FormatFindings(const std::vector<Finding>& findings);
std::string FormatFindingsAsJson(const std::vector<Finding>& findings);

}  // namespace ztlsim
