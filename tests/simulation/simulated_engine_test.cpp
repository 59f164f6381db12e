// The simulated configuration engine as its clients see it: sessions, the write lock, components and binding paths.
#include <algorithm>
#include <functional>
#include <random>
#include <set>

#include "module/names.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "platform/com_ptr.h"
#include "platform/netcfg.h"
#include "platform/registry_key.h"
#include "tests/support/machine_fixture.h"
#include "tests/support/random_registry.h"
#include "ztlsim/inspect/adapter_instances.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;
using namespace std::string_literals;

struct Client {
  ComPtr<INetCfg> netCfg = ComPtr<INetCfg>::Attach(simulation::CreateNetCfg());
  ComPtr<INetCfgLock> lock = As<INetCfgLock>(netCfg, IID_INetCfgLock);

  template <class To, class From>
  static ComPtr<To> As(const ComPtr<From>& from, REFIID iid) {
    ComPtr<To> to;
    EXPECT_EQ(from->QueryInterface(iid, reinterpret_cast<void**>(to.Receive())), S_OK);
    return to;
  }
  HRESULT Lock() { return lock->AcquireWriteLock(100, u"client", nullptr); }
  Client& Open() {
    EXPECT_TRUE(Lock() == S_OK && netCfg->Initialize(nullptr) == S_OK);
    return *this;
  }
  ComPtr<INetCfgBindingPath> Path(const char16_t* component, int index = 0) const {
    ComPtr<INetCfgComponent> found;
    ComPtr<IEnumNetCfgBindingPath> paths;
    ComPtr<INetCfgBindingPath> path;
    EXPECT_EQ(netCfg->FindComponent(component, found.Receive()), S_OK);
    As<INetCfgComponentBindings>(found, IID_INetCfgComponentBindings)->EnumBindingPaths(EBP_BELOW, paths.Receive());
    for (; index >= 0 && paths->Next(1, path.Receive(), nullptr) == S_OK;) --index;
    return path;
  }
};

class EngineTest : public MachineTest {
 protected:
  static HRESULT Disable(const char16_t* component) {
    Client client;
    EXPECT_EQ(client.Open().Path(component)->Enable(0), S_OK);
    return client.netCfg->Apply();
  }
  simulation::RegistryKey& Instance(std::u16string_view path) {
    return machine_.registry.Create(std::u16string(kNetClass) + u"\\" + std::u16string(path));
  }
  simulation::RegistryKey& Service(std::u16string_view path) {
    return machine_.registry.Create(std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\" +
                                    std::u16string(path));
  }
  // The stack {A}, {Z} of the filter, {P} that the fixture makes, as components that the engine knows.
  void SetUp() override {
    AddWrongStack();
    Service(u"{1}").SetValue(u"ComponentId", REG_SZ, Sz(u"qro_ztl"));
    Service(u"{2}").SetValue(u"ComponentId", REG_SZ, Sz(u"a"));
    AddAdapter(u"0003", u"{P}", u"", u"", {u"{P}"}, {});  // the first one of a name counts
    for (const char16_t* const subkey : {u"0000", u"0001", u"0002", u"0003"}) {
      Instance(subkey).SetValue(u"ComponentId", REG_SZ, Sz(u"x"));
      Instance(subkey).SetValue(u"DeviceInstanceID", REG_SZ, Sz(std::u16string(u"Dev\\") + subkey));
    }
  }
};

