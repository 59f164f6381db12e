#include "module/install/registry_tree.h"

#include <map>
#include <random>

#include "module/install/saved_parameters.h"
#include "module/log/log_facility.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_fixture.h"
#include "tests/support/random_registry.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;
using simulation::RegistryKey;

constexpr std::u16string_view kSource = u"HKEY_LOCAL_MACHINE\\From";
constexpr std::u16string_view kTarget = u"HKEY_LOCAL_MACHINE\\To";

class RegistryTreeTest : public MachineTest {
 protected:
  void SetUp() override { ztl::OpenModuleLog(); }
  void Copy(DWORD overwrite) { ztl::CopyRegTree(HKEY_LOCAL_MACHINE, u"From", HKEY_LOCAL_MACHINE, u"To", overwrite); }
};

// What a copy leaves, worked out on the trees themselves.
void CopyExpected(const RegistryKey& from, RegistryKey& to, bool overwrite) {
  for (const auto& value : from.values) {
    if (value.data.size() > 520) break;
    const auto* const there = to.FindValue(value.name);
    if (overwrite || there == nullptr || there->type != value.type || there->data.size() > 520)
      to.SetValue(value.name, value.type, value.data);
  }
  for (const auto& subkey : from.subkeys)
    if (simulation::UpperCase(subkey->name) != u"ADAPTERS")
      CopyExpected(*subkey, to.CreateSubkey(subkey->name), overwrite);
}

void FillAtRandom(RegistryKey& key, std::mt19937& random, int depth) {
  const char16_t* const names[] = {u"", u"A", u"b", u"Adapters", u"aDAPTERS", u"Adapters2", u"Order"};
  const std::size_t sizes[] = {0, 2, 4, 9, 519, 520, 521};
  for (auto count = random() % 5; count > 0; --count) {
    std::vector<BYTE> data(sizes[random() % std::size(sizes)]);
    for (BYTE& byte : data) byte = static_cast<BYTE>(random() % 3);
    const DWORD types[] = {REG_SZ, REG_DWORD, REG_MULTI_SZ, REG_BINARY};
    key.SetValue(names[random() % std::size(names)], types[random() % std::size(types)], data);
  }
  for (auto count = random() % 4; depth > 0 && count > 0; --count)
    FillAtRandom(key.CreateSubkey(names[1 + random() % (std::size(names) - 1)]), random, depth - 1);
}

TEST_F(RegistryTreeTest, RandomTreesAreCopiedAndDeletedAsTheyShould) {
  ztl::CloseModuleLog();
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    RegistryKey& root = machine_.registry.Create(u"HKEY_LOCAL_MACHINE");
    for (const char16_t* const name : {u"From", u"To", u"Expected"}) root.DeleteSubkey(name);
    FillAtRandom(machine_.registry.Create(kSource), random, 4);
    const auto state = random;
    FillAtRandom(machine_.registry.Create(kTarget), random, 4);
    random = state;
    FillAtRandom(machine_.registry.Create(u"HKEY_LOCAL_MACHINE\\Expected"), random, 4);
    const DWORD overwrite = random() % 2;
    Copy(overwrite);
    CopyExpected(*machine_.registry.Find(kSource), *machine_.registry.Find(u"HKEY_LOCAL_MACHINE\\Expected"),
                 overwrite != 0);
    ASSERT_EQ(Dump(*machine_.registry.Find(kTarget)), Dump(*machine_.registry.Find(u"HKEY_LOCAL_MACHINE\\Expected")));
    EXPECT_EQ(ztl::DeleteKey(HKEY_LOCAL_MACHINE, u"To"), ERROR_SUCCESS);
    EXPECT_EQ(machine_.registry.Find(kTarget), nullptr);
  }
}

TEST_F(RegistryTreeTest, AdaptersIsKnownByTheSystemsComparison) {
  const char16_t* const names[] = {u"ADAPTERS", u"Adap\u00ADters", u"\u200DaDAPTERS", u"Adapters2", u"Adapter"};
  for (const char16_t* const name : names) machine_.registry.Create(kSource).CreateSubkey(name);
  Copy(1);
  EXPECT_EQ(Dump(*machine_.registry.Find(kTarget)), "Adapter \nAdapters2 \n");
}

