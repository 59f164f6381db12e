#include "module/order/order_im.h"

#include <algorithm>
#include <functional>

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

// What the pass says up to a limit, and not from the next size on.
TEST_F(OrderTest, EveryLimitIsWhereItIs) {
  using Text = std::u16string;
  struct Limit {
    const char* what;
    std::size_t most;
    std::function<void(std::size_t size)> make;
    std::string said;  // at most at this size
  };
  const auto text = [](std::size_t size) { return Text(size, u'x'); };
  const auto named = [this](std::u16string_view subkey, const Text& name) {
    simulation::RegistryKey& netClass = *machine_.registry.Find(kNetClass);
    simulation::RegistryKey& from = *netClass.FindSubkey(subkey);
    simulation::RegistryKey& to = netClass.CreateSubkey(name);
    to.values = from.values;
    for (const auto& below : from.subkeys) to.CreateSubkey(below->name).values = below->values;
    netClass.DeleteSubkey(subkey);
  };
  const auto linkage = [this](const char16_t* name, const Text& entries, std::size_t zeros) {
    machine_.registry.Find(Text(kNetClass) + u"\\0001\\Linkage")
        ->SetValue(name, platform::REG_MULTI_SZ, Bytes(entries + Text(zeros, u'\0')));
  };
  const auto order = [this](const Text& entries, std::size_t zeros) {
    machine_.registry.Find(kParameters)
        ->SetValue(u"IMOrder", platform::REG_MULTI_SZ, Bytes(entries + Text(zeros, u'\0')));
  };
  const Text list = Text(u"{A}") + u'\0' + u"{Z}" + u'\0';
  const Limit limits[] = {
      {"entries of a stack", 16,
       [&](std::size_t size) {
         Text entries = list;
         for (std::size_t i = 3; i < size; ++i) (entries += static_cast<char16_t>(u'a' + i)) += u'\0';
         linkage(u"RootDevice", entries + u"{P}", 2);
       },
       "++REORDER 0001"},
      {"the name of a top", 31, [&](std::size_t size) { named(u"0001", text(size)); },
       "++REORDER " + std::string(31, 'x')},
      {"the name where an ordinal is looked for", 31, [&](std::size_t size) { named(u"0002", text(size)); },
       "++REORDER 0001"},
      {"the name where a place is looked for", 11, [&](std::size_t size) { named(u"0002", text(size)); },
       "-" + std::string(11, 'x') + "\\LINKAGE"},
      {"the name of an adapter with a service", 15, [&](std::size_t size) { named(u"0000", text(size)); },
       "  RootDevice {P} E1000"},
      {"the name of a filter's adapter", 63, [&](std::size_t size) { named(u"0002", text(size)); },
       "  RootDevice {Z} ZTL"},
      {"RootDevice", 510, [&](std::size_t size) { linkage(u"RootDevice", list + u"{P}", size - list.size() - 3); },
       "++REORDER 0001"},
      {"UpperBind", 254, [&](std::size_t size) { linkage(u"UpperBind", u"Tcpip", size - 5); }, "0001 is a node"},
      {"IMOrder", 258, [&](std::size_t size) { order(u"Others", size - 6); },
       "<IMOrder> successfully read from Registry"},
      {"a driver that the order names", 254, [&](std::size_t size) { order(text(size), 2); },
       "<" + std::string(254, 'x') + "> is probably not active"},
      {"the component of a service", 59,
       [&](std::size_t size) { AddService(Text(size, u'~'), u"B", u"compression", u"b_mp"); },
       "+add <B/b_mp> to IM list"},
      {"a service", 63, [&](std::size_t size) { AddService(u"{3}", text(size), u"compression", u"b_mp"); },
       "+add <" + std::string(63, 'x') + "/b_mp> to IM list"},
      {"a record", 247, [&](std::size_t size) { linkage(u"RootDevice", list + text(size) + u'\0' + u"{P}", 2); },
       "  RootDevice {P} E1000"},
      {"the last transport", 62,
       [&](std::size_t size) {
         for (const char16_t name : {u'3', u'4', u'5'}) AddTransport({&name, 1}, Text(63, name));
         AddTransport(u"6", text(size));
       },
       "NetTransport: " + std::string(62, 'x')},
      {"a transport", 63, [&](std::size_t size) { AddTransport(u"{2}", text(size)); },
       "NetTransport: " + std::string(63, 'x')},
  };
  const std::unique_ptr<simulation::Registry> before = machine_.registry.Copy();
  for (const Limit& limit : limits)
    for (const int past : {-1, 0, 1}) {
      SCOPED_TRACE(std::string(limit.what) + " " + std::to_string(past));
      machine_.registry.CopyFrom(*before);
      limit.make(limit.most + static_cast<std::size_t>(past));
      std::string said = limit.said;
      if (const std::size_t at = said.find("xx"); at != said.npos)
        said.replace(at, 2, 2 + static_cast<std::size_t>(past), 'x');
      const Strings log = Run();
      EXPECT_EQ(std::count(log.begin(), log.end(), said) > 0, past <= 0);
    }
}

TEST_F(OrderTest, AnInstanceThatDoesNotOpenHidesNoOther) {
  machine_.registry.Find(std::u16string(kNetClass) + u"\\0000")->denied = platform::KEY_READ;
  const Strings log = Run();
  EXPECT_NE(std::find(log.begin(), log.end(), "ReturnOrdinal 0000 open rc=5"), log.end());
  EXPECT_NE(std::find(log.begin(), log.end(), "++REORDER 0001"), log.end());
}

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
