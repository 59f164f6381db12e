// Setting and deleting keys and values of a registry in bulk.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "simulation/registry.h"

namespace ztlsim {

// Takes names in any order, however many there are below one key. Keys with many subkeys or values are in a form of
// their own until the merger is destroyed: nobody else may use the registry meanwhile.
class RegistryMerger {
 public:
  using Path = std::vector<std::u16string_view>;  // a name for each level, from the hive on; never empty

  explicit RegistryMerger(simulation::Registry& registry) : root_(registry.Root()) {}
  ~RegistryMerger() { Flush(root_); }
  RegistryMerger(const RegistryMerger&) = delete;
  RegistryMerger& operator=(const RegistryMerger&) = delete;

  // Follows links, as Registry::Create does. The result is the registry's, until it or a key above it is deleted.
  simulation::RegistryKey& CreateKey(const Path& path);
  void DeleteKey(const Path& path);  // with everything below it; a link itself, not its target
  void SetValue(simulation::RegistryKey& key, const std::u16string& name, platform::DWORD type,
                std::vector<platform::BYTE> data);
  void DeleteValue(simulation::RegistryKey& key, const std::u16string& name);

 private:
  using Subkeys = std::unordered_map<std::u16string_view, std::shared_ptr<simulation::RegistryKey>>;
  using Places = std::unordered_map<std::u16string, std::size_t>;

  Subkeys* ManySubkeys(simulation::RegistryKey& key);  // null while they are few
  Places* ManyValues(simulation::RegistryKey& key);    // null while they are few
  simulation::RegistryKey* FindSubkey(simulation::RegistryKey& key, std::u16string_view name);
  void Flush(simulation::RegistryKey& top);  // puts it and all below it into their usual form

  simulation::RegistryKey& root_;
  // By upper-cased name: the subkeys, which the key itself is without for now, and where in the key the values are.
  std::unordered_map<simulation::RegistryKey*, Subkeys> manySubkeys_;
  std::unordered_map<simulation::RegistryKey*, Places> manyValues_;
};

}  // namespace ztlsim