TEST_F(EngineTest, CallsInTheWrongStateGetTheEnginesCodes) {
  void* object = nullptr;
  ComPtr<INetCfgBindingPath> path;
  ComPtr<INetCfgClassSetup> setup;
  Client c;
  const std::pair<std::function<HRESULT()>, HRESULT> calls[] = {
      {[&] { return c.netCfg->Uninitialize(); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return c.netCfg->Apply(); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return c.netCfg->Cancel(); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return c.netCfg->FindComponent(u"qro_ztl", nullptr); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return c.netCfg->QueryNetCfgClass(&GUID_DEVCLASS_NET, IID_INetCfgClass, &object); },
       NETCFG_E_NOT_INITIALIZED},
      {[&] { return c.lock->ReleaseWriteLock(); }, NETCFG_E_NO_WRITE_LOCK},
      {[&] { return c.netCfg->Initialize(nullptr); }, S_OK},  // without the lock: for looking
      {[&] { return c.netCfg->Initialize(nullptr); }, NETCFG_E_ALREADY_INITIALIZED},
      {[&] { return c.Lock(); }, NETCFG_E_ALREADY_INITIALIZED},
      {[&] { return c.netCfg->Apply(); }, NETCFG_E_NO_WRITE_LOCK},
      {[&] { return (path = c.Path(u"QRO_ZTL"))->IsEnabled(); }, S_OK},
      {[&] { return path->Enable(0); }, NETCFG_E_NO_WRITE_LOCK},
      {[&] {
         return c.netCfg->QueryNetCfgClass(&GUID_DEVCLASS_NETSERVICE, IID_INetCfgClassSetup,
                                           reinterpret_cast<void**>(setup.Receive()));
       },
       S_OK},
      {[&] { return setup->Install(u"qro_ztl", nullptr, 0, 0, nullptr, nullptr, nullptr); }, NETCFG_E_NO_WRITE_LOCK},
      {[&] { return c.netCfg->Uninitialize(); }, S_OK},
      {[&] { return c.netCfg->Uninitialize(); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return path->IsEnabled(); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return path->Enable(1); }, NETCFG_E_NOT_INITIALIZED},
      {[&] { return c.Lock(); }, S_OK},
      {[&] { return c.Lock(); }, NETCFG_E_IN_USE},
      {[&] { return c.netCfg->Initialize(nullptr); }, S_OK},
      {[&] { return c.lock->ReleaseWriteLock(); }, NETCFG_E_ALREADY_INITIALIZED},
      {[&] { return c.netCfg->QueryNetCfgClass(&GUID_DEVCLASS_NET, IID_INetCfg, &object); }, E_NOINTERFACE},
  };
  for (const auto& [call, result] : calls) EXPECT_EQ(call(), result);
  // A client that goes without closing leaves nothing behind; the fixture looks.
}

TEST_F(EngineTest, OnlyWhatIsAppliedLasts) {
  // What becomes of a path that has been disabled, and not applied.
  const std::pair<const char*, std::function<void(Client&)>> cases[] = {
      {"closed", [](Client& client) { client.netCfg->Uninitialize(), client.netCfg->Initialize(nullptr); }},
      {"cancelled", [](Client& client) { client.netCfg->Cancel(); }},
      {"enabled again", [](Client& client) { client.Path(u"qro_ztl")->Enable(1); }},
      {"gone",
       [](Client& client) {
         client = {{}, {}}, client = {}, client.Open();
       }},
  };
  const std::string before = Dump(machine_.registry.Root());
  for (const auto& [end, undo] : cases) {
    SCOPED_TRACE(end);
    Client client;
    EXPECT_EQ(client.Open().Path(u"qro_ztl")->Enable(0), S_OK);
    EXPECT_EQ(client.Path(u"qro_ztl")->IsEnabled(), S_FALSE);
    undo(client);
    EXPECT_EQ(client.netCfg->Apply(), S_OK);
    EXPECT_EQ(client.Path(u"qro_ztl")->IsEnabled(), S_OK);
    EXPECT_EQ(Dump(machine_.registry.Root()), before);
  }
}

// Neither what another session applies nor its closing touches what a session has.
TEST_F(EngineTest, ASessionHasTheStacksOfItsBeginningAndItsOwnLock) {
  Client client;
  client.Open();
  EXPECT_EQ(Disable(u"qro_ztl"), S_OK);
  { EXPECT_EQ(Client().netCfg->Initialize(nullptr), S_OK); }
  EXPECT_EQ(machine_.engine.lockHolders, 1);
  EXPECT_EQ(client.Path(u"qro_ztl")->IsEnabled(), S_OK);
  EXPECT_EQ(client.Path(u"a")->Enable(0), S_OK);
  EXPECT_EQ(client.netCfg->Apply(), S_OK);
  EXPECT_EQ(client.Path(u"qro_ztl")->IsEnabled(), S_FALSE);
  EXPECT_EQ(Linkage(u"0000", u"UpperBind").data, MultiSz({u"Tcpip"}));
  client.netCfg->Uninitialize();

  machine_.faults = {{.operation = Operation::RegOpenKeyExW, .first = 3, .code = ERROR_ACCESS_DENIED}};
  EXPECT_EQ(client.netCfg->Initialize(nullptr), HresultFromError(ERROR_ACCESS_DENIED));
  EXPECT_EQ(client.netCfg->Uninitialize(), NETCFG_E_NOT_INITIALIZED);
}

TEST_F(EngineTest, ASecondSessionGetsTheLockAsTheMachineSays) {
  for (const bool granted : {true, false}) {
    machine_.engine.grantSecondLock = granted;
    Client first, second;
    EXPECT_EQ(first.Lock(), S_OK);
    EXPECT_EQ(second.Lock(), granted ? S_OK : S_FALSE);
  }
}

