#include "module/notify/module.h"

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/notify/notify_object.h"
#include "module/notify/registrar.h"
#include "simulation/resources.h"
#include "tests/support/machine_fixture.h"
#include "tests/support/random_registry.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;

const std::u16string kClassId = u"HKEY_CLASSES_ROOT\\CLSID\\{5b1e7c42-93d0-4f6a-8e25-c07a1d39b4e8}";

class ModuleTest : public MachineTest {
 protected:
  void SetUp() override { ztl::DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr); }
  void TearDown() override {
    ztl::DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    EXPECT_EQ(ztl::g_ModuleLog.available, 0u);
    MachineTest::TearDown();
  }
  std::vector<BYTE> Value(const std::u16string& key, std::u16string_view name) {
    return machine_.registry.Find(key)->FindValue(name)->data;
  }
};

TEST_F(ModuleTest, TheClassObjectMakesInstancesThatKeepTheModule) {
  void* object = this;
  IClassFactory* factory = nullptr;
  EXPECT_EQ(ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory, nullptr), E_POINTER);
  EXPECT_EQ(ztl::DllGetClassObject(CLSID_CNetCfg, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_INetCfg, &object), E_NOINTERFACE);
  EXPECT_EQ(ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_IUnknown, &object), S_OK);
  ASSERT_EQ(ztl::DllGetClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory, reinterpret_cast<void**>(&factory)),
            S_OK);
  EXPECT_EQ(ztl::DllCanUnloadNow(), S_OK);
  EXPECT_EQ(factory->LockServer(1), S_OK);
  EXPECT_EQ(ztl::DllCanUnloadNow(), S_FALSE);
  EXPECT_EQ(factory->LockServer(0), S_OK);

  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(factory->CreateInstance(factory, IID_IClassFactory, &object), CLASS_E_NOAGGREGATION);
  IUnknown* instance = nullptr;
  ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&instance)), S_OK);
  EXPECT_EQ(ztl::DllCanUnloadNow(), S_FALSE);
  // The instance gives its share back before its release sequence begins.
  HRESULT whileReleasing = S_FALSE;
  machine_.observer = [&](Operation operation, const simulation::Arguments&) {
    if (operation == Operation::GetVersionExW) whileReleasing = ztl::g_moduleLocks == 0 ? S_OK : S_FALSE;
  };
  instance->Release();
  machine_.observer = nullptr;
  EXPECT_EQ(whileReleasing, S_OK);
  TakeLog();
  EXPECT_EQ(ztl::DllCanUnloadNow(), S_OK);
  EXPECT_EQ(TakeLog(), Strings{"DllCanUnloadNow hr=0"});
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_INetCfg, &object), E_NOINTERFACE);
  EXPECT_EQ(ztl::DllCanUnloadNow(), S_OK);
}

TEST_F(ModuleTest, RegisteringWritesTheClassAndUnregisteringRemovesIt) {
  struct Case {
    std::u16string path;
    HRESULT result;
  };
  const Case cases[] = {{u"C:\\Windows\\System32\\ztli64x.dll", S_OK},
                        {u"C:\\It's 100% %MODULE%\\''.dll", S_OK},
                        {std::u16string(259, u'p'), S_OK},
                        {std::u16string(260, u'p'), HresultFromBits(0x8007007A)}};
  machine_.registry.Create(kClassId + u"\\Old\\Key");
  for (const Case& c : cases) {
    machine_.module.path = c.path;
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(ztl::DllRegisterServer(), c.result);
    if (c.result != S_OK) continue;
    EXPECT_EQ(Value(kClassId, u""), Sz(u"ZTL Filter Configuration Notify Object"));
    ASSERT_EQ(machine_.registry.Find(kClassId)->subkeys.size(), 1u);
    EXPECT_EQ(Value(kClassId + u"\\InProcServer32", u""), Sz(c.path));
    EXPECT_EQ(Value(kClassId + u"\\InProcServer32", u"ThreadingModel"), Sz(u"Apartment"));
  }
  TakeLog();
  machine_.module.path.resize(100);
  for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(ztl::DllUnregisterServer(), S_OK);
  EXPECT_EQ(TakeLog().at(0), "DllUnregisterServer");
  EXPECT_EQ(machine_.registry.Find(kClassId), nullptr);
  EXPECT_NE(machine_.registry.Find(u"HKEY_CLASSES_ROOT\\CLSID"), nullptr);
  EXPECT_EQ(machine_.Calls(Operation::CoFreeUnusedLibraries), 2u);

  machine_.faults = {{.operation = Operation::FindResourceW, .code = 1813}};
  EXPECT_EQ(ztl::DllRegisterServer(), HresultFromError(1813));
}

