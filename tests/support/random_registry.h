// Registries as text, and registries made at random, for the tests of what reads and writes them.
#pragma once

#include <cstddef>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

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

// Changes registries at random, the same on every run. Keys and values have few names, so that they come and go.
class RandomChanges {
 public:
  RandomChanges(unsigned seed, std::size_t valueNames) : random_(seed), valueNames_(valueNames) {}

  void Make(simulation::Registry& registry, std::size_t steps) {
    for (; steps > 0; --steps) {
      std::u16string path = Below(2) != 0 ? u"HKEY_USERS" : u"HKEY_LOCAL_MACHINE";
      for (std::size_t levels = Below(4); levels > 0; --levels) path += u'\\' + Name(u"", Below(3));
      const std::u16string name = Below(5) == 0 ? u"" : Name(u"\\\r\n", Below(valueNames_));
      const std::size_t action = Below(8);
      auto& key = registry.Create(path);
      if (action == 6) key.DeleteValue(name);
      if (action == 7 && key.parent->parent != nullptr) key.parent->DeleteSubkey(std::u16string(key.name));
      if (action >= 6) continue;
      const platform::DWORD types[] = {1, 1, 1, 2, 3, 4, 7, 11, 0x1F, 0xFFFF0000};
      std::vector<platform::BYTE> data(Below(2) != 0 ? 4 : Below(100));
      for (auto& byte : data) byte = static_cast<platform::BYTE>(Below(4) != 0 ? 0 : random_());
      key.SetValue(name, types[Below(std::size(types))], data);
    }
  }

 private:
  std::size_t Below(std::size_t end) { return static_cast<std::size_t>(random_() % end); }
  // A name of odd characters, the same for the same number.
  static std::u16string Name(std::u16string_view more, std::size_t number) {
    std::mt19937 random(static_cast<unsigned>(number));
    const std::u16string letters = u"aAb][-;=@\" \t\x00E9\x20AC\xD800\xDC00\xFEFF" + std::u16string(more);
    std::u16string name;
    for (auto length = random() % 40; length > 0; --length) name += letters[random() % letters.size()];
    return name + ztlsim::Utf8ToUtf16(std::to_string(number)) + letters[random() % letters.size()];
  }

  std::mt19937 random_;
  const std::size_t valueNames_;
};

}  // namespace ztl_test
