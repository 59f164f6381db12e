#include "module/install/control_device.h"

#include "module/install/saved_parameters.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace platform;
using namespace ztl_test;

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

}  // namespace
