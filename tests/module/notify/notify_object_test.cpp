#include "module/notify/notify_object.h"

#include <functional>

#include "module/notify/module_log.h"
#include "tests/support/machine_fixture.h"
#include "ztlsim/scenario/noticed_path.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Arguments;
using simulation::Operation;
using ztl::HrCreateSampleFilter;

constexpr IID kNotifyIids[] = {IID_INetCfgComponentControl, IID_INetCfgComponentSetup, IID_INetCfgComponentPropertyUi,
                               IID_INetCfgComponentNotifyBinding, IID_INetCfgComponentNotifyGlobal};

// An object of one interface that counts its references. Its last breath may touch another one.
class Counted final : public IUnknown {
 public:
  HRESULT QueryInterface(REFIID riid, void** object) override {
    *object = nullptr;
    if (riid != IID_INetCfgComponentSetup) return E_NOINTERFACE;
    AddRef();
    *object = this;
    return S_OK;
  }
  ULONG AddRef() override { return ++references; }
  ULONG Release() override {
    if (touched != nullptr) {
      touched->AddRef();
      touched->Release();
    }
    return --references;
  }

  ULONG references = 0;
  IUnknown* touched = nullptr;
};

// A path that may have no token.
class Path final : public ztlsim::NoticedPath {
 public:
  using NoticedPath::NoticedPath;
  HRESULT GetPathToken(char16_t** text) override {
    static char16_t notMemory[] = u"stale";
    if (token == S_OK) return NoticedPath::GetPathToken(text);
    *text = notMemory;  // nobody's to free
    return token;
  }

  HRESULT token = S_OK;
};

class SampleFilterTest : public MachineTest {
 protected:
  SampleFilterTest() {
    ztl::OpenModuleLog();
    netCfg_ = ComPtr<INetCfg>::Attach(simulation::CreateTransaction());
    callback_ = ComPtr<INetCfgPnpReconfigCallback>::Attach(simulation::CreatePnpReconfigCallback());
    machine_.registry.Create(std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\{1}")
        .SetValue(u"ComponentId", REG_SZ, Sz(u"qro_ztl"));
  }
  void TearDown() override {
    Release();
    netCfg_.Reset();
    callback_.Reset();
    MachineTest::TearDown();
  }

  void Create(bool installing = false) {
    ASSERT_EQ(HrCreateSampleFilter(nullptr, IID_INetCfgComponentControl, reinterpret_cast<void**>(control_.Receive())),
              S_OK);
    Query(IID_INetCfgComponentSetup, setup_);
    Query(IID_INetCfgComponentPropertyUi, page_);
    Query(IID_INetCfgComponentNotifyBinding, binding_);
    Query(IID_INetCfgComponentNotifyGlobal, global_);
    ComPtr<INetCfgComponent> component;
    ASSERT_EQ(netCfg_->FindComponent(u"QRO_ZTL", component.Receive()), S_OK);
    EXPECT_EQ(control_->Initialize(component.Get(), netCfg_.Get(), installing), S_OK);
  }
  template <class Interface>
  void Query(REFIID iid, ComPtr<Interface>& interface) {
    ASSERT_EQ(control_->QueryInterface(iid, reinterpret_cast<void**>(interface.Receive())), S_OK);
  }
  void Release() {
    setup_.Reset();
    page_.Reset();
    binding_.Reset();
    global_.Reset();
    control_.Reset();
  }

  ComPtr<INetCfg> netCfg_;
  ComPtr<INetCfgPnpReconfigCallback> callback_;
  ComPtr<INetCfgComponentControl> control_;
  ComPtr<INetCfgComponentSetup> setup_;
  ComPtr<INetCfgComponentPropertyUi> page_;
  ComPtr<INetCfgComponentNotifyBinding> binding_;
  ComPtr<INetCfgComponentNotifyGlobal> global_;
};

TEST_F(SampleFilterTest, AnswersItsFiveInterfacesWithOneIdentity) {
  Create();
  for (const IID& from : kNotifyIids)
    for (const IID& to : kNotifyIids) {
      ComPtr<IUnknown> first, second, identity;
      ASSERT_EQ(control_->QueryInterface(from, reinterpret_cast<void**>(first.Receive())), S_OK);
      ASSERT_EQ(first->QueryInterface(to, reinterpret_cast<void**>(second.Receive())), S_OK);
      ASSERT_EQ(second->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(identity.Receive())), S_OK);
      EXPECT_EQ(static_cast<void*>(identity.Get()), static_cast<void*>(control_.Get()));
    }
  void* object = this;
  EXPECT_EQ(control_->QueryInterface(IID_INetCfg, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
}

TEST_F(SampleFilterTest, AnAggregatedInstanceLivesByItsInnerIdentity) {
  Counted outer;
  ComPtr<IUnknown> inner;
  ASSERT_EQ(HrCreateSampleFilter(&outer, IID_IUnknown, reinterpret_cast<void**>(inner.Receive())), S_OK);
  EXPECT_EQ(outer.references, 0u);
  ComPtr<INetCfgComponentControl> control;
  ASSERT_EQ(inner->QueryInterface(IID_INetCfgComponentControl, reinterpret_cast<void**>(control.Receive())), S_OK);
  EXPECT_EQ(outer.references, 1u);
  void* throughOuter = nullptr;
  EXPECT_EQ(control->QueryInterface(IID_INetCfgComponentSetup, &throughOuter), S_OK);
  EXPECT_EQ(throughOuter, &outer);
  EXPECT_EQ(control->QueryInterface(IID_INetCfgComponentControl, &throughOuter), E_NOINTERFACE);
  Counted context;  // which touches the instance again in its last breath
  context.touched = inner.Get();
  ComPtr<INetCfgComponentPropertyUi> page;
  ASSERT_EQ(inner->QueryInterface(IID_INetCfgComponentPropertyUi, reinterpret_cast<void**>(page.Receive())), S_OK);
  EXPECT_EQ(page->SetContext(&context), E_NOINTERFACE);
  page.Reset();
  outer.Release();
  control.Reset();
  EXPECT_EQ(outer.references, 0u);
  TakeLog();
  inner.Reset();
  const Strings log = TakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "--> ::~CSampleFilter ApplyAction=0 OrderIM=0"), 1);
  EXPECT_EQ(ztl::g_moduleLocks, 0);
}

