#include "module/netcfg/configuration_session.h"

#include "module/install/reinstall_filter.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_fixture.h"
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
};

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
  EXPECT_EQ(ztl::HrReleaseINetCfg(false, session.release()), S_OK);  // which leaves the lock to its owner
  EXPECT_EQ(machine_.Calls(Operation::ReleaseWriteLock), 0u);
}

// A session that cannot be used gives its lock back; an installation that wants more than it did goes on.
TEST_F(SessionTest, EachCodeOfTheEngineHasItsWay) {
  ztl::UniqueSession session;
  machine_.faults = {{.operation = Operation::Initialize, .code = E_FAIL},
                     {.operation = Operation::Install, .code = 1}};
  EXPECT_EQ(ztl::HrOpenSession(session), E_FAIL);
  EXPECT_EQ(machine_.Calls(Operation::ReleaseWriteLock), 1u);
  EXPECT_EQ(ztl::ReInstallFilter(), 0u);
  EXPECT_EQ(LogErrors(), (Strings{"HrGetINetCfg: Initialize rc=80004005", "HrInstallNetComponent: Install rc=1"}));
}

}  // namespace
