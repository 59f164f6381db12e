// The simulated machine's COM runtime.
#include "platform/com.h"

#include <cstdlib>
#include <utility>

#include "simulation/machine.h"

namespace platform {

using simulation::Operation;

HRESULT CoInitializeEx(void*, DWORD flags) {
  simulation::Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::CoInitializeEx, {.number = flags});
  if (code && Failed(*code)) return *code;
  const std::lock_guard lock(machine.mutex);
  const bool isFirst = machine.comInitializations[std::this_thread::get_id()]++ == 0;
  return code ? *code : isFirst ? S_OK : S_FALSE;
}

void CoUninitialize() {
  simulation::Machine& machine = simulation::Current();
  machine.Enter(Operation::CoUninitialize);
  {
    const std::lock_guard lock(machine.mutex);
    const auto thread = machine.comInitializations.try_emplace(std::this_thread::get_id()).first;
    if (--thread->second != 0) return;
    machine.comInitializations.erase(thread);
  }
  for (simulation::ComClass& comClass : machine.comClasses)
    if (std::exchange(comClass.used, false) && comClass.unloadUnused) comClass.unloadUnused();
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID riid, void** object) {
  simulation::Machine& machine = simulation::Current();
  *object = nullptr;
  const auto code =
      machine.Enter(Operation::CoCreateInstance, {.number = context, .data = &clsid, .dataBytes = sizeof(clsid)});
  if (code && Failed(*code)) return *code;
  {
    const std::lock_guard lock(machine.mutex);
    if (machine.comInitializations.empty()) return CO_E_NOTINITIALIZED;
  }
  for (simulation::ComClass& comClass : machine.comClasses)
    if (comClass.clsid == clsid) {
      comClass.used = true;
      const HRESULT hr = comClass.create(outer, riid, object);
      return hr == S_OK ? code.value_or(hr) : hr;
    }
  return REGDB_E_CLASSNOTREG;
}

void CoFreeUnusedLibraries() { simulation::Current().Enter(Operation::CoFreeUnusedLibraries); }

void* CoTaskMemAlloc(std::size_t bytes) {
  simulation::Machine& machine = simulation::Current();
  if (machine.Enter(Operation::CoTaskMemAlloc, {.number = static_cast<std::int64_t>(bytes)})) return nullptr;
  void* const memory = std::malloc(bytes == 0 ? 1 : bytes);
  const std::lock_guard lock(machine.mutex);
  if (memory != nullptr) ++machine.taskAllocations;
  return memory;
}

void CoTaskMemFree(void* memory) {
  simulation::Machine& machine = simulation::Current();
  machine.Enter(Operation::CoTaskMemFree);
  if (memory == nullptr) return;
  std::free(memory);
  const std::lock_guard lock(machine.mutex);
  --machine.taskAllocations;
}

int StringFromGUID2(const GUID& guid, char16_t* text, int capacity) {
  constexpr int kLength = 39;
  if (simulation::Current().Enter(Operation::StringFromGUID2, {.number2 = capacity}) || capacity < kLength) return 0;
  char16_t* out = text;
  auto put = [&out](std::uint32_t value, int digits) {
    while (digits-- > 0) *out++ = u"0123456789ABCDEF"[(value >> (digits * 4)) & 0xF];
  };
  *out++ = u'{';
  put(guid.Data1, 8);
  *out++ = u'-';
  put(guid.Data2, 4);
  *out++ = u'-';
  put(guid.Data3, 4);
  *out++ = u'-';
  for (int i = 0; i < 8; ++i) {
    if (i == 2) *out++ = u'-';
    put(guid.Data4[i], 2);
  }
  *out++ = u'}';
  *out = u'\0';
  return kLength;
}

}  // namespace platform