TEST_F(SampleFilterTest, TheActionDecidesWhatApplyAndReleaseDo) {
  struct Case {
    const char* name;
    std::function<void()> record;
    const char* apply;  // "default N" where nothing is applied
    bool installs;      // what an installation lets the release do
  };
  const Case cases[] = {
      {"none", [] {}, "default 0", true},
      {"install", [this] { setup_->Install(7); }, "eActInstall", true},
      {"upgrade", [this] { setup_->Upgrade(1, 2); }, "default 4", true},
      {"remove", [this] { setup_->Removing(); }, "eActRemove", false},
      {"add", [this] { setup_->Removing(), global_->SysNotifyComponent(NCN_ADD, nullptr); }, "default 4", true},
      {"transport", [this] { global_->SysNotifyComponent(NCN_NETTRANS | NCN_REMOVE, nullptr); }, "default 4", true},
      {"page", [this] { page_->MergePropPages(nullptr, nullptr, nullptr, nullptr, nullptr); }, "eActPropertyUI", false},
      {"service", [this] { global_->SysNotifyComponent(NCN_REMOVE | NCN_NETSERVICE, nullptr); }, "default 0", true},
  };
  for (const Case& c : cases)
    for (const bool applyPnp : {false, true}) {
      SCOPED_TRACE(c.name);
      Create();
      c.record();
      TakeLog();
      EXPECT_EQ(control_->ApplyRegistryChanges(), S_OK);
      EXPECT_EQ(TakeLog().at(1), "--> ::ApplyRegistryChanges " + std::string(c.apply));
      machine_.faults = {{.operation = Operation::RegOpenKeyExW, .times = 1000, .code = 2}};
      if (applyPnp) EXPECT_EQ(control_->ApplyPnpChanges(callback_.Get()), S_OK);
      TakeLog();
      Release();
      machine_.faults.clear();
      const Strings released = TakeLog();
      Strings expected = {released.at(0)};
      EXPECT_TRUE(released[0].ends_with(applyPnp ? "OrderIM=1" : "OrderIM=0"));
      if (c.installs && !applyPnp)
        expected.insert(expected.end(), {"GetFilterClass open NetService base rc=2", "OrderIM: GetFilterClass rc=2"});
      if (c.apply != std::string("eActRemove")) expected.push_back("Total 0 NDIS bindings");
      if (c.installs)
        expected.insert(expected.end(), {"UnBindZTLFromExcludedMacs: Platfrom 2 Major 10 Minor 0 ServPack 0",
                                         "UnBindZTLFromExcludedMacs: No ExcludedMacs on Vista"});
      EXPECT_EQ(released, expected);
    }
}

