#include "bindorder/order_im.h"

#include <algorithm>

#include "log/log_facility.h"
#include "notify/module_log.h"
#include "tests/support/machine_test.h"

namespace {

using namespace ztl;
using namespace ztl_test;
using platform::REG_MULTI_SZ;
using platform::simulated::Arguments;
using platform::simulated::Operation;

class OrderTest : public MachineTest {
 protected:
  void SetUp() override {
    AddWrongStack();
    OpenModuleLog();
  }

  Strings Run(platform::LSTATUS expected = 0) {
    std::filesystem::resize_file(LogPath(), 0);
    EXPECT_EQ(OrderIM(&changed_), expected);
    return LogMessages();
  }

  platform::simulated::RegistryValue* Record() {
    return machine_.registry.Find(std::u16string(kParameters) + u"\\Adapters\\{P}")->FindValue(u"IMOrder");
  }

  std::uint8_t changed_ = 7;
};

// Whatever single call fails, with whatever code, the pass ends, gives everything back, and every adapter is still
// below the same instances or fewer.
TEST_F(OrderTest, SurvivesTheFailureOfEveryCall) {
  CloseModuleLog();  // the log's own calls are failed by its own tests
  const std::uint64_t start = machine_.Calls();
  OrderIM(&changed_);
  const std::uint64_t calls = machine_.Calls() - start;
  ASSERT_GT(calls, 200u);
  const std::vector<platform::BYTE> allowed[3][2] = {
      {MultiSz({u"{P}"}), MultiSz({u"{P}"})},
      {MultiSz({u"{A}", u"{Z}", u"{P}"}), MultiSz({u"{A}", u"{P}"})},
      {MultiSz({u"{Z}", u"{P}"}), MultiSz({u"{Z}", u"{A}", u"{P}"})},
  };
  const std::u16string_view instances[] = {u"0000", u"0001", u"0002"};
  std::size_t sorted = 0;
  for (const std::int32_t code : {5, 259, 1018})
    for (std::uint64_t call = 1; call <= calls; ++call) {
      AddWrongStack();
      machine_.debugOutput.clear();
      machine_.faults = {{.first = call, .code = code, .matches = [](Operation operation, const Arguments&) {
                            return operation != Operation::RegCloseKey && operation != Operation::OutputDebugStringA;
                          }}};
      const platform::LSTATUS rc = OrderIM(&changed_);
      machine_.faults.clear();
      EXPECT_TRUE(rc == 0 || rc == code || rc == 31 || rc == 1168) << rc;
      for (std::size_t i = 0; i < 3; ++i) {
        const std::vector<platform::BYTE> list = Linkage(instances[i], u"RootDevice").data;
        EXPECT_TRUE(list == allowed[i][0] || list == allowed[i][1]) << call;
      }
      sorted += changed_;
      ExpectNothingLeft();
    }
  EXPECT_GT(sorted, 100u);
}

TEST_F(OrderTest, AFailedWriteIsLoggedAndTheRestGoesOn) {
  struct Case {
    const char16_t* name;
    std::uint64_t first;
    const char* line;
    int changed;
    const char16_t* adaptersUpper;
  };
  for (const Case& c : {Case{u"RootDevice", 1, "SetOrder: set RootDevice rc=5", 1, u"A"},
                        Case{u"UpperBind", 1, "SetOrder: set UpperBind rc=5", 0, u"ZTL"},
                        Case{u"UpperBind", 2, "SetOrder: set UpperBind rc=5", 1, u"A"},
                        Case{u"IMOrder", 1, "OutputBindOrders: save ZTL adapter ImOrder rc=5", 1, u"A"}}) {
    AddWrongStack();
    machine_.faults = {{.operation = Operation::RegSetValueExW,
                        .first = c.first,
                        .code = 5,
                        .matches = [&c](Operation, const Arguments& arguments) {
                          return std::u16string_view(arguments.name) == c.name;
                        }}};
    const Strings log = Run();
    EXPECT_NE(std::find(log.begin(), log.end(), c.line), log.end()) << c.line;
    EXPECT_EQ(changed_, c.changed);
    EXPECT_EQ(Linkage(u"0000", u"UpperBind").data, MultiSz({c.adaptersUpper}));
  }
}

}  // namespace
