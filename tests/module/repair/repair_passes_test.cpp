// The binding-loop pass and the excluded-adapter pass, on the sample machines.
#include <functional>
#include <optional>

#include "module/names.h"
#include "module/netcfg/binding_path.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "module/repair/check_bind_loop.h"
#include "module/repair/excluded_macs.h"
#include "tests/support/machine_fixture.h"
#include "ztlsim/input/load_machine.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;

constexpr char16_t kMarker[] = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZTL\\CheckBindLoop";

class RepairTest : public MachineTest {
 protected:
  void Load(const std::string& sample) {
    ASSERT_FALSE(ztlsim::LoadRegistry({ZTL_SOURCE_DIR "/samples/" + sample + ".reg"}, machine_.registry));
    ztl::OpenModuleLog();
  }
  simulation::RegistryKey& Instance(std::u16string_view subkey) {
    return *machine_.registry.Find(std::u16string(kNetClass) + u"\\" + std::u16string(subkey));
  }
  simulation::RegistryKey& Linkage(std::u16string_view subkey) { return *Instance(subkey).FindSubkey(u"Linkage"); }
  std::vector<BYTE> UpperBind(std::u16string_view subkey) { return Linkage(subkey).FindValue(u"UpperBind")->data; }

  Strings CheckLoops() {
    ztl::CheckBindLoop();
    return TakeLog();
  }
  static std::size_t Count(const Strings& log, std::string_view start) {
    return static_cast<std::size_t>(
        std::count_if(log.begin(), log.end(), [start](const auto& line) { return line.starts_with(start); }));
  }
};

TEST_F(RepairTest, OnePassRunsAtATime) {
  Load("loop");
  machine_.registry.Create(kMarker).isVolatile = true;
  EXPECT_EQ(CheckLoops(), Strings{});
  EXPECT_NE(machine_.registry.Find(kMarker), nullptr);
  machine_.registry.Restart();
  // Neither do the releases of the notify objects that the repair's own sessions drive.
  machine_.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
  machine_.faults = {{.operation = Operation::RegDeleteKeyW, .code = 5}};
  const Strings log = CheckLoops();
  EXPECT_EQ(Count(log, "++Fix Binding 7"), 1u);
  EXPECT_EQ(Count(log, "--> ::~CSampleFilter"), 2u);
  EXPECT_EQ(Count(log, "Total "), 1u);
  // A marker that is left behind is gone after a restart.
  EXPECT_EQ(CheckLoops(), Strings{});
  machine_.registry.Restart();
  EXPECT_EQ(Count(CheckLoops(), "Total "), 1u);
}

// What stands in the way of a scan, beside all that generated machines have in their registries.
TEST_F(RepairTest, AScanLooksPastWhatItCannotUse) {
  const std::u16string control = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control";
  struct Case {
    std::function<void()> change;
    std::size_t repaired;  // scans that end in a repair of the last instance
    const char* line;      // that stands in the log
  };
  const Case cases[] = {
      {[&] {
         machine_.registry.Create(std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\{0}").denied =
             KEY_QUERY_VALUE;
       },
       1, "Proto {0}"},
      {[&] {
         // Before the link that is looked for.
         auto& links = machine_.registry.Create(control + u"\\DeviceClasses\\{AD498944-762F-11D0-8DCB-00C04FC3358C}");
         links.CreateSubkey(u"#!0").denied = KEY_QUERY_VALUE;
         links.CreateSubkey(u"#!1").CreateSubkey(u"#{73F778AA-F6FA-4DB8-A56A-BD72FB710734}");
       },
       1, "Enable Binding Path rc=0"},
      {[&] { Instance(u"0000").parent->CreateSubkey(u"!" + std::u16string(254, u'x')); }, 0, "++Fix Binding 8"},
      {[&] { Instance(u"0000").parent->denied = KEY_SET_VALUE; }, 1, "++Fix Binding 7"},
      {[&] { machine_.registry.Find(control)->DeleteSubkey(u"DeviceClasses"); }, 1, "BIND LOOP!!!"},
      {[&] {
         Linkage(u"0006").SetValue(u"RootDevice", REG_MULTI_SZ, {'x', 0, 'y'});
       },
       1, "#x"},
      {[&] {
         Instance(u"0000").parent->CreateSubkey(u"9999");  // so that each scan is followed by another one
         machine_.faults = {{.operation = Operation::Enable, .times = 1000, .code = E_FAIL}};
       },
       8, "Enable failed"},
  };
  Load("loop");
  const std::unique_ptr<simulation::Registry> registry = machine_.registry.Copy();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    machine_.registry.CopyFrom(*registry);
    machine_.faults.clear();
    c.change();
    const Strings log = CheckLoops();
    EXPECT_EQ(Count(log, "++Fix Binding 7"), c.repaired);
    EXPECT_GE(Count(log, c.line), 1u);
  }
}

