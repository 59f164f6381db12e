// The simulated configuration engine as its clients see it: sessions, the write lock, components and binding paths.
#include "platform/com_ptr.h"
#include "platform/netcfg.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace platform;
using namespace ztl_test;

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
  static ComPtr<INetCfgBindingPath> Path(const Client& client, const char16_t* component, int index = 0) {
    ComPtr<INetCfgComponent> found;
    ComPtr<INetCfgComponentBindings> bindings;
    ComPtr<IEnumNetCfgBindingPath> paths;
    ComPtr<INetCfgBindingPath> path;
    EXPECT_EQ(client.netCfg->FindComponent(component, found.Receive()), S_OK);
    EXPECT_EQ(found->QueryInterface(IID_INetCfgComponentBindings, reinterpret_cast<void**>(bindings.Receive())), S_OK);
    EXPECT_EQ(bindings->EnumBindingPaths(EBP_BELOW, paths.Receive()), S_OK);
    for (; index >= 0 && paths->Next(1, path.Receive(), nullptr) == S_OK;) --index;
    return path;
  }
  // The stack {A}, {Z} of the filter, {P} that the fixture makes, as components that the engine knows.
  void SetUp() override {
    AddWrongStack();
    const std::u16string services = std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}";
    machine_.registry.Create(services + u"\\{1}").SetValue(u"ComponentId", REG_SZ, Sz(u"qro_ztl"));
    machine_.registry.Create(services + u"\\{2}").SetValue(u"ComponentId", REG_SZ, Sz(u"a"));
    AddAdapter(u"0003", u"{P}", u"", u"", {u"{P}"}, {});  // the first one of a name counts
    for (const char16_t* const subkey : {u"0000", u"0001", u"0002", u"0003"}) {
      auto& instance = machine_.registry.Create(std::u16string(kNetClass) + u"\\" + subkey);
      instance.SetValue(u"ComponentId", REG_SZ, Sz(u"x"));
      instance.SetValue(u"DeviceInstanceID", REG_SZ, Sz(std::u16string(u"Dev\\") + subkey));
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
  {
    Client client = MakeClient();
    client.Open();
    const auto path = Path(client, u"qro_ztl");
    char16_t* token = nullptr;
    EXPECT_EQ(path->GetPathToken(&token), S_OK);
    EXPECT_EQ(std::u16string(token), u"qro_ztl->Dev\\0000");
    CoTaskMemFree(token);
    EXPECT_EQ(path->Enable(0), S_OK);
    EXPECT_EQ(path->IsEnabled(), S_FALSE);
    EXPECT_EQ(Path(client, u"qro_ztl")->IsEnabled(), S_FALSE);
    Client other = MakeClient();
    EXPECT_EQ(other.netCfg->Initialize(nullptr), S_OK);
    EXPECT_EQ(Path(other, u"qro_ztl")->IsEnabled(), S_OK);
    EXPECT_FALSE(Path(client, u"qro_ztl", 1));  // the virtual adapters stand at no bottom
    EXPECT_EQ(client.netCfg->Uninitialize(), S_OK);
  }
  Client client = MakeClient();
  client.Open();
  EXPECT_EQ(client.netCfg->Apply(), S_OK);
  EXPECT_EQ(Path(client, u"qro_ztl")->IsEnabled(), S_OK);
}

}  // namespace
