#include "module/netcfg/configuration_session.h"

#include "module/install/reinstall_ztl.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "tests/support/machine_test.h"
#include "ztlsim/input/load_machine.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;

class SessionTest : public MachineTest {
 protected:
  void SetUp() override {
    ASSERT_FALSE(ztlsim::LoadRegistry({ZTL_SOURCE_DIR "/samples/laptop.reg"}, machine_.registry));
    ztl::OpenModuleLog();
  }
  // A failure of the lock interface's query, the `nth` of them.
  static simulation::Fault LockQueryFails(std::uint64_t nth) {
    return {.operation = Operation::QueryInterface,
            .first = nth,
            .code = E_NOINTERFACE,
            .matches = [](Operation, const simulation::Arguments& arguments) {
              return *static_cast<const IID*>(arguments.data) == IID_INetCfgLock;
            }};
  }
};

TEST_F(SessionTest, AFailedOpeningUndoesAllItDid) {
  struct Case {
    simulation::Fault fault;
    HRESULT result;
    Strings log;
    std::uint64_t locksReleased = 0;
  };
  const Case cases[] = {
      {{.operation = Operation::CoCreateInstance, .code = E_FAIL},
       E_FAIL,
       {"HrGetINetCfg: CoCreateInstance rc=80004005"}},
      {LockQueryFails(1), E_NOINTERFACE, {"HrGetINetCfg: QueryInterface rc=80004002"}},
      {{.operation = Operation::AcquireWriteLock, .code = E_FAIL}, E_FAIL, {}},
      {{.operation = Operation::AcquireWriteLock, .code = 1},
       NETCFG_E_NO_WRITE_LOCK,
       {"HrGetINetCfg: already locked by (null)"}},
      {{.operation = Operation::Initialize, .code = E_FAIL}, E_FAIL, {"HrGetINetCfg: Initialize rc=80004005"}, 1},
  };
  for (const Case& c : cases) {
    const std::uint64_t released = machine_.Calls(Operation::ReleaseWriteLock);
    machine_.faults = {c.fault};
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    auto* const untouched = reinterpret_cast<INetCfg*>(this);
    INetCfg* session = untouched;
    EXPECT_EQ(ztl::HrGetINetCfg(&session), c.result);
    EXPECT_EQ(session, untouched);
    EXPECT_EQ(LogErrors(), c.log);
    EXPECT_EQ(TakeLog(), c.log);
    EXPECT_EQ(machine_.Calls(Operation::ReleaseWriteLock) - released, c.locksReleased);
    ExpectNothingLeft();
  }
}

TEST_F(SessionTest, AHeldLockIsWaitedForAndItsHolderTold) {
  machine_.engine.otherClient = u"Setup of L\u00F6we";
  ztl::UniqueSession session;
  EXPECT_EQ(ztl::HrOpenSession(session), NETCFG_E_NO_WRITE_LOCK);
  EXPECT_EQ(machine_.WaitedMilliseconds(), 15000);
  EXPECT_EQ(machine_.standardOutput, u"Could not lock INetcfg, it is already locked by 'Setup of L\u00F6we'");
  EXPECT_EQ(TakeLog(), Strings{"HrGetINetCfg: already locked by Setup of L\xC3\xB6we"});
  ExpectNothingLeft();

  machine_.engine.otherClientMilliseconds = 14999;  // given back while it is waited for
  EXPECT_EQ(ztl::HrOpenSession(session), S_OK);
  EXPECT_EQ(machine_.WaitedMilliseconds(), 15000 + 14999);
}

