#include "ztlsim/inspect/registry_changes.h"

#include <unordered_map>

namespace ztlsim {
namespace {

using simulation::Registry;
using simulation::RegistryKey;
using simulation::RegistryValue;
using simulation::UpperCase;

using Changes = std::vector<RegistryChange>;

void CompareValues(const RegistryKey& before, const RegistryKey& after, const std::u16string& path, Changes& changes) {
  if (before.values == after.values) return;
  std::unordered_map<std::u16string, const RegistryValue*> added;  // of `after`, until met in `before`
  for (const RegistryValue& value : after.values) added.emplace(UpperCase(value.name), &value);
  for (const RegistryValue& value : before.values) {
    const auto match = added.find(UpperCase(value.name));
    if (match == added.end()) {
      changes.push_back({path, value.name, value, std::nullopt});
      continue;
    }
    const RegistryValue& now = *match->second;
    if (value.type != now.type || value.data != now.data) changes.push_back({path, now.name, value, now});
    added.erase(match);
  }
  for (const RegistryValue& value : after.values) {
    if (added.contains(UpperCase(value.name))) changes.push_back({path, value.name, std::nullopt, value});
  }
}

void CompareKeys(const RegistryKey& before, const RegistryKey& after, const std::u16string& path, Changes& changes) {
  static const RegistryKey kNothing;
  CompareValues(before, after, path, changes);
  const auto below = [&](const RegistryKey& key) { return path.empty() ? key.name : path + u'\\' + key.name; };

  // Both are in the same order: the earlier name of the two is the one that the other lacks.
  auto old = before.subkeys.begin();
  auto now = after.subkeys.begin();
  for (;;) {
    while (old != before.subkeys.end() && (*old)->link) ++old;
    while (now != after.subkeys.end() && (*now)->link) ++now;
    const bool oldLeft = old != before.subkeys.end();
    const bool nowLeft = now != after.subkeys.end();
    if (!oldLeft && !nowLeft) return;
    const int order = !oldLeft ? 1 : !nowLeft ? -1 : (*old)->upperName.compare((*now)->upperName);
    if (order < 0) {
      changes.emplace_back().key = below(**old);
      changes.back().keyDeleted = true;
      ++old;
    } else if (order > 0) {
      changes.emplace_back().key = below(**now);
      changes.back().keyCreated = true;
      CompareKeys(kNothing, **now, below(**now), changes);
      ++now;
    } else {
      CompareKeys(**old, **now, below(**now), changes);
      ++old;
      ++now;
    }
  }
}

}  // namespace

Changes CompareRegistries(const Registry& before, const Registry& after) {
  Changes changes;
  CompareKeys(before.Root(), after.Root(), u"", changes);
  return changes;
}

}  // namespace ztlsim