TEST_F(EngineTest, EnumeratorsSayHowManyTheyGave) {
  AddAdapter(u"0004", u"{Q}", u"pci", u"", {u"{Q}"}, {u"Tcpip"});  // an adapter without "ComponentId" is one, too
  Instance(u"0004").SetValue(u"DeviceInstanceID", REG_SZ, Sz(u"Dev\\0004"));
  Instance(u"0005").SetValue(u"DriverDesc", REG_SZ, Sz(u"set aside"));  // and what has no name is none
  Client client;
  client.Open();
  ComPtr<IEnumNetCfgComponent> adapters;
  ASSERT_EQ(client.netCfg->EnumComponents(&GUID_DEVCLASS_NET, adapters.Receive()), S_OK);
  const struct {
    ULONG count, given;
    HRESULT hr;
  } calls[] = {{2, 2, S_OK}, {4, 3, S_FALSE}, {1, 0, S_FALSE}};
  for (int round = 0; round < 2; ++round, adapters->Reset())
    for (const auto& call : calls) {
      INetCfgComponent* items[4] = {};
      ULONG given = 9;
      EXPECT_EQ(adapters->Next(call.count, items, &given), call.hr);
      EXPECT_EQ(given, call.given);
      for (ULONG i = 0; i < given; ++i) ComPtr<INetCfgComponent>::Attach(items[i]);
    }
  // An adapter's parameters are in the very key of the instance.
  ComPtr<INetCfgComponent> adapter;
  ASSERT_EQ(adapters->Next(1, adapter.Receive(), nullptr), S_OK);
  HKEY key = nullptr;
  EXPECT_EQ(adapter->OpenParamKey(&key), S_OK);
  EXPECT_EQ(RegSetValueExW(key, u"Param1", 0, REG_SZ, nullptr, 0), ERROR_SUCCESS);
  RegCloseKey(key);
  EXPECT_NE(Instance(u"0000").FindValue(u"Param1"), nullptr);
  EXPECT_EQ(machine_.Calls(Operation::RegCreateKeyExW), 0u);
}

TEST_F(EngineTest, AServiceHasAPathToEachAdapterOfItsMedia) {
  AddAdapter(u"0004", u"{Q}", u"pci", u"", {u"{Q}"}, {u"NdisWan"});
  Instance(u"0004").SetValue(u"DeviceInstanceID", REG_SZ, Sz(u"Dev\\0004"));
  const auto say = [](simulation::RegistryKey& key, const char16_t* name, const char16_t* text) {
    key.CreateSubkey(u"Ndi").CreateSubkey(u"Interfaces").SetValue(name, REG_SZ, Sz(text));
  };
  const struct {
    std::function<void()> change;
    std::u16string tokens;
  } cases[] = {
      {[] {}, u"qro_ztl->Dev\\0000 qro_ztl->Dev\\0004 "},
      {[&] { say(Service(u"{1}"), u"FilterMediaTypes", u"fddi, Ethernet"); },
       u"qro_ztl->Dev\\0000 qro_ztl->Dev\\0004 "},
      {[&] { say(Instance(u"0000"), u"LowerRange", u"ethernet"), say(Instance(u"0004"), u"LowerRange", u"wan"); },
       u"qro_ztl->Dev\\0000 "},
      {[&] { say(Service(u"{1}"), u"FilterMediaTypes", u"wan"); }, u"qro_ztl->Dev\\0004 "},
      {[&] { Service(u"{1}\\Ndi").DeleteValue(u"Service"); }, u""},
  };
  for (const auto& c : cases) {
    c.change();
    Client client;
    client.Open();
    std::u16string tokens;
    for (int index = 0; const auto path = client.Path(u"qro_ztl", index); ++index) {
      char16_t* token = nullptr;
      EXPECT_EQ(path->GetPathToken(&token), S_OK);
      tokens += token + std::u16string(u" ");
      CoTaskMemFree(token);
    }
    EXPECT_EQ(tokens, c.tokens);
  }
}

// Of the filter's own ones, the transcripts of the scenarios tell.
TEST_F(EngineTest, ANotifyObjectHearsOfOthersPathsAsItWants) {
  machine_.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
  ztl::OpenModuleLog();
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  EXPECT_EQ(Disable(u"a"), S_OK);
  const Strings log = LogMessages();
  const std::string token = "PathToken <a->Dev\\0000>", flag = "dwChangeFlag 0x00000120";
  EXPECT_EQ(Strings(log.begin() + 4, log.begin() + 10),
            (Strings{"--> ::SysQueryBindingPath " + flag, "--> ::SysQueryBindingPath path disable", token,
                     "--> ::SysNotifyBindingPath, " + flag, "--> ::SysNotifyBindingPath path disable", token}));
  CoUninitialize();
}

