// What only the simulated registry has: direct access to the tree, links, refused rights, copies, faults, leaks.
#include "platform/simulated/machine.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace platform::simulated {
namespace {

using Texts = std::vector<std::u16string>;

class SimulatedRegistry : public ::testing::Test {
 protected:
  LSTATUS Open(const char16_t* path, DWORD access = KEY_READ) {
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, &key_);
  }
  LSTATUS Create(const char16_t* path, DWORD options = 0) {
    return RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key_, nullptr);
  }
  static Texts Names(const RegistryKey& key) {
    Texts names;
    for (const auto& subkey : key.subkeys) names.push_back(subkey->name);
    return names;
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

TEST_F(SimulatedRegistry, HandlesAreNumberedTheSameOnEveryRun) {
  std::vector<std::intptr_t> runs[2];
  for (auto& values : runs) {
    Machine machine;
    const CurrentMachine current(machine);
    HKEY first, second, third;
    for (HKEY* key : {&first, &second})
      RegCreateKeyExW(HKEY_USERS, u"A", 0, nullptr, 0, KEY_READ, nullptr, key, nullptr);
    RegCloseKey(first);
    RegOpenKeyExW(second, nullptr, 0, KEY_READ, &third);
    EXPECT_EQ(RegCloseKey(first), ERROR_INVALID_HANDLE);  // in the same place, but another handle
    for (HKEY key : {first, second, third}) values.push_back(reinterpret_cast<std::intptr_t>(key));
  }
  EXPECT_EQ(runs[0], runs[1]);
  for (const std::intptr_t value : runs[0]) EXPECT_TRUE(value > 0 && value % 4 == 0) << value;
}

TEST_F(SimulatedRegistry, ReadingLeavesNoTrace) {
  char16_t name[8];
  DWORD length = 8;
  EXPECT_EQ(RegEnumKeyExW(HKEY_USERS, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(RegQueryValueExW(HKEY_CURRENT_USER, u"x", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"CLSID", 0, KEY_READ, &key_), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u""), ERROR_ACCESS_DENIED);
  EXPECT_EQ(registry_.Find(u"HKEY_LOCAL_MACHINE"), nullptr);
  EXPECT_TRUE(registry_.Root().subkeys.empty());
}

TEST_F(SimulatedRegistry, TheTreeAndTheOperationsSeeTheSameKeys) {
  registry_.Create(u"HKEY_CLASSES_ROOT\\.inf").SetValue(u"", REG_BINARY, {7});
  EXPECT_EQ(Open(u"software\\classes\\.INF"), ERROR_SUCCESS);
  BYTE data = 0;
  DWORD size = 1;
  EXPECT_EQ(RegQueryValueExW(key_, nullptr, nullptr, nullptr, &data, &size), ERROR_SUCCESS);
  EXPECT_EQ(data, 7);
  EXPECT_EQ(registry_.PathOf(key_), u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\.inf");
  ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"New", 0, nullptr, 0, KEY_READ, nullptr, &key_, nullptr), 0);
  EXPECT_NE(registry_.Find(u"hkey_classes_root\\new"), nullptr);
  EXPECT_EQ(registry_.PathOf(HKEY_USERS), u"HKEY_USERS");
  EXPECT_EQ(registry_.PathOf(nullptr), u"");
}

TEST_F(SimulatedRegistry, KeepsTheOrderOfSubkeysAndValues) {
  RegistryKey& key = registry_.Create(u"HKEY_USERS\\Order");
  for (const char16_t* name : {u"a_", u"Ab", u"\u00E4", u"10", u"AZ", u"2"}) key.CreateSubkey(name);
  EXPECT_EQ(Names(key), (Texts{u"10", u"2", u"Ab", u"AZ", u"a_", u"\u00E4"}));  // '_' comes after 'Z'
  for (const char16_t* name : {u"z", u"M", u"a", u"m"}) key.SetValue(name, REG_BINARY, {1, 2});
  EXPECT_TRUE(key.DeleteValue(u"Z"));
  ASSERT_EQ(key.values.size(), 2u);
  EXPECT_EQ(key.values[0], (RegistryValue{u"M", REG_BINARY, {1, 2}}));
  EXPECT_EQ(key.values[1].name, u"a");
  const std::u16string longest(255, u'n'), tooLong(256, u'n');
  EXPECT_EQ(Create(longest.c_str()), ERROR_SUCCESS);
  EXPECT_EQ(Create(tooLong.c_str()), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Open(tooLong.c_str()), ERROR_INVALID_PARAMETER);
}

TEST_F(SimulatedRegistry, ALinkStandsForItsTarget) {
  RegistryKey& target = registry_.Create(u"HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001");
  registry_.Link(u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet", u"HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001");
  EXPECT_EQ(Create(u"SYSTEM\\CurrentControlSet\\Services\\X"), ERROR_SUCCESS);
  EXPECT_EQ(registry_.PathOf(key_), u"HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001\\Services\\X");
  EXPECT_EQ(registry_.Find(u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet"), &target);
  EXPECT_EQ(Names(*registry_.Find(u"HKEY_LOCAL_MACHINE\\SYSTEM")), (Texts{u"ControlSet001", u"CurrentControlSet"}));
  registry_.Link(u"HKEY_LOCAL_MACHINE\\Leaf", u"HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001\\Services\\X");
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Leaf"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"SYSTEM\\CurrentControlSet\\Services\\X"), ERROR_SUCCESS);
  EXPECT_TRUE(target.FindSubkey(u"services")->subkeys.empty());
  ASSERT_TRUE(registry_.Find(u"HKEY_LOCAL_MACHINE\\SYSTEM")->DeleteSubkey(u"ControlSet001"));
  EXPECT_EQ(Open(u"SYSTEM\\CurrentControlSet"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Create(u"SYSTEM\\CurrentControlSet"), ERROR_SUCCESS);  // a plain key now
  EXPECT_EQ(registry_.PathOf(key_), u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet");
  EXPECT_EQ(Open(u"SYSTEM\\CurrentControlSet"), ERROR_SUCCESS);
}

TEST_F(SimulatedRegistry, RefusesDeniedRights) {
  constexpr DWORD kDelete = 0x10000;
  RegistryKey& key = registry_.Create(u"HKEY_LOCAL_MACHINE\\Guarded");
  const struct {
    DWORD denied;
    LSTATUS read, all, largest, create, remove;
  } kCases[] = {{0, 0, 0, 0, 0, 0},
                {KEY_SET_VALUE, 0, 5, 0, 0, 0},
                {KEY_CREATE_SUB_KEY, 0, 5, 0, 5, 0},
                {kDelete, 0, 5, 0, 0, 5},
                {KEY_ALL_ACCESS, 5, 5, 5, 5, 5}};
  for (const auto& c : kCases) {
    key.denied = 0;
    key.DeleteSubkey(u"New");
    RegistryKey& sub = key.CreateSubkey(u"Sub");
    key.denied = sub.denied = c.denied;
    EXPECT_EQ(Open(u"Guarded", KEY_READ), c.read);
    EXPECT_EQ(Open(u"Guarded", KEY_ALL_ACCESS), c.all);
    EXPECT_EQ(RegOpenKeyW(HKEY_LOCAL_MACHINE, u"Guarded", &key_), c.largest);
    // The largest access is what is left.
    const LSTATUS set = c.denied & KEY_SET_VALUE ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    EXPECT_EQ(key_ ? RegSetValueExW(key_, u"v", 0, REG_BINARY, nullptr, 0) : set, set);
    EXPECT_EQ(Create(u"Guarded\\New"), c.create);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Guarded\\Sub"), c.remove);
  }
}

TEST_F(SimulatedRegistry, ListsWhatIsStillOpen) {
  ASSERT_EQ(Create(u"Kept"), ERROR_SUCCESS);
  ASSERT_EQ(Create(u"Deleted"), ERROR_SUCCESS);
  ASSERT_EQ(Create(u"Closed"), ERROR_SUCCESS);
  RegCloseKey(key_);
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Deleted");
  EXPECT_EQ(registry_.OpenHandles(), 2u);
  EXPECT_EQ(registry_.OpenHandlePaths(), (Texts{u"HKEY_LOCAL_MACHINE\\Kept", u"Deleted"}));
}

TEST_F(SimulatedRegistry, CopiesAndRestarts) {
  ASSERT_EQ(Create(u"Lasting\\Target"), ERROR_SUCCESS);
  ASSERT_EQ(Create(u"Volatile", REG_OPTION_VOLATILE), ERROR_SUCCESS);
  EXPECT_TRUE(registry_.Create(u"HKEY_LOCAL_MACHINE\\Volatile\\Marker").isVolatile);
  registry_.Find(u"HKEY_LOCAL_MACHINE\\Lasting\\Target")->denied = KEY_SET_VALUE;
  registry_.Find(u"HKEY_LOCAL_MACHINE\\Lasting")->SetValue(u"Value", REG_SZ, {1});
  registry_.Link(u"HKEY_LOCAL_MACHINE\\Lasting\\Link", u"HKEY_LOCAL_MACHINE\\Lasting\\Target");
  registry_.Link(u"HKEY_LOCAL_MACHINE\\Lasting\\Circle", u"HKEY_LOCAL_MACHINE\\Lasting");
  registry_.Link(u"HKEY_LOCAL_MACHINE\\Lasting\\Broken", u"HKEY_LOCAL_MACHINE\\Volatile");
  const std::unique_ptr<Registry> copy = registry_.Copy();
  registry_.Restart();
  EXPECT_EQ(registry_.OpenHandles(), 0u);
  EXPECT_EQ(RegCloseKey(key_), ERROR_INVALID_HANDLE);
  EXPECT_EQ(registry_.Find(u"HKEY_LOCAL_MACHINE\\Volatile"), nullptr);
  EXPECT_EQ(registry_.Find(u"HKEY_LOCAL_MACHINE\\Lasting\\Broken"), nullptr);
  EXPECT_EQ(registry_.Copy()->Find(u"HKEY_LOCAL_MACHINE\\Lasting\\Broken"), nullptr);
  registry_.Root().DeleteSubkey(u"HKEY_LOCAL_MACHINE");

  EXPECT_EQ(copy->OpenHandles(), 0u);
  EXPECT_TRUE(copy->Find(u"HKEY_LOCAL_MACHINE\\Volatile\\Marker")->isVolatile);
  const RegistryKey* const target = copy->Find(u"HKEY_LOCAL_MACHINE\\Lasting\\Target");
  ASSERT_EQ(copy->Open(HKEY_LOCAL_MACHINE, u"Lasting\\Link", KEY_READ, &key_), ERROR_SUCCESS);
  EXPECT_EQ(copy->PathOf(key_), u"HKEY_LOCAL_MACHINE\\Lasting\\Target");
  EXPECT_EQ(target->denied, KEY_SET_VALUE);
  EXPECT_EQ(copy->Find(u"HKEY_LOCAL_MACHINE\\Lasting\\Circle\\Link"), target);
  EXPECT_EQ(copy->Find(u"HKEY_LOCAL_MACHINE\\Lasting\\Broken"), copy->Find(u"HKEY_LOCAL_MACHINE\\Volatile"));
  EXPECT_EQ(copy->Find(u"HKEY_LOCAL_MACHINE\\Lasting")->values, (std::vector<RegistryValue>{{u"Value", REG_SZ, {1}}}));
}

TEST_F(SimulatedRegistry, FaultsFailTheCallsTheyName) {
  ASSERT_EQ(Create(u"Key"), ERROR_SUCCESS);
  const HKEY key = key_;
  machine_.faults.push_back({.operation = Operation::RegSetValueExW, .first = 2, .code = 1450, .matches = {}});
  machine_.faults.push_back({.operation = Operation::RegOpenKeyExW, .code = ERROR_ACCESS_DENIED, .matches = {}});
  for (const LSTATUS expected : {0, 1450, 0}) {
    registry_.Find(u"HKEY_LOCAL_MACHINE\\Key")->DeleteValue(u"v");
    EXPECT_EQ(RegSetValueExW(key, u"v", 0, REG_BINARY, nullptr, 0), expected);
    EXPECT_EQ(registry_.Find(u"HKEY_LOCAL_MACHINE\\Key")->values.size(), expected ? 0u : 1u);
  }
  EXPECT_EQ(Open(u"Key"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(key_, nullptr);
  EXPECT_EQ(Open(u"Key"), ERROR_SUCCESS);
  EXPECT_EQ(machine_.Calls(Operation::RegSetValueExW), 3u);
}

TEST_F(SimulatedRegistry, TheObserverSeesWhatWasAskedFor) {
  std::vector<std::tuple<Operation, HKEY, std::u16string, std::int64_t, std::int64_t, std::size_t>> seen;
  machine_.observer = [&](Operation operation, const Arguments& a) {
    seen.emplace_back(operation, a.key, a.name ? a.name : u"", a.number, a.number2, a.dataBytes);
  };
  BYTE data[6];
  char16_t name[9];
  DWORD length = 9, size = 6;
  Create(u"Key", REG_OPTION_VOLATILE);
  RegSetValueExW(key_, u"Value", 0, REG_DWORD, data, 4);
  RegQueryValueExW(key_, u"Value", nullptr, nullptr, data, &size);
  size = 5;
  RegEnumValueW(key_, 3, name, &length, nullptr, nullptr, data, &size);
  RegEnumKeyExW(key_, 2, name, &length, nullptr, nullptr, nullptr, nullptr);
  RegCloseKey(key_);
  const decltype(seen) expected = {
      {Operation::RegCreateKeyExW, HKEY_LOCAL_MACHINE, u"Key", KEY_ALL_ACCESS, REG_OPTION_VOLATILE, 0},
      {Operation::RegSetValueExW, key_, u"Value", 4, REG_DWORD, 4},
      {Operation::RegQueryValueExW, key_, u"Value", 0, 6, 0},
      {Operation::RegEnumValueW, key_, u"", 3, 9, 5},
      {Operation::RegEnumKeyExW, key_, u"", 2, 9, 0},
      {Operation::RegCloseKey, key_, u"", 0, 0, 0},
  };
  EXPECT_EQ(seen, expected);
}

TEST_F(SimulatedRegistry, DeepTreesNeedNoStack) {
  constexpr int kDepth = 100'000;
  RegistryKey* key = &registry_.Create(u"HKEY_LOCAL_MACHINE\\Deep");
  for (int i = 0; i < kDepth; ++i) key = &key->CreateSubkey(u"k");
  const std::unique_ptr<Registry> copy = registry_.Copy();
  copy->Restart();
  int depth = -1;
  for (key = copy->Find(u"HKEY_LOCAL_MACHINE\\Deep"); key; key = key->FindSubkey(u"K")) ++depth;
  EXPECT_EQ(depth, kDepth);
  ASSERT_EQ(Open(u"Deep\\k\\k"), ERROR_SUCCESS);
  EXPECT_TRUE(registry_.Find(u"HKEY_LOCAL_MACHINE")->DeleteSubkey(u"Deep"));
  EXPECT_EQ(RegSetValueExW(key_, u"v", 0, REG_BINARY, nullptr, 0), ERROR_KEY_DELETED);  // opened for reading, too
}

}  // namespace
}  // namespace platform::simulated
