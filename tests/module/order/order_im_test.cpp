#include "module/order/order_im.h"

#include <algorithm>

#include "module/log/log_facility.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_test.h"

namespace {

using namespace ztl;
using namespace ztl_test;
using platform::REG_MULTI_SZ;
using simulation::Arguments;
using simulation::Operation;

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

  std::uint8_t changed_ = 7;
};

TEST_F(OrderTest, AnOwnClassThatLeavesNoRoomStopsThePass) {
  auto ownClass = [this](std::u16string_view text, bool terminated) {
    std::vector<platform::BYTE> data = terminated ? Sz(text) : Bytes(text);
    machine_.registry.Find(std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\{1}\\Ndi")
        ->SetValue(u"FilterClass", platform::REG_SZ, std::move(data));
  };
  ownClass(std::u16string(30, u'c'), false);
  EXPECT_EQ(Run().at(0), "ZTL is in filter class <" + std::string(30, 'c') + ">");
  for (const bool terminated : {false, true}) {
    ownClass(std::u16string(31, u'c'), terminated);
    EXPECT_EQ(Run(122), Strings{"OrderIM: GetFilterClass rc=122"});
  }
  ownClass(std::u16string(33, u'c'), false);
  EXPECT_EQ(Run(31), Strings{"OrderIM: GetFilterClass rc=31"});
}

TEST_F(OrderTest, AStackLongerThanTheTableKeepsItsSettings) {
  std::u16string entries;
  for (char16_t name = u'a'; name < u'a' + 17; ++name) (entries += name) += u'\0';
  machine_.registry.Find(std::u16string(kNetClass) + u"\\0001\\Linkage")
      ->SetValue(u"RootDevice", REG_MULTI_SZ, Bytes(entries + u'\0'));
  const Strings log = Run();
  EXPECT_NE(std::find(log.begin(), log.end(), "--keep settings to 0001"), log.end());
  EXPECT_EQ(changed_, 0);
}

TEST_F(OrderTest, AListIsLoggedEntryByEntryFrom260Characters) {
  for (const std::size_t length : {252u, 253u}) {  // and "Tcpip": 259 and 260 characters with the terminators
    std::filesystem::resize_file(LogPath(), 0);
    std::u16string list = u"Tcpip";
    list += u'\0';
    list += std::u16string(length, u'x');
    list.append(2, u'\0');
    LogMultiSz(u"L: ", platform::MultiStringView(list.data(), list.size()));
    const std::string second(length, 'x');
    EXPECT_EQ(LogMessages(), length == 252 ? Strings{"L: {Tcpip," + second + "}"}
                                           : (Strings{"L: ", "  <Tcpip>", "  <" + second + ">"}));
  }
  machine_.faults = {{.operation = Operation::CoTaskMemAlloc, .code = 8}};
  std::filesystem::resize_file(LogPath(), 0);
  LogMultiSz(u"L: ", platform::MultiStringView(u"a\0b\0", 5));
  EXPECT_EQ(LogMessages(), (Strings{"L: ", "  <a>", "  <b>"}));
}

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