// What comes of a filter's leaving, on damaged stacks too.
TEST_F(EngineTest, WhatIsBoundToAFilterIsInheritedInItsOrder) {
  const struct {
    const char* name;
    std::function<void()> damage;
    const char16_t* component;
    std::vector<BYTE> bound;  // to the card then
  } cases[] = {
      {"in place of the service, the topmost first",
       [this] {
         AddAdapter(u"0002", u"{Z}", u"QRO_ZTLM", u"", {u"{Z}", u"{Y}", u"{P}"}, {u"C", u"B", u"ZTL"});
         AddAdapter(u"0003", u"{Y}", u"QRO_ZTLM", u"", {u"{Y}", u"{P}"}, {u"D", u"c"});
         AddAdapter(u"0000", u"{P}", u"pci", u"", {u"{P}"}, {u"E", u"ztl", u"B", u"D"});
         AddAdapter(u"0001", u"{A}", u"a_mp", u"", {u"{A}"}, {});
       },
       u"qro_ztl", MultiSz({u"E", u"C", u"B", u"D"})},
      {"before all, where the service is not named",
       [this] { Instance(u"0000\\Linkage").SetValue(u"UpperBind", REG_MULTI_SZ, MultiSz({u"E"})); }, u"qro_ztl",
       MultiSz({u"A", u"E"})},
      {"of another type", [this] { Instance(u"0002\\Linkage").SetValue(u"UpperBind", REG_SZ, Sz(u"A")); }, u"qro_ztl",
       MultiSz({u"A"})},
      {"above an instance without a stack of its own",
       [this] { Instance(u"0002\\Linkage").DeleteValue(u"RootDevice"); }, u"a", MultiSz({u"ZTL"})},
  };
  const auto registry = machine_.registry.Copy();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    machine_.registry.CopyFrom(*registry);
    c.damage();
    ASSERT_EQ(Disable(c.component), S_OK);
    EXPECT_EQ(Linkage(u"0000", u"UpperBind").data, c.bound);
    const bool isZtl = std::u16string(c.component) == u"qro_ztl";
    EXPECT_EQ(Linkage(u"0002", u"UpperBind").data, isZtl ? MultiSz({}) : MultiSz({u"Tcpip"}));
    EXPECT_EQ(Linkage(u"0002", u"RootDevice").data, isZtl ? MultiSz({u"{Z}"}) : MultiSz({u"{Z}", u"{P}"}));
  }
  // What would be bound to an instance that is not in the stack reaches the card no more.
  machine_.registry.CopyFrom(*registry);
  Instance(u"0002\\Linkage").SetValue(u"RootDevice", REG_MULTI_SZ, MultiSz({u"{Z}"}));
  const std::string before = Dump(machine_.registry.Root());
  EXPECT_EQ(Disable(u"a"), HresultFromError(ERROR_INVALID_DATA));
  EXPECT_EQ(Dump(machine_.registry.Root()), before);
}

using Instances = std::vector<ztlsim::AdapterInstance>;

// The transports that reach each card.
std::set<std::u16string> Reached(const Instances& instances) {
  std::set<std::u16string> reached;
  for (const auto& instance : instances)
    for (const std::u16string& service : instance.upperBind)
      if (service.size() > 1 && instance.rootDevice && !instance.rootDevice->empty() &&
          instance.rootDevice->back()[0] == u'P')
        reached.insert(service + u" " + instance.rootDevice->back());
  return reached;
}

// Whether each entry of a stack has the rest as its own stack, and the filter above it bound to it.
bool AreWhole(const Instances& instances) {
  return std::all_of(instances.begin(), instances.end(), [&](const auto& instance) {
    const auto& root = instance.rootDevice;
    if (!root || root->empty() || root->front() != instance.guid) return false;
    if (root->size() == 1) return true;
    const auto below =
        std::find_if(instances.begin(), instances.end(), [&](const auto& i) { return i.guid == (*root)[1]; });
    if (below == instances.end() || below->upperBind.size() != 1) return false;
    const std::u16string& service = below->upperBind[0];  // of an instance that the engine has made, any
    return (root->front()[0] == u'{' ? service.size() == 1 : service == root->front().substr(0, 1)) &&
           below->rootDevice == std::vector(root->begin() + 1, root->end());
  });
}

