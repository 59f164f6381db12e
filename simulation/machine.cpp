#include "simulation/machine.h"

#include <cstdio>
#include <cstdlib>

#include "platform/com_ptr.h"
#include "simulation/netcfg_engine/engine_host.h"

namespace simulation {
namespace {

Machine* g_current = nullptr;

}  // namespace

Machine::Machine() {
  comClasses.push_back({CLSID_CNetCfg, [](IUnknown* outer, REFIID riid, void** object) {
                          if (outer != nullptr) return CLASS_E_NOAGGREGATION;
                          return ComPtr<INetCfg>::Attach(CreateNetCfg())->QueryInterface(riid, object);
                        }});
}

std::uint64_t Machine::Calls() const {
  std::uint64_t sum = 0;
  for (const auto& count : counts_) sum += count;
  return sum;
}

std::optional<std::int32_t> Machine::EnterWatched(Operation operation, const Arguments& arguments) {
  const std::lock_guard lock(watchMutex_);
  if (observer) observer(operation, arguments);
  std::optional<std::int32_t> code;
  for (Fault& fault : faults) {
    if (fault.operation && *fault.operation != operation) continue;
    if (fault.matches && !fault.matches(operation, arguments)) continue;
    const std::uint64_t number = ++fault.seen;
    if (number >= fault.first && number - fault.first < fault.times && !code) code = fault.code;
  }
  return code;
}

CurrentMachine::CurrentMachine(Machine& machine) : previous_(g_current) { g_current = &machine; }

CurrentMachine::~CurrentMachine() { g_current = previous_; }

Machine& Current() {
  if (g_current == nullptr) {
    std::fputs("platform operation without a current simulated machine\n", stderr);
    std::abort();
  }
  return *g_current;
}

namespace engine_host {

Engine& State() { return Current().engine; }
std::optional<std::int32_t> Enter(Operation operation, const Arguments& arguments) {
  return Current().Enter(operation, arguments);
}
void Wait(std::int64_t milliseconds) { Current().Wait(milliseconds); }
std::mutex& Mutex() { return Current().mutex; }

}  // namespace engine_host

}  // namespace simulation