TEST_F(RegistryTreeTest, WhatCannotBeDeletedStaysWithItsParents) {
  for (const char16_t* const path : {u"\\a", u"\\b\\c\\d", u"\\b\\c\\e", u"\\f"})
    machine_.registry.Create(std::u16string(kSource) + path);
  machine_.faults = {
      {.operation = Operation::RegDeleteKeyW,
       .times = 9,
       .code = 5,
       .matches = [](Operation, const simulation::Arguments& a) { return std::u16string_view(a.name) == u"d"; }}};
  EXPECT_EQ(ztl::DeleteKey(HKEY_LOCAL_MACHINE, u"From"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(TakeLog(), (Strings{"DeleteKey From", "DeleteKey a", "DeleteKey b", "DeleteKey c", "DeleteKey d",
                                "DeleteKey: RegDeleteKey rc=5", "DeleteKey e", "DeleteKey: RegDeleteKey rc=5",
                                "DeleteKey: RegDeleteKey rc=5", "DeleteKey f", "DeleteKey: RegDeleteKey rc=5"}));
  machine_.faults.clear();
  EXPECT_EQ(Dump(*machine_.registry.Find(kSource)), "b \nb\\c \nb\\c\\d \n");
  EXPECT_EQ(ztl::DeleteKey(HKEY_LOCAL_MACHINE, u"none"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(TakeLog(), Strings{"DeleteKey none"});
}

TEST_F(RegistryTreeTest, RestoringFillsInWhatIsMissing) {
  const std::u16string service = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZTL";
  const std::u16string product = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark\\ZTL";
  const std::string copied =
      "--> CopyRegTree: Software\\Quillmark\\ZTL\\Parameters System\\CurrentControlSet\\Services\\ZTL\\Parameters";
  machine_.registry.Create(service).SetValue(u"DeleteFlag", REG_DWORD, {1, 0, 0, 0});
  ztl::RestoreZtlParams();  // with nothing saved
  EXPECT_EQ(TakeLog(),
            (Strings{"--> RestoreZtlParams", copied, "CopyRegTree: RegOpenKeyEx rc=2",
                     "DeleteKey Software\\Quillmark\\ZTL\\Parameters", copied, "CopyRegTree: RegOpenKeyEx rc=2"}));
  EXPECT_EQ(machine_.registry.Find(service)->FindValue(u"DeleteFlag"), nullptr);
  EXPECT_NE(machine_.registry.Find(product), nullptr);

  auto& live = machine_.registry.Create(service + u"\\Parameters");
  live.SetValue(u"Fresh", REG_DWORD, {1, 0, 0, 0});
  live.SetValue(u"Typed", REG_DWORD, {1, 0, 0, 0});
  auto& saved = machine_.registry.Create(product + u"\\Parameters");
  saved.SetValue(u"Fresh", REG_DWORD, {2, 0, 0, 0});
  saved.SetValue(u"Typed", REG_SZ, Sz(u"text"));
  saved.SetValue(u"Bare", REG_SZ, Bytes(u"no end"));
  saved.CreateSubkey(u"Adapters").SetValue(u"x", REG_SZ, {});
  saved.CreateSubkey(u"Order").SetValue(u"y", REG_SZ, {});
  // A copy that cannot be thrown away is used a second time.
  machine_.faults = {{.operation = Operation::RegDeleteKeyW, .first = 3, .code = 5}};
  ztl::RestoreZtlParams();
  EXPECT_EQ(live.FindValue(u"Fresh")->data[0], 1);
  EXPECT_EQ(live.FindValue(u"Typed")->type, REG_SZ);
  EXPECT_EQ(live.FindValue(u"Bare")->data, Bytes(u"no end"));
  EXPECT_EQ(live.FindSubkey(u"Adapters"), nullptr);
  EXPECT_NE(live.FindSubkey(u"Order"), nullptr);
  EXPECT_EQ(LogErrors(), Strings{"DeleteKey: RegDeleteKey rc=5"});
}

}  // namespace