// Version 6 of another platform than NT is older than that.
TEST_F(RepairTest, AnotherPlatformHasTheExclusions) {
  Load("windows-5.2");
  machine_.version = {.major = 6, .minor = 1, .servicePack = 0xFFFF, .platformId = 1};
  machine_.faults = {{.operation = Operation::AcquireWriteLock, .code = 1}};  // refused, and nobody says by whom
  EXPECT_EQ(ztl::UnBindZTLFromExcludedMacs(), ERROR_SUCCESS);
  const Strings log = TakeLog();
  EXPECT_EQ(log.front(), "UnBindZTLFromExcludedMacs: Platfrom 1 Major 6 Minor 1 ServPack -1");
  EXPECT_EQ(log.back(), "lock is being held, try later");
}

TEST_F(RepairTest, APathIsChangedInASessionOfItsOwn) {
  const char16_t* const token = u"QRO_ZTL->usb\\vid_f3d0&pid_0b1F\\000000000001";
  const std::string rc = "Enable Binding Path rc=";
  struct Case {
    const char16_t* component;
    const char16_t* token;
    std::optional<simulation::Fault> fault;
    HRESULT result;
    Strings errors;
    std::uint64_t applied = 0;
  };
  const Case cases[] = {
      {u"qro_ztl", u"qro_ztl->USB", {}, S_OK, {"FindBindingPath return NULL"}},
      {u"other", token, {}, S_OK, {"Couldn't get an interface pointer to other.", "FindBindingPath return NULL"}},
      {u"qro_ztl",
       token,
       simulation::Fault{.operation = Operation::EnumBindingPaths, .code = E_FAIL},
       S_OK,
       {"Couldn't get the binding path enumerator interface.", "FindBindingPath return NULL"}},
      {u"qro_ztl", token, simulation::Fault{.operation = Operation::Enable, .code = 7}, 7, {"Enable failed"}},
      {u"qro_ztl", token, simulation::Fault{.operation = Operation::Apply, .code = 7}, 7, {"Apply failed"}, 1},
      {u"qro_ztl", token, simulation::Fault{.operation = Operation::Initialize, .code = 7}, 7, {}},
      {u"qro_ztl", token, simulation::Fault{.operation = Operation::CoInitializeEx, .code = E_FAIL}, E_FAIL, {}},
      {u"qro_ztl", token, simulation::Fault{.operation = Operation::GetPathToken, .code = 1}, S_OK, {}, 1},
  };
  for (const Case& c : cases) {
    Load("windows-5.2");
    const std::uint64_t applied = machine_.Calls(Operation::Apply);
    if (c.fault) machine_.faults = {*c.fault};
    EXPECT_EQ(ztl::EnableBindingPath(c.component, c.token, true), c.result);
    machine_.faults.clear();
    EXPECT_EQ(LogErrors(), c.errors);
    EXPECT_EQ(TakeLog().back(), rc + std::to_string(c.result));
    EXPECT_EQ(machine_.Calls(Operation::Apply) - applied, c.applied);
    ExpectNothingLeft();
  }
  EXPECT_EQ(ztl::EnableBindingPath(u"qro_ztl", token, false), S_OK);
  EXPECT_EQ(TakeLog(), Strings{"Disable Binding Path rc=0"});
}

}  // namespace
