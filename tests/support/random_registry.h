// Registries as text.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "simulation/registry.h"
#include "ztlsim/text_encoding.h"

namespace ztl_test {

// A line for each key below `key`: its path, and "name:type:bytes " for each of its values, in the order of these
// texts.
inline std::string Dump(const simulation::RegistryKey& key, const std::string& path = "") {
  std::string result;
  for (const auto& subkey : key.subkeys) {
    std::set<std::string> values;
    for (const auto& value : subkey->values) {
      std::string bytes;
      for (const platform::BYTE byte : value.data)
        bytes += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
      values.insert(ztlsim::Utf16ToUtf8(value.name) + ":" + std::to_string(value.type) + ":" + bytes + " ");
    }
    const std::string name = path + ztlsim::Utf16ToUtf8(subkey->name);
    result += name + " ";
    for (const std::string& value : values) result += value;
    result += "\n" + Dump(*subkey, name + "\\");
  }
  return result;
}

}  // namespace ztl_test
