// The operations of the platform boundary, as the simulation names, counts and watches them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/types.h"

namespace simulation {

using namespace platform;

// clang-format off
// Every operation, once. X takes its name.
#define ZTL_OPERATIONS(X)                                                                                             \
  /* registry */                                                                                                      \
  X(RegOpenKeyExW) X(RegOpenKeyW) X(RegCreateKeyExW) X(RegEnumKeyExW) X(RegEnumValueW) X(RegQueryValueExW)            \
  X(RegSetValueExW) X(RegDeleteValueW) X(RegDeleteKeyW) X(RegCloseKey)                                                \
  /* files */                                                                                                         \
  X(_open) X(_creat) X(_close) X(_filelength) X(_lseek) X(_read) X(_write) X(_locking) X(_mkdir)                      \
  /* clock, debugger, system */                                                                                       \
  X(time) X(localtime) X(strftime) X(OutputDebugStringA) X(MessageBoxA) X(WriteStandardOutput)                        \
  X(GetWindowsDirectoryA) X(GetVersionExW) X(GetLastError) X(GetCurrentProcessId) X(GetCommandLineW)                  \
  X(DisableThreadLibraryCalls) X(GetModuleFileNameW) X(FindResourceW) X(lstrcmpiW)                                    \
  /* driver */                                                                                                        \
  X(CreateFileW) X(DeviceIoControl) X(CloseHandle)                                                                    \
  /* setup files, versions */                                                                                         \
  X(SetupGetInfFileListW) X(SetupOpenInfFileW) X(SetupCloseInfFile) X(SetupFindFirstLineW) X(SetupGetStringFieldW)    \
  X(SetupCopyOEMInfW) X(GetPrivateProfileStringW) X(GetFileVersionInfoSizeW) X(GetFileVersionInfoW)                   \
  X(VerQueryValueW) X(GlobalAlloc) X(GlobalLock) X(GlobalUnlock) X(GlobalFree) X(GetSystemWindowsDirectoryW)          \
  X(GetSystemDirectoryW) X(CopyFileW)                                                                                 \
  /* dialogs */                                                                                                       \
  X(CreatePropertySheetPageW) X(GetParent) X(GetDlgItem) X(SendMessageW) X(SetWindowTextW) X(GetWindowTextW)          \
  X(GetWindowLongPtrW) X(SetWindowLongPtrW)                                                                           \
  /* COM runtime */                                                                                                   \
  X(CoInitializeEx) X(CoUninitialize) X(CoCreateInstance) X(CoFreeUnusedLibraries) X(CoTaskMemAlloc)                  \
  X(CoTaskMemFree) X(StringFromGUID2)                                                                                 \
  /* engine */                                                                                                        \
  X(QueryInterface) X(AcquireWriteLock) X(ReleaseWriteLock) X(Initialize) X(Uninitialize) X(Apply) X(FindComponent)   \
  X(QueryNetCfgClass) X(EnumComponents) X(Install) X(Next) X(Reset) X(GetPnpDevNodeId) X(OpenParamKey) X(IsBoundTo)   \
  X(EnumBindingPaths) X(IsEnabled) X(Enable) X(GetPathToken) X(SendPnpReconfig) X(GetDeviceGuid)
// clang-format on

enum class Operation : std::uint8_t {
#define ZTL_ENUMERATOR(name) name,
  ZTL_OPERATIONS(ZTL_ENUMERATOR)
#undef ZTL_ENUMERATOR
      Count
};

const char* OperationName(Operation operation);

// What an operation was called with, as far as it has such an argument. The pointers are valid during the call.
struct Arguments {
  HKEY key = nullptr;
  const char16_t* name = nullptr;  // subkey, value or component name
  const char* path = nullptr;      // file path or text
  std::int64_t number = 0;         // index, descriptor, size or access rights
  std::int64_t number2 = 0;        // capacity in the operation's own unit, offset, type, disposition
  std::int64_t flags = 0;          // of opening or creating, a style, a lock's mode, where an offset counts from
  const void* data = nullptr;
  std::size_t dataBytes = 0;
};

}  // namespace simulation
