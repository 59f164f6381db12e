// The binding-loop pass with every twentieth stack in a loop: how its time per platform call grows with the machine.
// Its calls are those of its scans and of the order passes that its sessions' notify objects run.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <string_view>

#include "bench/machines.h"
#include "module/names.h"
#include "module/notify/notify_object.h"
#include "module/repair/check_bind_loop.h"

namespace ztl_bench {
namespace {

using namespace platform;
using simulation::Machine;
using simulation::RegistryKey;

constexpr unsigned kStacksALoop = 20;
constexpr char16_t kLinks[] =
    u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{AD498944-762F-11D0-8DCB-00C04FC3358C}";

void SetText(RegistryKey& key, std::u16string_view name, DWORD type, std::u16string_view text) {
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.data());
  key.SetValue(name, type, {bytes, bytes + text.size() * sizeof(char16_t)});
}

std::u16string TextOf(const RegistryKey& key, std::u16string_view name) {
  const auto& data = key.FindValue(name)->data;
  return {reinterpret_cast<const char16_t*>(data.data()), data.size() / sizeof(char16_t)};
}

// The filter's virtual adapter of every twentieth stack, one in the right order, is bound to its own filter.
std::unique_ptr<Machine> MakeLoopingMachine(unsigned adapters, const Drive& drive) {
  auto machine = MakeMachine(adapters, drive);
  const std::u16string hklm = u"HKEY_LOCAL_MACHINE\\";
  for (const auto& component : machine->registry.Create(hklm + ztl::kNetServiceClassKey).subkeys)
    SetText(*component, u"ComponentId", REG_SZ,
            component->name.starts_with(u"{00000001") ? std::u16string_view(u"qro_ztl\0", 8)
                                                      : std::u16string_view(u"other\0", 6));
  unsigned filters = 0;
  for (const auto& instance : machine->registry.Create(hklm + ztl::kNetAdapterClassKey).subkeys) {
    RegistryKey& linkage = *instance->FindSubkey(u"Linkage");
    const std::u16string root = TextOf(linkage, u"RootDevice");
    SetText(*instance, u"DeviceInstanceID", REG_SZ, u"DEV\\" + instance->name + u'\0');
    if (TextOf(*instance, u"MatchingDeviceId").starts_with(u"qro_ztlm")) {
      SetText(*instance, u"FilterInfId", REG_SZ, {u"qro_ztl\0", 8});
      if (filters++ % kStacksALoop == 1)
        SetText(linkage, u"UpperBind", REG_MULTI_SZ, u"ZTL" + (u'\0' + TextOf(linkage, u"UpperBind")));
    } else if (root.find(u'\0') + 2 == root.size()) {  // a physical adapter
      RegistryKey& link = machine->registry.Create(std::u16string(kLinks) + u"\\#" + instance->name);
      SetText(link, u"DeviceInstance", REG_SZ, u"DEV\\" + instance->name + u'\0');
      link.CreateSubkey(u"#" + root.substr(0, root.find(u'\0')));
    }
  }
  machine->comClasses.push_back({ztl::CLSID_CSampleFilter, ztl::HrCreateSampleFilter});
  return machine;
}

void RepairPass(benchmark::State& state) {
  const Drive drive;
  const auto adapters = static_cast<unsigned>(state.range(0));
  double calls = 0;
  for (auto _ : state) {
    state.PauseTiming();
    {
      const auto machine = MakeLoopingMachine(adapters, drive);
      const simulation::CurrentMachine current(*machine);
      state.ResumeTiming();
      ztl::CheckBindLoop();
      state.PauseTiming();
      calls += static_cast<double>(machine->Calls());
      if (machine->Calls(simulation::Operation::Apply) != std::size_t{adapters} / kStacksALoop * 2)
        state.SkipWithError("not every loop was repaired");
    }
    state.ResumeTiming();
  }
  state.counters["calls"] = benchmark::Counter(calls, benchmark::Counter::kAvgIterations);
  state.counters["time_a_call"] = benchmark::Counter(calls, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(RepairPass)->Arg(20)->Arg(100)->Arg(200)->Arg(400)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace ztl_bench
