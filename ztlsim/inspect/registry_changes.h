// What changed between two states of a registry.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulation/registry.h"

namespace ztlsim {

// One change: of a value when `name` is set (empty: the default value), else of a key as such. `before` and `after` are
// set as far as the value existed; a key that came or went has `keyCreated` or `keyDeleted`.
struct RegistryChange {
  std::u16string key;  // full path, in the letter case of the registry
  std::optional<std::u16string> name;
  std::optional<simulation::RegistryValue> before;
  std::optional<simulation::RegistryValue> after;
  bool keyCreated = false;
  bool keyDeleted = false;  // with everything below it: the keys and values below are not listed
};

// In the order of the keys' paths, a key before its subkeys, values in the order of their creation. A created key is
// listed before its values. Links are not followed.
std::vector<RegistryChange> CompareRegistries(const simulation::Registry& before, const simulation::Registry& after);

}  // namespace ztlsim
