#include "module/install/control_device.h"

#include "module/install/saved_parameters.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_test.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;

const std::u16string kService = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZTL";
const std::u16string kRunOnce = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
const std::u16string kSaved = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark\\ZTL\\Parameters";

class ControlDeviceTest : public MachineTest {
 protected:
  void SetUp() override {
    machine_.registry.Create(kService).SetValue(u"Start", REG_DWORD, {3, 0, 0, 0});
    machine_.registry.Create(kService + u"\\Parameters").SetValue(u"Kept", REG_SZ, Sz(u"text"));
    machine_.registry.Create(kRunOnce).SetValue(u"InstallZtl", REG_SZ, Sz(u"x"));
    ztl::OpenModuleLog();
  }
  void TearDown() override {
    EXPECT_FALSE(machine_.driver.isOpen);
    MachineTest::TearDown();
  }
};

TEST_F(ControlDeviceTest, TheVersionDecidesWhatIsSaved) {
  struct Case {
    std::optional<std::array<DWORD, 4>> version;
    DWORD packed;
    bool saves;
    Strings log;
  };
  const Case cases[] = {
      {{}, 0, false, {"ZtlRunningVersion CreateFile err=2"}},
      {{{3, 9, 255, 0}}, 0x0309FF00, false, {"ZtlRunningVersion <3.9.255.0>"}},
      {{{3, 10, 0, 1}}, 0x030A0000, true, {"ZtlRunningVersion <3.10.0.1>"}},
      {{{259, 0, 0, 0}}, 0x03000000, false, {"ZtlRunningVersion <259.0.0.0>"}},
      {{{0xFFFFFFFF, 256, 1, 4000000000}}, 0xFF000100, true, {"ZtlRunningVersion <4294967295.256.1.4000000000>"}},
  };
  for (const Case& c : cases) {
    machine_.driver = {};
    machine_.driver.version = c.version;
    machine_.registry.Find(kService)->SetValue(u"Start", REG_DWORD, {3, 0, 0, 0});
    EXPECT_EQ(ztl::ZtlRunningVersion(), c.packed);
    EXPECT_EQ(TakeLog(), c.log);
    ztl::PrepareZtlForUnload();
    EXPECT_EQ(machine_.registry.Find(kService)->FindValue(u"Start")->data[0], 4);
    EXPECT_EQ(machine_.registry.Find(kSaved) != nullptr, c.saves);
    EXPECT_EQ(machine_.registry.Find(kRunOnce)->FindValue(u"InstallZtl") == nullptr, c.saves);
    machine_.registry.Find(u"HKEY_LOCAL_MACHINE\\SOFTWARE")->DeleteSubkey(u"Quillmark");
    machine_.registry.Find(kRunOnce)->SetValue(u"InstallZtl", REG_SZ, Sz(u"x"));
    TakeLog();
  }
}

TEST_F(ControlDeviceTest, TheDriverIsAskedInThisOrder) {
  machine_.driver.version = {{3, 10, 0, 1}};
  machine_.driver.failures = {{ztl::IOCTL_ZTL_DESTROY_SYMLINK_KEY, 1167}};
  ztl::PrepareZtlForUnload();
  const std::string key = "\\Registry\\MACHINE\\Software\\Quillmark\\ZTL\\Parameters";
  EXPECT_EQ(TakeLog(), (Strings{"ZtlRunningVersion <3.10.0.1>", "--> UnlinkZtlParamKeySaveZtlParams",
                                "--> DestroySymLinkKey " + key + "\\Order 114", "--> DestroySymLinkKey status = 1167",
                                "--> UnlinkZtlParamKeySaveZtlParams " + key + " 102",
                                "--> UnlinkZtlParamKeySaveZtlParams returns status = 00000000"}));
  ASSERT_EQ(machine_.driver.requests.size(), 3u);
  EXPECT_EQ(machine_.driver.requests[1].path, u"\\Registry\\MACHINE\\Software\\Quillmark\\ZTL\\Parameters\\Order");
  EXPECT_EQ(machine_.driver.requests[1].bytes, 114u);
  EXPECT_EQ(machine_.driver.requests[1].result, 1167u);
  EXPECT_EQ(machine_.driver.requests[2].bytes, 102u);
  EXPECT_EQ(machine_.registry.Find(kSaved)->FindValue(u"Kept")->data, Sz(u"text"));
}

// The driver goes away in the middle: its parameters are copied in its place.
TEST_F(ControlDeviceTest, WithoutTheDriverTheParametersAreCopied) {
  machine_.driver.version = {{3, 10, 0, 1}};
  machine_.registry.Create(kService + u"\\Parameters\\Adapters");
  machine_.registry.Find(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion")->DeleteSubkey(u"RunOnce");
  machine_.faults = {{.operation = Operation::CreateFileW, .first = 2, .times = 9, .code = 2}};
  ztl::PrepareZtlForUnload();
  const Strings log = TakeLog();
  EXPECT_EQ(log.at(1), "FixupRegistry RegOpenKeyEx rc=2");
  EXPECT_EQ(log.at(4), "--> DestroySymLinkKey: INVALID HANDLE");
  EXPECT_EQ(log.at(6), "--> UnlinkZtlParamKeySaveZtlParams: INVALID HANDLE");
  EXPECT_EQ(machine_.registry.Find(kSaved)->FindValue(u"Kept")->data, Sz(u"text"));
  EXPECT_EQ(machine_.registry.Find(kSaved)->FindSubkey(u"Adapters"), nullptr);
}

TEST_F(ControlDeviceTest, FailedRequestsAndClosesAreTold) {
  machine_.driver.version = {{3, 10, 0, 1}};
  machine_.faults = {{.operation = Operation::DeviceIoControl, .times = 9, .code = 31},
                     {.operation = Operation::CloseHandle, .times = 9, .code = 6}};
  EXPECT_EQ(ztl::ZtlRunningVersion(), 0u);
  EXPECT_EQ(TakeLog(), Strings{"ZtlRunningVersion DeviceIoControl err=31"});
  EXPECT_EQ(ztl::DestroySymLinkKey(HKEY_LOCAL_MACHINE, u"a", u"b"), 31u);
  EXPECT_EQ(TakeLog(), (Strings{"--> DestroySymLinkKey \\Registry\\MACHINE\\a\\b 42",
                                "--> DestroySymLinkKey status = 31", "--> DestroySymLinkKey close err = 00000006"}));
  EXPECT_EQ(ztl::UnlinkZtlParamKeySaveZtlParams(), 31u);
  const Strings log = TakeLog();
  EXPECT_EQ(log.at(log.size() - 2), "--> UnlinkZtlParamKeySaveZtlParams returns status = 0000001f");
  EXPECT_EQ(log.back(), "--> UnlinkZtlParamKeySaveZtlParams close err = 00000006");
}

TEST_F(ControlDeviceTest, InstancesAreCounted) {
  EXPECT_EQ(ztl::EnumCount(), 0u);
  auto& devices = machine_.registry.Create(kService + u"\\Enum");
  EXPECT_EQ(ztl::EnumCount(), 0u);
  devices.SetValue(u"Count", REG_BINARY, {2, 1, 0, 0});
  EXPECT_EQ(ztl::EnumCount(), 258u);
  devices.SetValue(u"Count", REG_SZ, Sz(u"many"));
  EXPECT_EQ(ztl::EnumCount(), 0u);
  EXPECT_EQ(TakeLog(), (Strings{"--> EnumCount 0", "--> EnumCount 0", "--> EnumCount 258", "--> EnumCount 0"}));
}

}  // namespace
