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

}  // namespace
