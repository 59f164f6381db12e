#include "tests/support/machine_fixture.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

#include "module/log/log_facility.h"
#include "module/notify/module_log.h"

namespace ztl_test {

using namespace platform;

std::vector<BYTE> Bytes(std::u16string_view text) {
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.data());
  return {bytes, bytes + text.size() * 2};
}

std::vector<BYTE> Sz(std::u16string_view text) { return Bytes(std::u16string(text) + u'\0'); }

std::vector<BYTE> MultiSz(std::initializer_list<std::u16string_view> entries) {
  std::u16string text;
  for (const std::u16string_view entry : entries) (text += entry) += u'\0';
  return Bytes(text + u'\0');
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find("\r\n", at);
    lines.push_back(text.substr(at, end - at));
    at = end == text.npos ? end : end + 2;
  }
  return lines;
}

MachineTest::MachineTest() {
  root_ = std::filesystem::temp_directory_path() / ("ztl-test-" + std::to_string(std::random_device()()));
  Prepare(machine_);
  ztl::g_ModuleLog = {};
}

void MachineTest::Prepare(Machine& machine) const {
  std::filesystem::remove_all(root_);
  std::filesystem::create_directories(root_ / "Windows");
  machine.files.root = root_;
  machine.files.lockRetryMilliseconds = 1;
  machine.clock = 1709647432;
}

MachineTest::~MachineTest() {
  ztl::CloseModuleLog();
  std::error_code ignored;
  std::filesystem::permissions(root_ / "Windows" / "temp", std::filesystem::perms::owner_all, ignored);
  std::filesystem::remove_all(root_, ignored);
}

void MachineTest::ExpectNothingLeft(const Machine& machine) {
  EXPECT_EQ(machine.registry.OpenHandlePaths(), std::vector<std::u16string>());
  EXPECT_EQ(machine.files.OpenDescriptors(), 0);
  EXPECT_EQ(machine.taskAllocations, 0);
  EXPECT_EQ(machine.globalMemory.size(), 0u);
  EXPECT_EQ(machine.openInfs.size(), 0u);
  EXPECT_EQ(machine.engine.objects, 0);
  EXPECT_EQ(machine.engine.lockHolders, 0);
  EXPECT_TRUE(machine.comInitializations.empty());
  EXPECT_EQ(machine.dialogs.Windows() + machine.dialogs.Pages(), 0u);
}

std::vector<std::string> MachineTest::LogMessages() const {
  std::vector<std::string> messages = Lines(ReadFile(LogPath()));
  for (std::string& message : messages) message.erase(0, 38);
  return messages;
}

std::vector<std::string> MachineTest::TakeLog() {
  std::vector<std::string> messages = LogMessages();
  std::filesystem::resize_file(LogPath(), 0);
  return messages;
}

std::vector<std::string> MachineTest::LogErrors() const {
  std::vector<std::string> errors;
  for (const std::string& line : Lines(ReadFile(LogPath())))
    if (line.substr(0, 38).find("ERROR") != line.npos) errors.push_back(line.substr(38));
  return errors;
}

void MachineTest::AddService(std::u16string_view subkey, std::u16string_view service, std::u16string_view filterClass,
                             std::u16string_view deviceId) {
  simulation::RegistryKey& ndi = machine_.registry.Create(
      std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\" + std::u16string(subkey) + u"\\Ndi");
  if (!service.empty()) ndi.SetValue(u"Service", REG_SZ, Sz(service));
  if (!filterClass.empty()) ndi.SetValue(u"FilterClass", REG_SZ, Sz(filterClass));
  if (!deviceId.empty()) ndi.SetValue(u"FilterDeviceInfId", REG_SZ, Sz(deviceId));
}

void MachineTest::AddTransport(std::u16string_view subkey, std::u16string_view service) {
  machine_.registry
      .Create(std::u16string(kNetwork) + u"\\{4D36E975-E325-11CE-BFC1-08002BE10318}\\" + std::u16string(subkey) +
              u"\\Ndi")
      .SetValue(u"Service", REG_SZ, Sz(service));
}

void MachineTest::AddAdapter(std::u16string_view subkey, std::u16string_view guid, std::u16string_view deviceId,
                             std::u16string_view service, std::initializer_list<std::u16string_view> rootDevice,
                             std::initializer_list<std::u16string_view> upperBind) {
  simulation::RegistryKey& instance =
      machine_.registry.Create(std::u16string(kNetClass) + u"\\" + std::u16string(subkey));
  instance.SetValue(u"NetCfgInstanceId", REG_SZ, Sz(guid));
  instance.SetValue(u"MatchingDeviceId", REG_SZ, Sz(deviceId));
  simulation::RegistryKey& linkage = instance.CreateSubkey(u"Linkage");
  linkage.SetValue(u"RootDevice", REG_MULTI_SZ, MultiSz(rootDevice));
  linkage.SetValue(u"UpperBind", REG_MULTI_SZ, MultiSz(upperBind));
  if (!service.empty()) instance.CreateSubkey(u"Ndi").SetValue(u"Service", REG_SZ, Sz(service));
}

void MachineTest::AddWrongStack() {
  machine_.registry.Create(kNetwork).SetValue(u"FilterClasses", REG_MULTI_SZ, MultiSz({u"compression"}));
  AddService(u"{1}", u"ZTL", u"compression", u"qro_ztlm");
  AddService(u"{2}", u"A", u"compression", u"a_mp");
  AddTransport(u"{1}", u"Tcpip");
  machine_.registry.Create(kParameters).SetValue(u"IMOrder", REG_MULTI_SZ, MultiSz({u"ztl", u"Others"}));
  machine_.registry.Create(std::u16string(kParameters) + u"\\Adapters\\{P}");
  AddAdapter(u"0000", u"{P}", u"pci\\ven", u"E1000", {u"{P}"}, {u"ZTL"});
  AddAdapter(u"0001", u"{A}", u"a_mp", u"", {u"{A}", u"{Z}", u"{P}"}, {u"Tcpip"});
  AddAdapter(u"0002", u"{Z}", u"QRO_ZTLM", u"", {u"{Z}", u"{P}"}, {u"A"});
}

simulation::RegistryValue MachineTest::Linkage(std::u16string_view subkey, std::u16string_view name) {
  return *machine_.registry.Find(std::u16string(kNetClass) + u"\\" + std::u16string(subkey) + u"\\Linkage")
              ->FindValue(name);
}

}  // namespace ztl_test
