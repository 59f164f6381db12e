#include "bench/machines.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string_view>
#include <utility>

#include "module/names.h"

namespace ztl_bench {

using namespace platform;
using simulation::Machine;
using simulation::Operation;
using simulation::RegistryKey;

namespace {

constexpr std::int64_t kClock = 1709647432;  // 5 March 2024

std::vector<BYTE> Bytes(std::u16string_view text) {
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.data());
  return {bytes, bytes + text.size() * 2};
}

void SetSz(RegistryKey& key, std::u16string_view name, std::u16string_view text) {
  key.SetValue(name, REG_SZ, Bytes(std::u16string(text) + u'\0'));
}

void SetMultiSz(RegistryKey& key, std::u16string_view name, std::initializer_list<std::u16string_view> entries) {
  std::u16string text;
  for (const std::u16string_view entry : entries) (text += entry) += u'\0';
  key.SetValue(name, REG_MULTI_SZ, Bytes(text + u'\0'));
}

RegistryKey& LocalMachineKey(Machine& machine, std::u16string_view path) {
  return machine.registry.Create(std::u16string(u"HKEY_LOCAL_MACHINE\\") + std::u16string(path));
}

std::u16string Number(const char* format, unsigned number) {
  char text[16];
  const int length = std::snprintf(text, sizeof(text), format, number);
  return {text, text + length};
}

std::u16string RandomGuid(std::mt19937& random) {
  std::u16string guid = u"{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
  for (char16_t& character : guid)
    if (character == u'x') character = u"0123456789ABCDEF"[random() % 16];
  return guid;
}

void AddService(Machine& machine, std::u16string_view name, std::u16string_view service, std::u16string_view deviceId) {
  RegistryKey& ndi = LocalMachineKey(machine, ztl::kNetServiceClassKey).CreateSubkey(name).CreateSubkey(u"Ndi");
  SetSz(ndi, u"Service", service);
  SetSz(ndi, u"FilterClass", u"compression");
  SetSz(ndi, u"FilterDeviceInfId", deviceId);
}

void AddInstance(RegistryKey& netClass, unsigned number, std::u16string_view guid, std::u16string_view deviceId,
                 std::u16string_view service, std::initializer_list<std::u16string_view> rootDevice,
                 std::u16string_view upperBind) {
  RegistryKey& instance = netClass.CreateSubkey(Number("%04u", number));
  SetSz(instance, u"NetCfgInstanceId", guid);
  SetSz(instance, u"MatchingDeviceId", deviceId);
  RegistryKey& linkage = instance.CreateSubkey(u"Linkage");
  SetMultiSz(linkage, u"RootDevice", rootDevice);
  SetMultiSz(linkage, u"UpperBind", {upperBind});
  if (!service.empty()) SetSz(instance.CreateSubkey(u"Ndi"), u"Service", service);
}

bool Same(const RegistryKey& a, const RegistryKey& b) {
  return a.name == b.name && a.values == b.values &&
         std::equal(a.subkeys.begin(), a.subkeys.end(), b.subkeys.begin(), b.subkeys.end(),
                    [](const auto& x, const auto& y) { return Same(*x, *y); });
}

}  // namespace

Drive::Drive()
    : root_(std::filesystem::temp_directory_path() / ("ztl-bench-" + std::to_string(std::random_device()()))) {
  std::filesystem::create_directories(root_ / "Windows");
}

Drive::~Drive() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

void Drive::Clear() const { std::filesystem::remove_all(LogPath().parent_path()); }

std::string Drive::LogBytes() const { return ReadFile(LogPath().string() + ".backup") + ReadFile(LogPath()); }

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::unique_ptr<Machine> MakeMachine(unsigned adapters, const Drive& drive) {
  auto made = std::make_unique<Machine>();
  Machine& machine = *made;
  machine.files.root = drive.Root();
  machine.clock = kClock;
  SetMultiSz(LocalMachineKey(machine, ztl::kControlNetworkKey), u"FilterClasses", {u"compression"});
  AddService(machine, u"{00000001-0000-0000-0000-000000000000}", u"ZTL", u"qro_ztlm");
  AddService(machine, u"{00000002-0000-0000-0000-000000000000}", u"Other", u"other_mp");
  SetSz(LocalMachineKey(machine, ztl::kNetTransClassKey)
            .CreateSubkey(u"{00000003-0000-0000-0000-000000000000}")
            .CreateSubkey(u"Ndi"),
        u"Service", u"Tcpip");
  SetMultiSz(LocalMachineKey(machine, ztl::kParametersKey), u"IMOrder", {u"ZTL", u"Others"});
  RegistryKey& records = LocalMachineKey(machine, ztl::kAdaptersKey);
  RegistryKey& netClass = LocalMachineKey(machine, ztl::kNetAdapterClassKey);

  struct Stack {
    std::u16string physical, ztl, other;
  };
  std::mt19937 random(1);
  std::vector<Stack> stacks(adapters);
  for (Stack& stack : stacks) stack = {RandomGuid(random), RandomGuid(random), RandomGuid(random)};

  // The virtual adapters were installed after the physical ones, stack by stack. In every second stack the other
  // driver stands on top, where the filter belongs.
  const auto isWrong = [](unsigned i) { return i % 2 == 0; };
  for (unsigned i = 0; i < adapters; ++i) {
    const auto& [physical, ztl, other] = stacks[i];
    records.CreateSubkey(physical);
    AddInstance(netClass, i, physical, u"pci\\ven_8086", u"E1000", {physical}, isWrong(i) ? u"ZTL" : u"Other");
  }
  for (unsigned i = 0; i < adapters; ++i) {
    const auto& [physical, ztl, other] = stacks[i];
    const unsigned number = adapters + 2 * i;
    if (isWrong(i)) {
      AddInstance(netClass, number, ztl, u"qro_ztlm", u"", {ztl, physical}, u"Other");
      AddInstance(netClass, number + 1, other, u"other_mp", u"", {other, ztl, physical}, u"Tcpip");
    } else {
      AddInstance(netClass, number, ztl, u"qro_ztlm", u"", {ztl, other, physical}, u"Tcpip");
      AddInstance(netClass, number + 1, other, u"other_mp", u"", {other, physical}, u"ZTL");
    }
  }
  return made;
}

bool Same(const Machine& a, const Machine& b) {
  for (int i = 0; i < static_cast<int>(Operation::Count); ++i)
    if (a.Calls(static_cast<Operation>(i)) != b.Calls(static_cast<Operation>(i))) return false;
  return a.debugOutput == b.debugOutput && a.registry.OpenHandles() == 0 && b.registry.OpenHandles() == 0 &&
         Same(a.registry.Root(), b.registry.Root());
}

}  // namespace ztl_bench
