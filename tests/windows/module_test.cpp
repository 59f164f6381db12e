// The module's code over the operating system itself: a transaction on a small machine in the real registry, with the
// log on a real file.
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "platform/registry_key.h"
#include "platform/system_info.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace {

using platform::LSTATUS;
using platform::UniqueKey;

constexpr char16_t kSystem[] = u"SYSTEM\\CurrentControlSet\\";

void SetText(const std::u16string& path, const char16_t* name, platform::DWORD type, std::u16string_view text) {
  UniqueKey key;
  ASSERT_EQ(platform::RegCreateKeyExW(platform::HKEY_LOCAL_MACHINE, (kSystem + path).c_str(), 0, nullptr, 0,
                                      platform::KEY_ALL_ACCESS, nullptr, key.Receive(), nullptr),
            0);
  const std::u16string data(text);
  ASSERT_EQ(platform::RegSetValueExW(key.Get(), name, 0, type, reinterpret_cast<const platform::BYTE*>(data.c_str()),
                                     static_cast<platform::DWORD>((data.size() + 1) * 2)),
            0);
}

std::u16string GetList(const std::u16string& path, const char16_t* name) {
  UniqueKey key;
  platform::ValueBuffer<512> value;
  if (key.Open(platform::HKEY_LOCAL_MACHINE, (kSystem + path).c_str(), platform::KEY_READ) != 0) return u"no key";
  const LSTATUS rc = value.Read(key.Get(), name, platform::REG_MULTI_SZ, 1020);
  return rc == 0 ? std::u16string(value.text, value.bytes / 2) : u"no value";
}

class Callback final : public platform::INetCfgPnpReconfigCallback {
 public:
  platform::HRESULT QueryInterface(platform::REFIID, void**) override { return platform::E_NOINTERFACE; }
  platform::ULONG AddRef() override { return 1; }
  platform::ULONG Release() override { return 1; }
  platform::HRESULT SendPnpReconfig(platform::NCRP_LAYER, const char16_t* upper, const char16_t* lower, void*,
                                    platform::DWORD dataBytes) override {
    sent = std::u16string(upper) + u" " + lower;
    bytes = dataBytes;
    return 0;
  }
  std::u16string sent;
  platform::DWORD bytes = 0;
};

