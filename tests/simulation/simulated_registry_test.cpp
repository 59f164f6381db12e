// What only the simulated registry has: direct access to the tree, links, copies, leaks.
#include "simulation/machine.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace simulation {
namespace {

using Texts = std::vector<std::u16string>;
using Values = std::vector<RegistryValue>;

class SimulatedRegistry : public ::testing::Test {
 protected:
  LSTATUS Open(const char16_t* path, DWORD access = KEY_READ) {
    return RegOpenKeyExW(HKEY_USERS, path, 0, access, &key_);
  }
  LSTATUS Create(const char16_t* path, DWORD options = 0) {
    return RegCreateKeyExW(HKEY_USERS, path, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key_, nullptr);
  }

  Machine machine_;
  CurrentMachine current_{machine_};
  Registry& registry_ = machine_.registry;
  HKEY key_ = nullptr;  // what was opened last
};

TEST(UpperCase, MapsAsWindowsDoes) {
  EXPECT_EQ(UpperCase(u"az{`19_\u00E4\u00FF\u0436\u03C9"), u"AZ{`19_\u00C4\u0178\u0416\u03A9");
  // No single unit, or another letter's upper case: such characters stay.
  EXPECT_EQ(UpperCase(u"\u00DF\u0131\u017F\u00B5\u03C2\U00010428"), u"\u00DF\u0131\u017F\u00B5\u03C2\U00010428");
}

TEST_F(SimulatedRegistry, AHandleIsListedUntilItIsClosedAndNotGivenTwice) {
  ASSERT_EQ(Create(u"Gone"), ERROR_SUCCESS);
  ASSERT_EQ(Create(u"Key"), ERROR_SUCCESS);
  const HKEY closed = key_;
  RegCloseKey(closed);
  ASSERT_EQ(Create(u"Key\\Sub"), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(closed), ERROR_INVALID_HANDLE);
  RegDeleteKeyW(HKEY_USERS, u"Gone");
  EXPECT_EQ(registry_.OpenHandlePaths(), (Texts{u"Gone", u"HKEY_USERS\\Key\\Sub"}));
  EXPECT_EQ(registry_.OpenHandles(), 2u);
}

TEST_F(SimulatedRegistry, ALinkStandsForItsTarget) {
  registry_.Link(u"HKEY_USERS\\Link", u"HKEY_USERS\\Target");
  EXPECT_EQ(Create(u"Link\\Sub"), ERROR_SUCCESS);
  EXPECT_EQ(registry_.PathOf(key_), u"HKEY_USERS\\Target\\Sub");
  registry_.Link(u"HKEY_USERS\\Leaf", u"HKEY_USERS\\Link\\Sub");
  EXPECT_EQ(RegDeleteKeyW(HKEY_USERS, u"Leaf"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(HKEY_USERS, u"Link\\Sub"), ERROR_SUCCESS);
  EXPECT_TRUE(registry_.Find(u"HKEY_USERS\\Target")->subkeys.empty());
  registry_.Find(u"HKEY_USERS")->DeleteSubkey(u"Target");
  EXPECT_EQ(Open(u"Link"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Create(u"Link"), ERROR_SUCCESS);  // a plain key now
  EXPECT_EQ(Open(u"Link"), ERROR_SUCCESS);
}

TEST_F(SimulatedRegistry, VolatileKeysAreListedLast) {
  for (const auto& [name, options] : {std::pair(u"K\\b", 0u), {u"K\\a", 1u}, {u"K\\c", 0u}, {u"K\\d", 1u}})
    ASSERT_EQ(Create(name, options), ERROR_SUCCESS);
  ASSERT_EQ(Open(u"K"), ERROR_SUCCESS);
  std::u16string names;
  char16_t name[9];
  for (DWORD length = 9; RegEnumKeyExW(key_, static_cast<DWORD>(names.size()), name, &length, nullptr, nullptr, nullptr,
                                       nullptr) == ERROR_SUCCESS;
       length = 9) {
    names += name;
    HKEY opened;
    EXPECT_EQ(RegOpenKeyExW(key_, name, 0, KEY_READ, &opened), ERROR_SUCCESS);
    EXPECT_TRUE(registry_.PathOf(opened).ends_with(name));
  }
  EXPECT_EQ(names, u"bcad");
}

// What code Windows gives for too many levels is not known.
TEST_F(SimulatedRegistry, ATreeHas512LevelsBelowItsHive) {
  std::u16string path = u"a";
  for (std::size_t levels = 2; levels < kMaxKeyLevels; ++levels) path += u"\\a";
  for (const LSTATUS status : {ERROR_SUCCESS, ERROR_SUCCESS, ERROR_INVALID_PARAMETER}) {  // of 511, 512 and 513 levels
    EXPECT_EQ(Create(path.c_str()), status);
    EXPECT_EQ(registry_.Find(u"HKEY_USERS\\" + path) != nullptr, status == ERROR_SUCCESS);
    path += u"\\a";
  }
}

TEST_F(SimulatedRegistry, CopiesAndRestarts) {
  registry_.Create(u"HKEY_USERS\\Key").SetValue(u"Value", REG_SZ, {1});
  registry_.Create(u"HKEY_USERS\\Key\\Sub").denied = KEY_SET_VALUE;
  registry_.Link(u"HKEY_USERS\\Key\\Link", u"HKEY_USERS\\Key\\Sub");
  registry_.Link(u"HKEY_USERS\\Circle", u"HKEY_USERS");
  ASSERT_EQ(Create(u"Volatile", REG_OPTION_VOLATILE), ERROR_SUCCESS);
  registry_.Create(u"HKEY_USERS\\Volatile\\Sub");
  registry_.Link(u"HKEY_USERS\\Key\\Broken", u"HKEY_USERS\\Volatile");
  const std::unique_ptr<Registry> copy = registry_.Copy();
  registry_.Restart();
  EXPECT_EQ(RegCloseKey(key_), ERROR_INVALID_HANDLE);
  EXPECT_EQ(registry_.Find(u"HKEY_USERS\\Volatile"), nullptr);
  EXPECT_EQ(registry_.Find(u"HKEY_USERS\\Key\\Broken"), nullptr);
  EXPECT_EQ(registry_.Copy()->Find(u"HKEY_USERS\\Key\\Broken"), nullptr);
  registry_.Root().DeleteSubkey(u"HKEY_USERS");
  EXPECT_EQ(copy->OpenHandles(), 0u);
  EXPECT_EQ(copy->Find(u"HKEY_USERS\\Circle\\Key")->values, (Values{{u"Value", REG_SZ, {1}}}));
  EXPECT_EQ(copy->Find(u"HKEY_USERS\\Key\\Link")->denied, KEY_SET_VALUE);
  EXPECT_TRUE(copy->Find(u"HKEY_USERS\\Key\\Broken\\Sub")->isVolatile);
  ASSERT_EQ(copy->Open(HKEY_USERS, u"Key\\Link", KEY_READ, &key_), ERROR_SUCCESS);
  EXPECT_EQ(copy->PathOf(key_), u"HKEY_USERS\\Key\\Sub");
}

}  // namespace
}  // namespace simulation
