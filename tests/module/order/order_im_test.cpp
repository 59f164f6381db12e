#include "module/order/order_im.h"

#include "module/log/log_facility.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace ztl;
using namespace ztl_test;
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

}  // namespace