TEST(Module, OrdersTheRealRegistryAndLogsToTheRealFile) {
  const std::u16string net = u"Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\";
  const std::u16string service = u"Control\\Network\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\";
  const std::u16string transport = u"Control\\Network\\{4D36E975-E325-11CE-BFC1-08002BE10318}\\";
  auto z = [](std::u16string text) {
    for (char16_t& character : text)
      if (character == u'|') character = u'\0';
    return text;
  };
  SetText(u"Control\\Network", u"FilterClasses", 7, z(u"sched|"));
  for (const auto& [subkey, name, id] :
       {std::array{u"{z1}", u"ZTL", u"qro_ztlm"}, std::array{u"{z2}", u"Other", u"other_mp"}}) {
    SetText(service + subkey + u"\\Ndi", u"Service", 1, name);
    SetText(service + subkey + u"\\Ndi", u"FilterClass", 1, u"sched");
    SetText(service + subkey + u"\\Ndi", u"FilterDeviceInfId", 1, id);
  }
  SetText(transport + u"{z3}\\Ndi", u"Service", 1, u"Tcpip");
  SetText(u"Services\\ZTL\\Parameters", u"IMOrder", 7, z(u"ZTL|Others|"));
  SetText(u"Services\\ZTL\\Parameters\\Adapters\\{zP}", u"BundleId", 1, u"");
  for (const auto& [subkey, guid, id, root, upper] :
       {std::array{u"z000", u"{zP}", u"pci\\x", u"{zP}|", u"ZTL|"},
        std::array{u"z001", u"{zO}", u"other_mp", u"{zO}|{zZ}|{zP}|", u"Tcpip|"},
        std::array{u"z002", u"{zZ}", u"QRO_ztlm", u"{zZ}|{zP}|", u"Other|"}}) {
    SetText(net + subkey, u"NetCfgInstanceId", 1, guid);
    SetText(net + subkey, u"MatchingDeviceId", 1, id);
    SetText(net + subkey + u"\\Linkage", u"RootDevice", 7, z(root));
    SetText(net + subkey + u"\\Linkage", u"UpperBind", 7, z(upper));
  }
  SetText(net + u"z000\\Ndi", u"Service", 1, u"E1000");

  ztl::OpenModuleLog();
  void* object = nullptr;
  ASSERT_EQ(ztl::HrCreateSampleFilter(nullptr, platform::IID_INetCfgComponentControl, &object), 0);
  const auto control = platform::ComPtr<platform::INetCfgComponentControl>::Attach(
      static_cast<platform::INetCfgComponentControl*>(object));
  Callback callback;
  EXPECT_EQ(control->Initialize(nullptr, nullptr, 0), 0);
  EXPECT_EQ(control->ApplyPnpChanges(&callback), platform::NETCFG_S_REBOOT);
  EXPECT_EQ(control->ApplyPnpChanges(&callback), 0);
  ztl::CloseModuleLog();

  EXPECT_EQ(callback.sent, u"ztl2000 {00000000-0000-0000-0000-000000000000}");
  EXPECT_EQ(callback.bytes, 2u);
  EXPECT_EQ(GetList(net + u"z002\\Linkage", u"RootDevice"), z(u"{zZ}|{zO}|{zP}||"));
  EXPECT_EQ(GetList(net + u"z002\\Linkage", u"UpperBind"), z(u"Tcpip||"));
  EXPECT_EQ(GetList(net + u"z001\\Linkage", u"RootDevice"), z(u"{zO}|{zP}||"));
  EXPECT_EQ(GetList(net + u"z001\\Linkage", u"UpperBind"), z(u"ZTL||"));
  EXPECT_EQ(GetList(net + u"z000\\Linkage", u"UpperBind"), z(u"Other||"));
  EXPECT_EQ(GetList(u"Services\\ZTL\\Parameters\\Adapters\\{zP}", u"IMOrder"), z(u"ZTL|Other|E1000||"));

  char directory[260];
  platform::GetWindowsDirectoryA(directory, sizeof directory);
  std::ifstream file(std::string(directory) + "\\temp\\ztlinst.log", std::ios::binary);
  const std::string log{std::istreambuf_iterator<char>(file), {}};
  const std::regex line(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d:  ztli64x: (   INFO|  ERROR): [^\r\n]*\r\n)");
  EXPECT_EQ(std::regex_replace(log, line, ""), "");
  for (const char* text : {"--> ::CSampleFilter", "++REORDER z001", "-z002\\LINKAGE", "OrderIM: success changed=1"})
    EXPECT_NE(log.find(text), std::string::npos) << text;
}

// Text without its terminator is stored as it is, although Windows likes to complete it.
TEST(Module, AnExactValueStaysExact) {
  SetText(u"Services\\ZTL\\Parameters", u"Exact", 1, u"");
  UniqueKey key;
  ASSERT_EQ(key.Open(platform::HKEY_LOCAL_MACHINE, (kSystem + std::u16string(u"Services\\ZTL\\Parameters")).c_str(),
                     platform::KEY_ALL_ACCESS),
            0);
  for (const platform::DWORD bytes : {0u, 2u, 4u, 5u, 7u}) {
    ASSERT_EQ(platform::SetExactValue(key.Get(), u"Exact", 1, u"abc", bytes), 0);
    platform::DWORD stored = 99;
    EXPECT_EQ(platform::RegQueryValueExW(key.Get(), u"Exact", nullptr, nullptr, nullptr, &stored), 0);
    EXPECT_EQ(stored, bytes);
  }
}

}  // namespace
