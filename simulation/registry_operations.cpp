// The operations of platform/registry.h on the current machine's registry.
//
// What an operation enters with, so that its call can be described and repeated:
//
//                      key  name        number        number2              data, dataBytes
//   RegOpenKeyExW      key  subkey      access        options
//   RegOpenKeyW        key  subkey
//   RegCreateKeyExW    key  subkey      access        options
//   RegEnumKeyExW      key              index         capacity (name)
//   RegEnumValueW      key              index         capacity (name)      null, capacity (data)
//   RegQueryValueExW   key  value                     capacity (data)
//   RegSetValueExW     key  value       size          type                 the data
//   RegDeleteValueW    key  value
//   RegDeleteKeyW      key  subkey
//   RegCloseKey        key
//
// Capacities are those of the caller's buffers: of names in characters, of data in bytes, 0 when there is no buffer.
#include <cstring>
#include <mutex>

#include "platform/registry.h"
#include "simulation/machine.h"

namespace platform {
namespace {

using simulation::Arguments;
using simulation::Machine;
using simulation::Operation;

// Enters the operation, then runs `work` on the machine's registry while the machine is locked.
template <typename Work>
LSTATUS Perform(Operation operation, const Arguments& arguments, Work work) {
  Machine& machine = simulation::Current();
  if (const auto code = machine.Enter(operation, arguments)) return *code;
  const std::lock_guard lock(machine.mutex);
  return work(machine.registry);
}

DWORD Capacity(const void* buffer, const DWORD* size) { return buffer && size ? *size : 0; }

}  // namespace

LSTATUS RegOpenKeyExW(HKEY key, const char16_t* subKey, DWORD options, DWORD access, HKEY* result) {
  if (result) *result = nullptr;
  return Perform(Operation::RegOpenKeyExW, {.key = key, .name = subKey, .number = access, .number2 = options},
                 [&](auto& registry) { return registry.Open(key, subKey, access, result); });
}

LSTATUS RegOpenKeyW(HKEY key, const char16_t* subKey, HKEY* result) {
  if (result) *result = nullptr;
  return Perform(Operation::RegOpenKeyW, {.key = key, .name = subKey},
                 [&](auto& registry) { return registry.Open(key, subKey, simulation::MAXIMUM_ALLOWED, result); });
}

LSTATUS RegCreateKeyExW(HKEY key, const char16_t* subKey, DWORD reserved, char16_t* /*className*/, DWORD options,
                        DWORD access, void* /*securityAttributes*/, HKEY* result, DWORD* disposition) {
  if (result) *result = nullptr;
  return Perform(Operation::RegCreateKeyExW, {.key = key, .name = subKey, .number = access, .number2 = options},
                 [&](auto& registry) {
                   // Documented as not allowed, though some systems take it: the module is not to rely on it.
                   return reserved || subKey == nullptr
                              ? ERROR_INVALID_PARAMETER
                              : registry.CreateKey(key, subKey, options, access, result, disposition);
                 });
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* reserved, char16_t* className,
                      DWORD* classLength, void* lastWriteTime) {
  // Keys have no class and no time here.
  if (className && classLength && *classLength) *className = 0;
  if (classLength) *classLength = 0;
  if (lastWriteTime) std::memset(lastWriteTime, 0, sizeof(std::uint64_t));
  return Perform(Operation::RegEnumKeyExW, {.key = key, .number = index, .number2 = Capacity(name, nameLength)},
                 [&](auto& registry) {
                   return reserved ? ERROR_INVALID_PARAMETER : registry.EnumKey(key, index, name, nameLength);
                 });
}

LSTATUS RegEnumValueW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* reserved, DWORD* type,
                      BYTE* data, DWORD* dataBytes) {
  return Perform(
      Operation::RegEnumValueW,
      {.key = key, .number = index, .number2 = Capacity(name, nameLength), .dataBytes = Capacity(data, dataBytes)},
      [&](auto& registry) {
        return reserved ? ERROR_INVALID_PARAMETER
                        : registry.EnumValue(key, index, name, nameLength, type, data, dataBytes);
      });
}

LSTATUS RegQueryValueExW(HKEY key, const char16_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataBytes) {
  return Perform(Operation::RegQueryValueExW, {.key = key, .name = name, .number2 = Capacity(data, dataBytes)},
                 [&](auto& registry) {
                   return reserved ? ERROR_INVALID_PARAMETER : registry.QueryValue(key, name, type, data, dataBytes);
                 });
}

LSTATUS RegSetValueExW(HKEY key, const char16_t* name, DWORD /*reserved*/, DWORD type, const BYTE* data,
                       DWORD dataBytes) {
  return Perform(Operation::RegSetValueExW,
                 {.key = key, .name = name, .number = dataBytes, .number2 = type, .data = data, .dataBytes = dataBytes},
                 [&](auto& registry) { return registry.SetValue(key, name, type, data, dataBytes); });
}

LSTATUS RegDeleteValueW(HKEY key, const char16_t* name) {
  return Perform(Operation::RegDeleteValueW, {.key = key, .name = name},
                 [&](auto& registry) { return registry.DeleteValue(key, name); });
}

LSTATUS RegDeleteKeyW(HKEY key, const char16_t* subKey) {
  return Perform(Operation::RegDeleteKeyW, {.key = key, .name = subKey},
                 [&](auto& registry) { return registry.DeleteKey(key, subKey); });
}

// A failure that is to come closes the key all the same.
LSTATUS RegCloseKey(HKEY key) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::RegCloseKey, {.key = key});
  const std::lock_guard lock(machine.mutex);
  const LSTATUS rc = machine.registry.Close(key);
  return code.value_or(rc);
}

}  // namespace platform