// The engine and the context are gone when the pass begins, and what they do with the object while they go does no
// harm.
TEST_F(SampleFilterTest, TheReleaseGivesTheEngineBackBeforeItOrders) {
  Counted context;
  Create();
  EXPECT_EQ(page_->SetContext(&context), E_NOINTERFACE);
  context.touched = control_.Get();
  netCfg_.Reset();
  int opened = 0;
  machine_.observer = [&](Operation operation, const Arguments&) {
    if (operation != Operation::RegOpenKeyExW) return;
    ++opened;
    EXPECT_EQ(machine_.engine.objects, 1);  // the test's own
    EXPECT_EQ(context.references, 0u);
  };
  Release();
  machine_.observer = nullptr;
  EXPECT_GT(opened, 0);
}

TEST_F(SampleFilterTest, ARestartIsAskedForWhenAStackChangedOrTheBridgeStays) {
  struct Case {
    bool wrongStack;
    bool remove;
    bool bridge;
    HRESULT expected;
  };
  for (const Case& c :
       {Case{false, true, false, S_OK}, Case{false, true, true, NETCFG_S_REBOOT}, Case{false, false, true, S_OK},
        Case{true, false, false, NETCFG_S_REBOOT}, Case{true, true, false, NETCFG_S_REBOOT}}) {
    simulation::RegistryKey& network =
        machine_.registry.Create(std::u16string(kNetwork) + u"\\{4D36E975-E325-11CE-BFC1-08002BE10318}");
    network.DeleteSubkey(u"{bridge}");
    if (c.bridge) network.CreateSubkey(u"{bridge}").SetValue(u"ComponentId", REG_SZ, Sz(u"MS_Bridge"));
    if (c.wrongStack) AddWrongStack();
    Create();
    if (c.remove) setup_->Removing();
    EXPECT_EQ(control_->ApplyPnpChanges(callback_.Get()), c.expected);
    control_->ApplyPnpChanges(nullptr);
    Release();
  }
  ASSERT_EQ(machine_.engine.pnpReconfigs.size(), 5u);
  const simulation::PnpReconfig& sent = machine_.engine.pnpReconfigs.back();
  EXPECT_EQ(sent.layer, NCRL_NDIS);
  EXPECT_EQ(sent.upper, u"ztl2000");
  EXPECT_EQ(sent.lower, u"{00000000-0000-0000-0000-000000000000}");
  EXPECT_EQ(sent.data, Bytes(std::u16string_view(u"\0", 1)));
}

TEST_F(SampleFilterTest, BindingNoticesAreTracedAndNeverRefused) {
  Create();
  DWORD notifications = 0;
  EXPECT_EQ(global_->GetSupportedNotifications(&notifications), S_OK);
  EXPECT_EQ(notifications, 0x000B0137u);
  TakeLog();
  ztlsim::PathNotice notice = {u"a%b", S_OK};
  Path path(notice);
  auto expect = [&](HRESULT hr, const char* first, const char* second, const char* token) {
    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(TakeLog(), (Strings{first, second, token}));
  };
  expect(global_->SysQueryBindingPath(0x10, &path), "--> ::SysQueryBindingPath dwChangeFlag 0x00000010",
         "--> ::SysQueryBindingPath path enable", "PathToken <a%b>");
  notice.enabled = S_FALSE;
  expect(global_->SysNotifyBindingPath(0x20, &path), "--> ::SysNotifyBindingPath, dwChangeFlag 0x00000020",
         "--> ::SysNotifyBindingPath path disable", "PathToken <a%b>");
  notice.enabled = E_FAIL;
  expect(binding_->QueryBindingPath(1, &path), "--> ::QueryBindingPath dwChangeFlag 0x00000001",
         "--> ::QueryBindingPath path error", "PathToken <a%b>");
  path.token = S_FALSE;
  expect(binding_->NotifyBindingPath(1, &path), "--> ::NotifyBindingPath dwChangeFlag 0x00000001",
         "--> ::NotifyBindingPath path error", "GetPathToken hr=1");
}

}  // namespace
