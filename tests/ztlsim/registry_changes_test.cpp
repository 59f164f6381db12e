#include "ztlsim/registry_changes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "ztlsim/registry_export.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {
namespace {

using platform::BYTE;
using platform::REG_BINARY;
using platform::simulated::Registry;
using platform::simulated::RegistryKey;

// The registry's export in 8 bits, without the order in which values were created.
std::string Sorted(Registry& registry) {
  std::vector<RegistryKey*> keys{&registry.Root()};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    std::sort(keys[i]->values.begin(), keys[i]->values.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    for (const auto& subkey : keys[i]->subkeys) keys.push_back(subkey.get());
  }
  return FormatRegistryExport(registry);
}

TEST(RegistryChanges, AreListedInOrderAndWritten) {
  Registry before;
  RegistryKey& key = before.Create(u"HKEY_LOCAL_MACHINE\\Key");
  key.SetValue(u"gone", REG_BINARY, {1});
  key.SetValue(u"", REG_BINARY, {1});
  key.SetValue(u"Same", REG_BINARY, {1});
  key.SetValue(u"type", REG_BINARY, {1});
  before.Create(u"HKEY_LOCAL_MACHINE\\Key\\a\\below").SetValue(u"x", REG_BINARY, {});
  before.Create(u"HKEY_LOCAL_MACHINE\\target");
  const auto after = before.Copy();
  RegistryKey& changed = *after->Find(u"HKEY_LOCAL_MACHINE\\Key");
  changed.SetValue(u"new", REG_BINARY, {2});
  changed.SetValue(u"type", platform::REG_NONE, {1});
  changed.SetValue(u"", REG_BINARY, {1, 2});
  changed.DeleteValue(u"gone");
  changed.DeleteValue(u"same");
  changed.SetValue(u"SAME", REG_BINARY, {1});  // letter case and order alone are no change
  changed.DeleteSubkey(u"a");
  after->Create(u"HKEY_LOCAL_MACHINE\\Key\\B\\c").SetValue(u"", REG_BINARY, {3});
  after->Create(u"HKEY_USERS");
  after->Link(u"HKEY_LOCAL_MACHINE\\link", u"HKEY_LOCAL_MACHINE\\target");

  const auto changes = CompareRegistries(before, *after);
  std::string listed;
  for (const RegistryChange& change : changes) {
    listed += Utf16ToUtf8(change.key) + (change.name ? "|" + Utf16ToUtf8(*change.name) : "");
    listed += std::string(change.before ? " before" : "") + (change.after ? " after" : "") +
              (change.keyCreated ? " created" : "") + (change.keyDeleted ? " deleted" : "") + "\n";
  }
  EXPECT_EQ(listed, R"(HKEY_LOCAL_MACHINE\Key|gone before
HKEY_LOCAL_MACHINE\Key| before after
HKEY_LOCAL_MACHINE\Key|type before after
HKEY_LOCAL_MACHINE\Key|new after
HKEY_LOCAL_MACHINE\Key\a deleted
HKEY_LOCAL_MACHINE\Key\B created
HKEY_LOCAL_MACHINE\Key\B\c created
HKEY_LOCAL_MACHINE\Key\B\c| after
HKEY_USERS created
)");
  EXPECT_EQ(changes[1].before->data, std::vector<BYTE>{1});
  EXPECT_EQ(changes[1].after->data, (std::vector<BYTE>{1, 2}));

  const std::string bytes = FormatRegistryChanges(changes);
  const std::u16string text(reinterpret_cast<const char16_t*>(bytes.data()), bytes.size() / 2);
  std::string lines = Utf16ToUtf8(text);
  std::erase(lines, '\r');
  EXPECT_EQ(lines,
            "\uFEFF"
            R"(Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\Key]
"gone"=-
@=hex:01,02
"type"=hex(0):01
"new"=hex:02

[-HKEY_LOCAL_MACHINE\Key\a]

[HKEY_LOCAL_MACHINE\Key\B]

[HKEY_LOCAL_MACHINE\Key\B\c]
@=hex:03

[HKEY_USERS]

)");
}

// Both with few values in a key and with many, which are looked up in another way.
TEST(RegistryChanges, TurnTheOneIntoTheOther) {
  std::mt19937 random(7);
  const auto below = [&](std::size_t end) { return static_cast<std::size_t>(random() % end); };
  for (std::size_t round = 0; round < 200; ++round) {
    const std::size_t names = round % 20 == 0 ? 300 : 4;
    const auto path = [&] {
      std::u16string text = below(2) != 0 ? u"HKEY_USERS" : u"HKEY_CURRENT_USER";
      for (std::size_t levels = below(4); levels > 0; --levels) text += {u'\\', static_cast<char16_t>(u'a' + below(3))};
      return text;
    };
    const auto change = [&](Registry& registry) {
      for (std::size_t steps = below(5 * names); steps > 0; --steps) {
        const std::u16string at = path();
        const std::u16string name = below(5) == 0 ? u"" : Utf8ToUtf16(std::to_string(below(names)));
        const std::size_t action = below(8);
        if (action < 5) {
          registry.Create(at).SetValue(name, static_cast<platform::DWORD>(below(5)), std::vector<BYTE>(below(4)));
        } else if (action == 5) {
          registry.Create(at).DeleteValue(name);
        } else if (RegistryKey* const key = registry.Find(at);
                   key != nullptr && action == 6 && key->parent != nullptr) {
          key->parent->DeleteSubkey(std::u16string(key->name));
        }
      }
    };
    Registry before;
    change(before);
    const auto after = before.Copy();
    change(*after);
    const auto error = ReadRegistryExport("t", FormatRegistryChanges(CompareRegistries(before, *after)), before);
    ASSERT_FALSE(error) << error->Text();
    ASSERT_EQ(Sorted(before), Sorted(*after)) << round;
    ASSERT_TRUE(CompareRegistries(before, *after).empty());
  }
}

}  // namespace
}  // namespace ztlsim
