// The simulated machine's process and module. Its resources are the bytes that the DLL is made from.
#include "platform/module.h"

#include <algorithm>

#include "platform/text.h"
#include "simulation/machine.h"
#include "simulation/resources.h"

namespace platform {

using simulation::Operation;

DWORD GetCurrentProcessId() {
  simulation::Current().Enter(Operation::GetCurrentProcessId);
  return simulation::Current().module.processId;
}

const char16_t* GetCommandLineW() {
  simulation::Current().Enter(Operation::GetCommandLineW);
  return simulation::Current().module.commandLine.c_str();
}

BOOL DisableThreadLibraryCalls(HINSTANCE) {
  simulation::Current().Enter(Operation::DisableThreadLibraryCalls);
  return 1;
}

DWORD GetModuleFileNameW(HINSTANCE, char16_t* path, DWORD capacity) {
  simulation::Machine& machine = simulation::Current();
  if (const auto code = machine.Enter(Operation::GetModuleFileNameW, {.number2 = capacity})) {
    machine.lastError = static_cast<DWORD>(*code);
    return 0;
  }
  const std::u16string& text = machine.module.path;
  if (capacity != 0) *std::copy_n(text.begin(), std::min<std::size_t>(text.size(), capacity - 1), path) = u'\0';
  if (text.size() < capacity) return static_cast<DWORD>(text.size());
  machine.lastError = ERROR_INSUFFICIENT_BUFFER;
  return capacity;
}

HRSRC FindResourceW(HINSTANCE, const char16_t* name, const char16_t* type) {
  simulation::Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::FindResourceW);
  LSTATUS otherwise = ERROR_RESOURCE_TYPE_NOT_FOUND;
  if (!code)
    for (const simulation::Resource& resource : simulation::kResources) {
      const bool areTexts = !IsResourceId(resource.type) && !IsResourceId(type);
      if (areTexts ? !EqualNoCase(resource.type, type) : resource.type != type) continue;
      if (ResourceId(resource.id) == name) return reinterpret_cast<HRSRC>(const_cast<simulation::Resource*>(&resource));
      otherwise = ERROR_RESOURCE_NAME_NOT_FOUND;
    }
  machine.lastError = static_cast<DWORD>(code.value_or(otherwise));
  return nullptr;
}

const void* LoadResourceData(HINSTANCE, HRSRC resource) {
  return reinterpret_cast<const simulation::Resource*>(resource)->data;
}

DWORD SizeofResource(HINSTANCE, HRSRC resource) {
  return reinterpret_cast<const simulation::Resource*>(resource)->bytes;
}

}  // namespace platform