TEST_F(ModuleTest, ARegistrationThatFailsLeavesNothing) {
  machine_.registry.Create(u"HKEY_CLASSES_ROOT\\CLSID");
  machine_.module.path.resize(1);
  const std::uint64_t earlier = machine_.Calls(Operation::RegSetValueExW);
  for (std::uint64_t n = 1; n <= 3; ++n) {
    machine_.faults = {{.operation = Operation::RegSetValueExW, .first = n, .code = 5}};
    EXPECT_EQ(ztl::DllRegisterServer(), HresultFromError(5));
    EXPECT_EQ(machine_.registry.Find(kClassId), nullptr);
  }
  machine_.faults.clear();
  EXPECT_EQ(machine_.Calls(Operation::RegSetValueExW) - earlier, 6u);

  const auto& resource = simulation::kResources[0];
  const std::string good(reinterpret_cast<const char*>(resource.data), resource.bytes);
  const std::string registry = Dump(machine_.registry.Root());
  auto replaced = [&good](std::string_view from, std::string_view to) {
    std::string script = good;
    return script.replace(script.find(from), from.size(), to);
  };
  const std::string bad[] = {"",
                             "HKCR",
                             "HKCR {",
                             "HKCR { } }",
                             "HKXX { }",
                             "HKCR { 'a }",
                             "HKCR { = s 'x' }",
                             "HKCR { ForceRemove }",
                             "HKCR { Delete }",
                             "HKCR { a = d '1' }",
                             "HKCR { a = s x }",
                             "HKCR { a { val = s 'x' } }",
                             "HKCR { a { val } = s 'x' } }",
                             "HKCR { a\\b }",
                             "HKCR { val a = s '' }",
                             "HKCR { NoRemove ForceRemove a }",
                             std::string("HKCR { a }\0", 11),
                             "HKCR { " + std::string(700, 'n') + " }",
                             replaced("= s 'Apartment'", "s 'Apartment'"),
                             replaced("'%MODULE%'", "'%MODULE%"),
                             good.substr(0, good.size() / 2),
                             good + "more"};
  for (const std::string& script : bad) {
    SCOPED_TRACE(script);
    EXPECT_EQ(ztl::RunRegistrationScript(script, u"m", true), E_FAIL);
    EXPECT_EQ(ztl::RunRegistrationScript(script, u"m", false), E_FAIL);
    EXPECT_EQ(Dump(machine_.registry.Root()), registry);
  }
  // What was there before a registration failed stays; what it made goes, also around a key that cannot be made.
  machine_.registry.Create(u"HKEY_CLASSES_ROOT\\Old").SetValue(u"kept", REG_SZ, Sz(u"x"));
  const std::string tooLong(256, 'n');
  EXPECT_TRUE(
      Failed(ztl::RunRegistrationScript("HKCR { New New { a } Old { ForceRemove " + tooLong + " } }", u"m", true)));
  EXPECT_EQ(machine_.registry.Find(u"HKEY_CLASSES_ROOT\\New"), nullptr);
  EXPECT_EQ(Value(u"HKEY_CLASSES_ROOT\\Old", u"kept"), Sz(u"x"));
  // A link to a key that is gone can neither be opened nor deleted; that is no reason to try for ever.
  machine_.registry.Create(kClassId);
  machine_.registry.Link(kClassId + u"\\link", u"HKEY_USERS\\target");
  machine_.registry.Find(u"HKEY_USERS")->DeleteSubkey(u"target");
  EXPECT_EQ(ztl::DllRegisterServer(), HresultFromError(ERROR_ACCESS_DENIED));
  machine_.registry.Find(u"HKEY_CLASSES_ROOT\\CLSID")->DeleteSubkey(u"{5b1e7c42-93d0-4f6a-8e25-c07a1d39b4e8}");

  const auto nested = [](int keys) {
    std::string script = "HKCU {";
    for (int i = 0; i < keys; ++i) script += " k {";
    for (int i = 0; i < keys; ++i) script += " }";
    return script + " }";
  };
  const auto inAll = [](int keys) {
    std::string script = "HKCU {";
    for (int i = 0; i < keys; ++i) script += " k" + std::to_string(i);
    return script + " }";
  };
  const auto word = [](std::size_t size) { return "HKCU { k = s '" + std::string(size, 'w') + "' }"; };
  machine_.registry.Create(u"HKEY_CURRENT_USER");
  const auto before = machine_.registry.Copy();
  const std::pair<std::string, HRESULT> limits[] = {
      {nested(31), S_OK}, {nested(32), S_OK},  {nested(33), E_FAIL}, {nested(1000), E_FAIL}, {inAll(63), S_OK},
      {inAll(64), S_OK},  {inAll(65), E_FAIL}, {word(598), S_OK},    {word(599), S_OK},      {word(600), E_FAIL}};
  for (const auto& [script, result] : limits) {
    EXPECT_EQ(ztl::RunRegistrationScript(script, u"m", true), result) << script;
    EXPECT_EQ(Dump(machine_.registry.Root()) == Dump(before->Root()), result != S_OK);
    EXPECT_EQ(ztl::RunRegistrationScript(script, u"m", false), result);
    EXPECT_EQ(Dump(machine_.registry.Root()), Dump(before->Root()));
  }
  // Nested keys that are not marked are removed with their script.
  EXPECT_EQ(ztl::RunRegistrationScript("HKCU { a { b { val 'c d' = s 'e''f' } } }", u"m", true), S_OK);
  EXPECT_EQ(Value(u"HKEY_CURRENT_USER\\a\\b", u"c d"), Sz(u"e'f"));
  EXPECT_EQ(ztl::RunRegistrationScript("HKCU { a { b { val 'c d' = s 'e''f' } } }", u"m", false), S_OK);
  EXPECT_EQ(machine_.registry.Find(u"HKEY_CURRENT_USER\\a"), nullptr);
}

}  // namespace
