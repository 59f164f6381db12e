// Setting and deleting keys and values of a registry in bulk.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/simulated/registry.h"

namespace ztlsim {

// Takes names in any order, however many there are below one key. Keys with many subkeys or values are in a form of
// their own as long as the merger lives: nobody else may use the registry meanwhile.
class RegistryMerger {
 public:
  using Path = std::vector<std::u16string_view>;  // a name for each level, from the hive on; never empty

  explicit RegistryMerger(platform::simulated::Registry& registry) : root_(registry.Root()) {}
  ~RegistryMerger() { Settle(root_); }
  RegistryMerger(const RegistryMerger&) = delete;
  RegistryMerger& operator=(const RegistryMerger&) = delete;

  // Follows links, as Registry::Create does. The result is the registry's, until it or a key above it is deleted.
  platform::simulated::RegistryKey& CreateKey(const Path& path);
  void DeleteKey(const Path& path);  // with everything below it; a link itself, not what it stands for
  void SetValue(platform::simulated::RegistryKey& key, const std::u16string& name, platform::DWORD type,
                std::vector<platform::BYTE> data);
  void DeleteValue(platform::simulated::RegistryKey& key, const std::u16string& name);

 private:
  using Subkeys = std::unordered_map<std::u16string_view, std::shared_ptr<platform::simulated::RegistryKey>>;
  using Places = std::unordered_map<std::u16string, std::size_t>;

  Subkeys* ManySubkeys(platform::simulated::RegistryKey& key);  // null while they are few
  Places* ManyValues(platform::simulated::RegistryKey& key);    // null while they are few
  platform::simulated::RegistryKey* FindSubkey(platform::simulated::RegistryKey& key, std::u16string_view name);
  void Settle(platform::simulated::RegistryKey& top);  // gives it and all below it their usual form

  platform::simulated::RegistryKey& root_;
  // By upper-cased name: the subkeys, which the key itself is without for now, and where in the key the values are.
  std::unordered_map<platform::simulated::RegistryKey*, Subkeys> manySubkeys_;
  std::unordered_map<platform::simulated::RegistryKey*, Places> manyValues_;
};

}  // namespace ztlsim
