// The simulated configuration engine as its clients see it: sessions, the write lock, components and binding paths.
#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <utility>

#include "module/names.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "platform/com_ptr.h"
#include "platform/multi_string.h"
#include "platform/netcfg.h"
#include "tests/support/machine_fixture.h"
#include "tests/support/random_registry.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;
using namespace std::string_literals;

class EngineTest : public MachineTest {
 protected:
  struct Client {
    ComPtr<INetCfg> netCfg;
    ComPtr<INetCfgLock> lock;

    HRESULT Lock(DWORD timeout = 100) { return lock->AcquireWriteLock(timeout, u"client", nullptr); }
    void Open() {
      EXPECT_EQ(Lock(), S_OK);
      EXPECT_EQ(netCfg->Initialize(nullptr), S_OK);
    }
  };
  static Client MakeClient() {
    Client client{ComPtr<INetCfg>::Attach(simulation::CreateNetCfg()), {}};
    client.netCfg->QueryInterface(IID_INetCfgLock, reinterpret_cast<void**>(client.lock.Receive()));
    return client;
  }
  static ComPtr<IEnumNetCfgBindingPath> Paths(const Client& client, const char16_t* component) {
    ComPtr<INetCfgComponent> found;
    ComPtr<INetCfgComponentBindings> bindings;
    ComPtr<IEnumNetCfgBindingPath> paths;
    EXPECT_EQ(client.netCfg->FindComponent(component, found.Receive()), S_OK);
    EXPECT_EQ(found->QueryInterface(IID_INetCfgComponentBindings, reinterpret_cast<void**>(bindings.Receive())), S_OK);
    EXPECT_EQ(bindings->EnumBindingPaths(EBP_BELOW, paths.Receive()), S_OK);
    return paths;
  }
  static ComPtr<INetCfgBindingPath> Path(const Client& client, const char16_t* component, int index = 0) {
    const auto paths = Paths(client, component);
    ComPtr<INetCfgBindingPath> path;
    for (; index >= 0 && paths->Next(1, path.Receive(), nullptr) == S_OK;) --index;
    return path;
  }
  static HRESULT Change(const char16_t* component, int path, BOOL enable) {
    Client client = MakeClient();
    client.Open();
    EXPECT_EQ(Path(client, component, path)->Enable(enable), S_OK);
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
  Client client = MakeClient();
  EXPECT_EQ(client.netCfg->Uninitialize(), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(client.netCfg->Apply(), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(client.netCfg->Cancel(), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(client.netCfg->FindComponent(u"qro_ztl", nullptr), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(client.netCfg->QueryNetCfgClass(&GUID_DEVCLASS_NET, IID_INetCfgClass, &object), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(client.lock->ReleaseWriteLock(), NETCFG_E_NO_WRITE_LOCK);

  ASSERT_EQ(client.netCfg->Initialize(nullptr), S_OK);  // without the lock: for looking
  EXPECT_EQ(client.netCfg->Initialize(nullptr), NETCFG_E_ALREADY_INITIALIZED);
  EXPECT_EQ(client.Lock(), NETCFG_E_ALREADY_INITIALIZED);
  EXPECT_EQ(client.netCfg->Apply(), NETCFG_E_NO_WRITE_LOCK);
  ComPtr<INetCfgBindingPath> path = Path(client, u"QRO_ZTL");
  EXPECT_EQ(path->IsEnabled(), S_OK);
  EXPECT_EQ(path->Enable(0), NETCFG_E_NO_WRITE_LOCK);
  ComPtr<INetCfgClassSetup> setup;
  ASSERT_EQ(client.netCfg->QueryNetCfgClass(&GUID_DEVCLASS_NETSERVICE, IID_INetCfgClassSetup,
                                            reinterpret_cast<void**>(setup.Receive())),
            S_OK);
  EXPECT_EQ(setup->Install(u"qro_ztl", nullptr, 0, 0, nullptr, nullptr, nullptr), NETCFG_E_NO_WRITE_LOCK);
  EXPECT_EQ(client.netCfg->Uninitialize(), S_OK);
  EXPECT_EQ(client.netCfg->Uninitialize(), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(path->IsEnabled(), NETCFG_E_NOT_INITIALIZED);
  EXPECT_EQ(path->Enable(1), NETCFG_E_NOT_INITIALIZED);

  EXPECT_EQ(client.Lock(), S_OK);
  EXPECT_EQ(client.Lock(), NETCFG_E_IN_USE);
  EXPECT_EQ(client.netCfg->Initialize(nullptr), S_OK);
  EXPECT_EQ(client.lock->ReleaseWriteLock(), NETCFG_E_ALREADY_INITIALIZED);
  EXPECT_EQ(client.netCfg->QueryNetCfgClass(&GUID_DEVCLASS_NET, IID_INetCfg, &object), E_NOINTERFACE);
  // A client that goes without closing leaves nothing behind; the fixture looks.
}

TEST_F(EngineTest, OnlyWhatIsAppliedLasts) {
  const struct {
    const char* end;
    std::function<void(Client&)> undo;  // what becomes of a path that has been disabled, and not applied
  } cases[] = {
      {"closed", [](Client& client) { client.netCfg->Uninitialize(), client.netCfg->Initialize(nullptr); }},
      {"cancelled", [](Client& client) { client.netCfg->Cancel(); }},
      {"enabled again", [](Client& client) { Path(client, u"qro_ztl")->Enable(1); }},
      {"gone", [](Client& client) { client = {}, client = MakeClient(), client.Open(); }},
  };
  const std::string before = Dump(machine_.registry.Root());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.end);
    Client client = MakeClient();
    client.Open();
    EXPECT_EQ(Path(client, u"qro_ztl")->Enable(0), S_OK);
    EXPECT_EQ(Path(client, u"qro_ztl")->IsEnabled(), S_FALSE);
    c.undo(client);
    EXPECT_EQ(client.netCfg->Apply(), S_OK);
    EXPECT_EQ(Path(client, u"qro_ztl")->IsEnabled(), S_OK);
    EXPECT_EQ(Dump(machine_.registry.Root()), before);
  }
}

// Neither what another session applies nor its closing touches what a session has.
TEST_F(EngineTest, ASessionHasTheStacksOfItsBeginningAndItsOwnLock) {
  Client client = MakeClient();
  client.Open();
  EXPECT_EQ(Change(u"qro_ztl", 0, 0), S_OK);
  { EXPECT_EQ(MakeClient().netCfg->Initialize(nullptr), S_OK); }
  EXPECT_EQ(machine_.engine.lockHolders, 1);
  EXPECT_EQ(Path(client, u"qro_ztl")->IsEnabled(), S_OK);
  EXPECT_EQ(Path(client, u"a")->Enable(0), S_OK);
  EXPECT_EQ(client.netCfg->Apply(), S_OK);
  EXPECT_EQ(Path(client, u"qro_ztl")->IsEnabled(), S_FALSE);
  EXPECT_EQ(Linkage(u"0000", u"UpperBind").data, MultiSz({u"Tcpip"}));
  client.netCfg->Uninitialize();

  machine_.faults = {{.operation = Operation::RegOpenKeyExW, .first = 3, .code = ERROR_ACCESS_DENIED}};
  EXPECT_EQ(client.netCfg->Initialize(nullptr), HresultFromError(ERROR_ACCESS_DENIED));
  EXPECT_EQ(client.netCfg->Uninitialize(), NETCFG_E_NOT_INITIALIZED);
}

TEST_F(EngineTest, EnumeratorsSayHowManyTheyGave) {
  AddAdapter(u"0004", u"{Q}", u"pci", u"", {u"{Q}"}, {u"Tcpip"});  // an adapter without "ComponentId" is one, too
  Instance(u"0004").SetValue(u"DeviceInstanceID", REG_SZ, Sz(u"Dev\\0004"));
  Instance(u"0005").SetValue(u"DriverDesc", REG_SZ, Sz(u"set aside"));  // and what has no name is none
  Client client = MakeClient();
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
    Client client = MakeClient();
    client.Open();
    std::u16string tokens;
    for (int index = 0; const auto path = Path(client, u"qro_ztl", index); ++index) {
      char16_t* token = nullptr;
      EXPECT_EQ(path->GetPathToken(&token), S_OK);
      tokens += token + std::u16string(u" ");
      CoTaskMemFree(token);
    }
    EXPECT_EQ(tokens, c.tokens);
  }
}

TEST_F(EngineTest, ANotifyObjectHearsOfItsOwnPathsAndAsItWantsOfOthers) {
  machine_.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
  ztl::OpenModuleLog();
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  const struct {
    const char16_t* component;
    std::string query, notice, token;
  } cases[] = {{u"qro_ztl", "::QueryBindingPath dw", "::NotifyBindingPath dw", "PathToken <qro_ztl->Dev\\0000>"},
               {u"a", "::SysQueryBindingPath dw", "::SysNotifyBindingPath, dw", "PathToken <a->Dev\\0000>"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Change(c.component, 0, 0), S_OK);
    Strings log = TakeLog();
    log.resize(10);
    const std::size_t name = c.query.find("Query");
    const std::string state = c.query.substr(0, name), own = "--> " + state;
    EXPECT_EQ(log,
              (Strings{"--> ::CSampleFilter", "--> EnumCount 0", "--> ::Initialize", "--> ::GetSupportedNotifications",
                       "--> " + c.query + "ChangeFlag 0x00000120", own + "QueryBindingPath path disable", c.token,
                       "--> " + c.notice + "ChangeFlag 0x00000120", own + "NotifyBindingPath path disable", c.token}));
  }
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
    ASSERT_EQ(Change(c.component, 0, 0), S_OK);
    EXPECT_EQ(Linkage(u"0000", u"UpperBind").data, c.bound);
    const bool isZtl = std::u16string(c.component) == u"qro_ztl";
    EXPECT_EQ(Linkage(u"0002", u"UpperBind").data, isZtl ? MultiSz({}) : MultiSz({u"Tcpip"}));
    EXPECT_EQ(Linkage(u"0002", u"RootDevice").data, isZtl ? MultiSz({u"{Z}"}) : MultiSz({u"{Z}", u"{P}"}));
  }
  // What would be bound to an instance that is not in the stack reaches the card no more.
  machine_.registry.CopyFrom(*registry);
  Instance(u"0002\\Linkage").SetValue(u"RootDevice", REG_MULTI_SZ, MultiSz({u"{Z}"}));
  const std::string before = Dump(machine_.registry.Root());
  EXPECT_EQ(Change(u"a", 0, 0), HresultFromError(ERROR_INVALID_DATA));
  EXPECT_EQ(Dump(machine_.registry.Root()), before);
}

// What stands in the registry of stacks that the test below makes: virtual adapters are named after their filter.
struct Linked {
  Strings root, bound;
};
using Stacks = std::map<std::string, Linked>;  // by instance name

Strings ListOf(const simulation::RegistryKey& instance, const char16_t* name) {
  Strings texts;
  const auto* const linkage = instance.FindSubkey(u"Linkage");
  const auto* const value = linkage != nullptr ? linkage->FindValue(name) : nullptr;
  if (value == nullptr || value->type != REG_MULTI_SZ) return texts;
  const std::u16string text(reinterpret_cast<const char16_t*>(value->data.data()), value->data.size() / 2);
  for (const auto entry : MultiStringView(text.data(), text.size())) texts.push_back(ztlsim::Utf16ToUtf8(entry));
  return texts;
}

Stacks ReadStacks(simulation::Registry& registry) {
  Stacks stacks;
  for (const auto& instance : registry.Create(kNetClass).subkeys) {
    const auto& name = instance->FindValue(u"NetCfgInstanceId")->data;
    stacks[ztlsim::Utf16ToUtf8(reinterpret_cast<const char16_t*>(name.data()))] = {ListOf(*instance, u"RootDevice"),
                                                                                   ListOf(*instance, u"UpperBind")};
  }
  return stacks;
}

// The transports that reach each card.
std::set<std::string> Reached(const Stacks& stacks) {
  std::set<std::string> reached;
  for (const auto& [name, linked] : stacks)
    for (const std::string& service : linked.bound)
      if (service.size() > 1 && !linked.root.empty() && linked.root.back()[0] == 'P')
        reached.insert(service + " " + linked.root.back());
  return reached;
}

// Whether each entry of a stack has the rest as its own stack, and the filter above it bound to it.
bool AreWhole(const Stacks& stacks) {
  return std::all_of(stacks.begin(), stacks.end(), [&](const auto& stack) {
    const Strings& root = stack.second.root;
    if (root.empty() || root[0] != stack.first) return false;
    const auto below = root.size() > 1 ? stacks.find(root[1]) : stacks.end();
    const auto isService = [&root](const std::string& bound) {
      return root[0][0] == '{' ? bound.size() == 1 : bound == root[0].substr(0, 1);  // the engine has made it
    };
    return root.size() == 1 ||
           (below != stacks.end() && below->second.bound.size() == 1 && isService(below->second.bound[0]) &&
            below->second.root == Strings(root.begin() + 1, root.end()));
  });
}

// Stacks of three filters, every other time with damaged values, and with writes that fail.
TEST_F(EngineTest, AStackStaysWholeOrUntouched) {
  std::mt19937 random(7);
  const auto below = [&random](std::size_t end) { return random() % end; };
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
        const std::u16string name = {above[i], card};
        stack.insert(0, name + u'\0');
        add(name, stack, i + 1 < above.size() ? std::u16string(1, above[i + 1]) : u"Tcpip\0T"s + card);
      }
    }
    if (below(2) != 0) add(u"Aspare", u"Aspare\0"s, u"");
    for (std::size_t faults = round % 2 != 0 ? 1 + below(3) : 0; faults > 0; --faults) {
      const auto& instances = machine_.registry.Create(kNetClass).subkeys;
      auto& linkage = instances[below(instances.size())]->CreateSubkey(u"Linkage");
      const char16_t* const name = below(2) != 0 ? u"RootDevice" : u"UpperBind";
      const auto* const other = instances[below(instances.size())]->CreateSubkey(u"Linkage").FindValue(name);
      switch (below(4)) {
        case 0:
          linkage.SetValue(name, REG_SZ, Sz(u"Tcpip"));
          break;
        case 1:
          linkage.parent->SetValue(u"MatchingDeviceId", REG_SZ, Sz(u"unknown"));
          break;
        case 2:
          if (other != nullptr) linkage.SetValue(name, other->type, std::vector<BYTE>(other->data));
          break;
        default:
          linkage.DeleteValue(name);
      }
    }
    const std::string dump = Dump(machine_.registry.Root());
    const Stacks before = ReadStacks(machine_.registry);
    Client client = MakeClient();
    client.Open();
    const std::u16string filter = u"id" + filters.substr(below(3), 1);
    const auto path = Path(client, filter.c_str(), static_cast<int>(below(3)));
    if (!path) continue;
    SCOPED_TRACE(dump);
    EXPECT_EQ(path->Enable(path->IsEnabled() == S_FALSE), S_OK);
    const bool fails = below(3) == 0;
    if (fails) machine_.faults = {{.operation = Operation::RegSetValueExW, .first = 1 + below(9), .code = 5}};
    const HRESULT hr = client.netCfg->Apply();
    machine_.faults.clear();
    const Stacks after = ReadStacks(machine_.registry);
    const std::set<std::string> was = Reached(before), is = Reached(after);
    if (Failed(hr))
      ASSERT_EQ(Dump(machine_.registry.Root()), dump);
    else
      ASSERT_TRUE(std::includes(is.begin(), is.end(), was.begin(), was.end()));
    ASSERT_TRUE(fails || round % 2 != 0 || (hr == S_OK && AreWhole(after)));
    ++(Failed(hr) ? refused : changed);
  }
  EXPECT_GT(changed, 200);
  EXPECT_GT(refused, 50);
}

}  // namespace