TEST_F(SessionTest, AClosingGivesBackAllWhateverFails) {
  struct Case {
    simulation::Fault fault;
    HRESULT result;
    Strings log;
    std::uint64_t locksReleased;
  };
  const Case cases[] = {
      {{.first = 1, .times = 0}, S_OK, {}, 1},
      {{.operation = Operation::Uninitialize, .code = E_FAIL},
       E_FAIL,
       {"HrReleaseINetCfg: Uninitialize rc=80004005"},
       0},
      {{.operation = Operation::Uninitialize, .code = 7}, S_OK, {}, 1},
      {LockQueryFails(1), E_NOINTERFACE, {"HrReleaseINetCfg: QueryInterface rc=80004002"}, 0},
      {{.operation = Operation::ReleaseWriteLock, .code = E_FAIL},
       E_FAIL,
       {"HrReleaseINetCfg: ReleaseWriteLock rc=80004005"},
       1},
  };
  for (const Case& c : cases) {
    ztl::UniqueSession session;
    ASSERT_EQ(ztl::HrOpenSession(session), S_OK);
    const std::uint64_t released = machine_.Calls(Operation::ReleaseWriteLock);
    machine_.faults = {c.fault};
    EXPECT_EQ(ztl::HrReleaseINetCfg(true, session.release()), c.result);
    EXPECT_EQ(TakeLog(), c.log);
    EXPECT_EQ(machine_.Calls(Operation::ReleaseWriteLock) - released, c.locksReleased);
    machine_.faults.clear();
    ExpectNothingLeft();
  }
}

TEST_F(SessionTest, TheReinstallEntryTracesEachStep) {
  constexpr auto kNotFound = static_cast<DWORD>(HresultFromBits(0x80070002));
  const std::string entry = "ReInstallZtl Entry", opened = "ReInstallZtl:HrGetINegCfg rc = ",
                    installed = "ReInstallZtl:HrInstallNetComponent rc = ", applied = "ReInstallZtl:Apply rc = ";
  struct Case {
    std::vector<simulation::Fault> faults;
    DWORD result;
    Strings log;
  };
  const Case cases[] = {
      {{}, 0, {entry, opened + "0", installed + "0", applied + "0"}},
      {{{.operation = Operation::CoInitializeEx, .code = E_FAIL}}, 0x80004005, {entry, opened + "-2147467259"}},
      {{{.operation = Operation::Initialize, .code = 5}, {.operation = Operation::Apply, .code = 9}},
       9,
       {entry, opened + "5", installed + "0", applied + "9"}},
      {{{.operation = Operation::QueryNetCfgClass, .code = E_FAIL}},
       0x80004005,
       {entry, opened + "0", "HrInstallNetComponent: QueryNetCfgClass rc=80004005", installed + "-2147467259"}},
      {{{.operation = Operation::Install, .code = 0x4A020}, {.operation = Operation::Apply, .code = E_FAIL}},
       0x80004005,
       {entry, opened + "0", "HrInstallNetComponent: Install rc=4a020", installed + "303136", applied + "-2147467259"}},
  };
  for (const Case& c : cases) {
    machine_.faults = c.faults;
    EXPECT_EQ(ztl::ReInstallFilter(), c.result);
    EXPECT_EQ(TakeLog(), c.log);
    ExpectNothingLeft();
  }
  machine_.faults.clear();
  machine_.registry.Find(kNetwork)->DeleteSubkey(u"{4D36E974-E325-11CE-BFC1-08002BE10318}");
  EXPECT_EQ(ztl::ReInstallFilter(), kNotFound);
}

// The session's notify object learns of the installation, applies it and is released at the end.
TEST_F(SessionTest, AReinstallationDrivesTheNotifyObject) {
  machine_.comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
  EXPECT_EQ(ztl::ReInstallFilter(), static_cast<DWORD>(NETCFG_S_REBOOT));
  const Strings log = TakeLog();
  const char* const expected[] = {"ReInstallZtl Entry",
                                  "--> ::CSampleFilter",
                                  "--> ::Initialize",
                                  "ReInstallZtl:HrGetINegCfg rc = 0",
                                  "--> ::Install eActInstall",
                                  "ReInstallZtl:HrInstallNetComponent rc = 0",
                                  "--> ::ApplyRegistryChanges eActInstall",
                                  "OrderIM: success changed=1",
                                  "--> ::ApplyPnpChanges exit",
                                  "ReInstallZtl:Apply rc = 303136",
                                  "--> ::~CSampleFilter ApplyAction=1 OrderIM=1"};
  auto at = log.begin();
  for (const char* const line : expected) {
    at = std::find(at, log.end(), line);
    ASSERT_NE(at, log.end()) << line;
  }
}

}  // namespace
