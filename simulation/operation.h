// The operations of the platform boundary, as the simulation names, counts and watches them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/types.h"

namespace simulation {

using namespace platform;

enum class Operation : std::uint8_t {
  // registry
  RegOpenKeyExW,
  RegOpenKeyW,
  RegCreateKeyExW,
  RegEnumKeyExW,
  RegEnumValueW,
  RegQueryValueExW,
  RegSetValueExW,
  RegDeleteValueW,
  RegDeleteKeyW,
  RegCloseKey,
  // files
  _open,
  _creat,
  _close,
  _filelength,
  _lseek,
  _read,
  _write,
  _locking,
  _mkdir,
  // clock, debugger, system
  time,
  localtime,
  strftime,
  OutputDebugStringA,
  MessageBoxA,
  WriteStandardOutput,
  GetWindowsDirectoryA,
  GetVersionExW,
  GetLastError,
  GetCurrentProcessId,
  GetCommandLineW,
  DisableThreadLibraryCalls,
  GetModuleFileNameW,
  FindResourceW,
  // driver
  CreateFileW,
  DeviceIoControl,
  CloseHandle,
  // setup files, versions
  SetupGetInfFileListW,
  SetupOpenInfFileW,
  SetupCloseInfFile,
  SetupFindFirstLineW,
  SetupGetStringFieldW,
  SetupCopyOEMInfW,
  GetPrivateProfileStringW,
  GetFileVersionInfoSizeW,
  GetFileVersionInfoW,
  VerQueryValueW,
  GlobalAlloc,
  GlobalLock,
  GlobalUnlock,
  GlobalFree,
  GetSystemWindowsDirectoryW,
  GetSystemDirectoryW,
  CopyFileW,
  // dialogs
  CreatePropertySheetPageW,
  GetParent,
  GetDlgItem,
  SendMessageW,
  SetWindowTextW,
  GetWindowTextW,
  GetWindowLongPtrW,
  SetWindowLongPtrW,
  // COM runtime
  CoInitializeEx,
  CoUninitialize,
  CoCreateInstance,
  CoFreeUnusedLibraries,
  CoTaskMemAlloc,
  CoTaskMemFree,
  StringFromGUID2,
  // engine
  QueryInterface,
  AcquireWriteLock,
  ReleaseWriteLock,
  Initialize,
  Uninitialize,
  Apply,
  FindComponent,
  QueryNetCfgClass,
  EnumComponents,
  Install,
  Next,
  Reset,
  GetPnpDevNodeId,
  OpenParamKey,
  IsBoundTo,
  EnumBindingPaths,
  IsEnabled,
  Enable,
  GetPathToken,
  SendPnpReconfig,
  GetDeviceGuid,
  Count
};

const char* OperationName(Operation operation);

// What an operation was called with, as far as it has such an argument. The pointers are valid during the call.
struct Arguments {
  HKEY key = nullptr;
  const char16_t* name = nullptr;  // subkey, value or component name
  const char* path = nullptr;      // file path or text
  std::int64_t number = 0;         // index, descriptor, size or access rights
  std::int64_t number2 = 0;        // capacity in the operation's own unit, offset, type or mode
  const void* data = nullptr;
  std::size_t dataBytes = 0;
};

}  // namespace simulation
