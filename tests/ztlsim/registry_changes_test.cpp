#include "ztlsim/scenario/registry_changes.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/random_registry.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {
namespace {

using simulation::Registry;
using simulation::RegistryKey;

TEST(RegistryChanges, AreListedInOrderAndWritten) {
  const std::string header = "Windows Registry Editor Version 5.00\n\n";
  const std::string text = "\uFEFF" + header + R"([HKEY_LOCAL_MACHINE\Key]
"gone"=-
@=hex:01,02
"type"=hex(0):01
"new"=hex:02

[-HKEY_LOCAL_MACHINE\Key\a]

[HKEY_LOCAL_MACHINE\Key\B]

[HKEY_LOCAL_MACHINE\Key\B\c]
@=hex:03

[HKEY_USERS]

)";
  Registry before;
  ReadRegistryExport(
      "t", header + "[HKLM\\Key]\n\"gone\"=hex:1\n@=hex:1\n\"Same\"=hex:1\n\"type\"=hex:1\n[HKLM\\Key\\a\\b]\n@=hex:",
      before);
  const auto after = before.Copy();
  ASSERT_EQ(ReadRegistryExport("t", text, *after), std::nullopt);
  RegistryKey& key = *after->Find(u"HKEY_LOCAL_MACHINE\\Key");
  key.DeleteValue(u"same");
  key.SetValue(u"SAME", platform::REG_BINARY, {1});  // letter case and order alone are no change
  after->Link(u"HKEY_LOCAL_MACHINE\\link", u"HKEY_LOCAL_MACHINE\\Key");

  const auto changes = CompareRegistries(before, *after);
  std::string bytes = FormatRegistryChanges(changes), listed;
  std::string written = Utf16ToUtf8({reinterpret_cast<const char16_t*>(bytes.data()), bytes.size() / 2});
  std::erase(written, '\r');
  EXPECT_EQ(written, text);
  // The bytes before and after, and whether the key came or went.
  for (const RegistryChange& change : changes) {
    listed += change.name ? Utf16ToUtf8(*change.name) + ":" : "";
    for (const auto& value : {change.before, change.after}) listed += value ? std::to_string(value->data.size()) : "-";
    listed += change.keyCreated ? " created " : change.keyDeleted ? " deleted " : " ";
  }
  EXPECT_EQ(listed, "gone:1- :12 type:11 new:-1 -- deleted -- created -- created :-1 -- created ");
}

TEST(RegistryChanges, TurnTheOneIntoTheOther) {
  for (unsigned round = 0; round < 200; ++round) {
    const std::size_t many = round % 20 == 0 ? 300 : 4;
    ztl_test::RandomChanges random(round, many);
    Registry before;
    random.Make(before, 4 * many);
    const auto after = before.Copy();
    random.Make(*after, 4 * many);
    ASSERT_FALSE(ReadRegistryExport("t", FormatRegistryChanges(CompareRegistries(before, *after)), before));
    ASSERT_EQ(ztl_test::Dump(before.Root()), ztl_test::Dump(after->Root())) << round;
    ASSERT_TRUE(CompareRegistries(before, *after).empty());
  }
}

}  // namespace
}  // namespace ztlsim
