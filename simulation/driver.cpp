// The simulated control device and what the driver does with its requests.
#include <cstring>
#include <string>
#include <string_view>

#include "platform/device.h"
#include "platform/text.h"
#include "simulation/machine.h"

namespace platform {

using simulation::Operation;

namespace {

const HANDLE kControlDevice = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(0x5A54));

constexpr DWORD kDestroyLinkKey = 0x222010;
constexpr DWORD kSaveParameters = 0x222014;
constexpr DWORD kVersion = 0x222018;

BOOL Fail(simulation::Machine& machine, LSTATUS code) {
  machine.lastError = static_cast<DWORD>(code);
  return 0;
}

// A key by the name that the kernel calls it; empty for one outside HKEY_LOCAL_MACHINE.
std::u16string FullPath(std::u16string_view kernelPath) {
  constexpr std::u16string_view kPrefix = u"\\Registry\\MACHINE\\";
  if (!EqualNoCase(kernelPath.substr(0, kPrefix.size()), kPrefix)) return {};
  return u"HKEY_LOCAL_MACHINE\\" + std::u16string(kernelPath.substr(kPrefix.size()));
}

void CopyTree(const simulation::RegistryKey& from, simulation::RegistryKey& to) {
  for (const simulation::RegistryValue& value : from.values) to.SetValue(value.name, value.type, value.data);
  for (const auto& subkey : from.subkeys) CopyTree(*subkey, to.CreateSubkey(subkey->name));
}

LSTATUS Answer(simulation::Machine& machine, DWORD code, const std::u16string& path, void* output, DWORD outputBytes) {
  if (const auto failure = machine.driver.failures.find(code); failure != machine.driver.failures.end())
    return static_cast<LSTATUS>(failure->second);
  if (code == kVersion) {
    if (outputBytes < sizeof(*machine.driver.version)) return ERROR_INSUFFICIENT_BUFFER;
    std::memcpy(output, machine.driver.version->data(), sizeof(*machine.driver.version));
    return ERROR_SUCCESS;
  }
  const std::u16string key = FullPath(path);
  const std::u16string live = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZTL\\Parameters";
  if (EqualNoCase(std::u16string_view(key).substr(0, live.size()), live)) return ERROR_INVALID_PARAMETER;
  if (key.empty() || (code != kDestroyLinkKey && code != kSaveParameters)) return ERROR_INVALID_PARAMETER;
  if (code == kDestroyLinkKey) {
    const std::size_t slash = key.rfind(u'\\');
    simulation::RegistryKey* const parent = machine.registry.Find(key.substr(0, slash));
    return parent != nullptr && parent->DeleteSubkey(key.substr(slash + 1)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
  }
  const simulation::RegistryKey* const parameters = machine.registry.Find(live);
  if (parameters == nullptr) return ERROR_FILE_NOT_FOUND;
  CopyTree(*parameters, machine.registry.Create(key));
  return ERROR_SUCCESS;
}

}  // namespace

HANDLE CreateFileW(const char16_t* name, DWORD access, DWORD, void*, DWORD disposition, DWORD flags, HANDLE) {
  simulation::Machine& machine = simulation::Current();
  const auto code =
      machine.Enter(Operation::CreateFileW, {.name = name, .number = access, .number2 = disposition, .flags = flags});
  const std::lock_guard lock(machine.mutex);
  const LSTATUS rc = code                                                           ? *code
                     : !machine.driver.version || !EqualNoCase(name, u"\\\\.\\ZTL") ? ERROR_FILE_NOT_FOUND
                     : machine.driver.isOpen                                        ? ERROR_SHARING_VIOLATION
                                                                                    : ERROR_SUCCESS;
  if (rc != ERROR_SUCCESS) {
    Fail(machine, rc);
    return INVALID_HANDLE_VALUE;
  }
  machine.driver.isOpen = true;
  return kControlDevice;
}

BOOL DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputBytes, void* output, DWORD outputBytes,
                     DWORD* returned, void*) {
  simulation::Machine& machine = simulation::Current();
  const auto fault =
      machine.Enter(Operation::DeviceIoControl, {.number = code, .data = input, .dataBytes = inputBytes});
  const std::lock_guard lock(machine.mutex);
  if (device != kControlDevice || !machine.driver.isOpen) return Fail(machine, ERROR_INVALID_HANDLE);
  const std::u16string path(static_cast<const char16_t*>(input), inputBytes / sizeof(char16_t));
  const LSTATUS rc = fault ? *fault : Answer(machine, code, path, output, outputBytes);
  machine.driver.requests.push_back({code, path, inputBytes, static_cast<DWORD>(rc)});
  *returned = rc == ERROR_SUCCESS ? outputBytes : 0;
  return rc == ERROR_SUCCESS ? 1 : Fail(machine, rc);
}

BOOL CloseHandle(HANDLE handle) {
  simulation::Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::CloseHandle);
  const std::lock_guard lock(machine.mutex);
  if (handle != kControlDevice || !machine.driver.isOpen) return Fail(machine, ERROR_INVALID_HANDLE);
  machine.driver.isOpen = false;
  return code ? Fail(machine, *code) : 1;
}

}  // namespace platform
