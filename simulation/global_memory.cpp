// The simulated machine's movable memory.
#include <memory>
#include <utility>

#include "platform/version_info.h"
#include "simulation/machine.h"

namespace platform {

using simulation::Machine;
using simulation::Operation;

namespace {

BOOL Fail(LSTATUS code) {
  simulation::Current().lastError = static_cast<DWORD>(code);
  return 0;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes) {
  Machine& machine = simulation::Current();
  if (machine.Enter(Operation::GlobalAlloc, {.number = static_cast<std::int64_t>(bytes), .number2 = flags})) {
    Fail(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  auto memory = std::make_unique<simulation::GlobalMemory>();
  memory->bytes.resize(bytes);
  simulation::GlobalMemory* const handle = memory.get();
  const std::lock_guard lock(machine.mutex);
  machine.globalMemory.emplace(handle, std::move(memory));
  return handle;
}

void* GlobalLock(HGLOBAL memory) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GlobalLock);
  const std::lock_guard lock(machine.mutex);
  const auto found = machine.globalMemory.find(memory);
  if (code || found == machine.globalMemory.end()) {
    Fail(code.value_or(ERROR_INVALID_HANDLE));
    return nullptr;
  }
  ++found->second->locks;
  return found->second->bytes.data();
}

BOOL GlobalUnlock(HGLOBAL memory) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GlobalUnlock);
  const std::lock_guard lock(machine.mutex);
  const auto found = machine.globalMemory.find(memory);
  if (code || found == machine.globalMemory.end()) return Fail(code.value_or(ERROR_INVALID_HANDLE));
  if (found->second->locks == 0) return Fail(ERROR_NOT_LOCKED);
  return --found->second->locks != 0 ? 1 : Fail(ERROR_SUCCESS);
}

HGLOBAL GlobalFree(HGLOBAL memory) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GlobalFree);
  const std::lock_guard lock(machine.mutex);
  const bool isKnown = machine.globalMemory.erase(memory) == 1;
  if (code || (!isKnown && memory != nullptr)) {
    Fail(code.value_or(ERROR_INVALID_HANDLE));
    return memory;
  }
  return nullptr;
}

}  // namespace platform
