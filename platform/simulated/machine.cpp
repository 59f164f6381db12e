#include "platform/simulated/machine.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "platform/com_ptr.h"

namespace platform::simulated {
namespace {

Machine* g_current = nullptr;

constexpr const char* kOperationNames[] = {
    "RegOpenKeyExW",
    "RegOpenKeyW",
    "RegCreateKeyExW",
    "RegEnumKeyExW",
    "RegEnumValueW",
    "RegQueryValueExW",
    "RegSetValueExW",
    "RegDeleteValueW",
    "RegDeleteKeyW",
    "RegCloseKey",
    "_open",
    "_creat",
    "_close",
    "_filelength",
    "_lseek",
    "_read",
    "_write",
    "_locking",
    "_mkdir",
    "time",
    "localtime",
    "strftime",
    "OutputDebugStringA",
    "MessageBoxA",
    "WriteStandardOutput",
    "GetWindowsDirectoryA",
    "GetVersionExW",
    "GetLastError",
    "GetCurrentProcessId",
    "GetCommandLineW",
    "DisableThreadLibraryCalls",
    "GetModuleFileNameW",
    "FindResourceW",
    "CreateFileW",
    "DeviceIoControl",
    "CloseHandle",
    "SetupGetInfFileListW",
    "SetupOpenInfFileW",
    "SetupCloseInfFile",
    "SetupFindFirstLineW",
    "SetupGetStringFieldW",
    "SetupCopyOEMInfW",
    "GetPrivateProfileStringW",
    "GetFileVersionInfoSizeW",
    "GetFileVersionInfoW",
    "VerQueryValueW",
    "GlobalAlloc",
    "GlobalLock",
    "GlobalUnlock",
    "GlobalFree",
    "GetSystemWindowsDirectoryW",
    "GetSystemDirectoryW",
    "CopyFileW",
    "CreatePropertySheetPageW",
    "GetParent",
    "GetDlgItem",
    "SendMessageW",
    "SetWindowTextW",
    "GetWindowTextW",
    "GetWindowLongPtrW",
    "SetWindowLongPtrW",
    "CoInitializeEx",
    "CoUninitialize",
    "CoCreateInstance",
    "CoFreeUnusedLibraries",
    "CoTaskMemAlloc",
    "CoTaskMemFree",
    "StringFromGUID2",
    "QueryInterface",
    "AcquireWriteLock",
    "ReleaseWriteLock",
    "Initialize",
    "Uninitialize",
    "Apply",
    "FindComponent",
    "QueryNetCfgClass",
    "EnumComponents",
    "Install",
    "Next",
    "Reset",
    "GetPnpDevNodeId",
    "OpenParamKey",
    "IsBoundTo",
    "EnumBindingPaths",
    "IsEnabled",
    "Enable",
    "GetPathToken",
    "SendPnpReconfig",
};
static_assert(std::size(kOperationNames) == static_cast<std::size_t>(Operation::Count));

}  // namespace

Machine::Machine() {
  comClasses.push_back({CLSID_CNetCfg, [](IUnknown* outer, REFIID riid, void** object) {
                          if (outer != nullptr) return CLASS_E_NOAGGREGATION;
                          return ComPtr<INetCfg>::Attach(CreateNetCfg())->QueryInterface(riid, object);
                        }});
}

const char* OperationName(Operation operation) { return kOperationNames[static_cast<std::size_t>(operation)]; }

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

}  // namespace platform::simulated