// Stacks of three filters, every other time with damaged values, and with writes that fail. Virtual adapters are named
// after their filter.
TEST_F(EngineTest, AStackStaysWholeOrUntouched) {
  std::mt19937 random(7);
  const auto below = [&random](std::size_t end) { return random() % end; };
  const auto read = [] {
    UniqueKey key;
    key.Open(HKEY_LOCAL_MACHINE, kNetClass.substr(19).data(), KEY_READ);
    return ztlsim::ReadAdapterInstances(key.Get());
  };
  const std::u16string filters = u"ABC";
  int changed = 0, refused = 0;
  for (int round = 0; round < 400; ++round) {
    machine_.registry.CopyFrom(simulation::Registry());
    AddTransport(u"{1}", u"Tcpip");
    for (const char16_t filter : filters) {
      const std::u16string name(1, filter);
      AddService(name, name, u"", u"dev" + name);
      Service(name).SetValue(u"ComponentId", REG_SZ, Sz(u"id" + name));
    }
    std::u16string numbers = u"0123456789abcdef";
    std::shuffle(numbers.begin(), numbers.end(), random);
    const auto add = [&](const std::u16string& name, const std::u16string& stack, const std::u16string& bound) {
      const std::u16string number(1, numbers.back());
      numbers.pop_back();
      AddAdapter(number, name, name[0] == u'P' ? u"pci" : u"dev" + name.substr(0, 1), u"x", {}, {});
      Instance(number + u"\\Linkage").SetValue(u"RootDevice", REG_MULTI_SZ, Bytes(stack + u'\0'));
      Instance(number + u"\\Linkage").SetValue(u"UpperBind", REG_MULTI_SZ, Bytes(bound + u"\0\0"s));
    };
    for (char16_t card = u'0'; card < u'3'; ++card) {
      std::u16string above = filters, stack;
      std::shuffle(above.begin(), above.end(), random);
      above = u'P' + above.substr(below(4));
      for (std::size_t i = 0; i < above.size(); ++i) {
        stack = std::u16string{above[i], card, u'\0'} + stack;
        add({above[i], card}, stack, i + 1 < above.size() ? above.substr(i + 1, 1) : u"Tcpip\0T"s + card);
      }
    }
    if (below(2) != 0) add(u"Aspare", u"Aspare\0"s, u"");
    for (std::size_t faults = round % 2 != 0 ? 1 + below(3) : 0; faults > 0; --faults) {
      const auto& instances = machine_.registry.Create(kNetClass).subkeys;
      auto& linkage = instances[below(instances.size())]->CreateSubkey(u"Linkage");
      const char16_t* const name = below(2) != 0 ? u"RootDevice" : u"UpperBind";
      const auto* const other = instances[below(instances.size())]->CreateSubkey(u"Linkage").FindValue(name);
      const std::size_t kind = below(4);
      if (kind == 0) linkage.SetValue(name, REG_SZ, Sz(u"Tcpip"));
      if (kind == 1) linkage.parent->SetValue(u"MatchingDeviceId", REG_SZ, Sz(u"unknown"));
      if (kind == 2 && other != nullptr) linkage.SetValue(name, other->type, std::vector<BYTE>(other->data));
      if (kind == 3) linkage.DeleteValue(name);
    }
    const std::string dump = Dump(machine_.registry.Root());
    const auto was = Reached(read());
    Client client;
    const std::u16string filter = u"id" + filters.substr(below(3), 1);
    const auto path = client.Open().Path(filter.c_str(), static_cast<int>(below(3)));
    if (!path) continue;
    SCOPED_TRACE(dump);
    EXPECT_EQ(path->Enable(path->IsEnabled() == S_FALSE), S_OK);
    const bool fails = below(3) == 0;
    if (fails) machine_.faults = {{.operation = Operation::RegSetValueExW, .first = 1 + below(9), .code = 5}};
    const HRESULT hr = client.netCfg->Apply();
    machine_.faults.clear();
    const Instances after = read();
    const auto is = Reached(after);
    ASSERT_TRUE(Failed(hr) ? Dump(machine_.registry.Root()) == dump
                           : std::includes(is.begin(), is.end(), was.begin(), was.end()));
    ASSERT_TRUE(fails || round % 2 != 0 || (hr == S_OK && AreWhole(after)));
    ++(Failed(hr) ? refused : changed);
  }
  EXPECT_GT(changed, 200);
  EXPECT_GT(refused, 50);
}

}  // namespace
