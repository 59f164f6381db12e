// The process and the module that the code runs in: its path and its resources (libloaderapi.h, processthreadsapi.h).
#pragma once

#include "platform/types.h"

namespace platform {

struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
struct HRSRC__;
using HRSRC = HRSRC__*;

// Process events that a module's entry is called with (winnt.h).
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;

DWORD GetCurrentProcessId();
const char16_t* GetCommandLineW();
BOOL DisableThreadLibraryCalls(HINSTANCE module);

// The module's full path into `path` of `capacity` characters. The length without the terminator; `capacity` when the
// path was cut; 0 on failure.
DWORD GetModuleFileNameW(HINSTANCE module, char16_t* path, DWORD capacity);

// A number as the name of a resource.
inline const char16_t* ResourceId(WORD id) {
  return reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(id));
}
inline bool IsResourceId(const char16_t* name) { return reinterpret_cast<std::uintptr_t>(name) <= 0xFFFF; }
constexpr WORD RT_DIALOG = 5;  // a type
// Null when the module has no such resource. The bytes live as long as the module.
HRSRC FindResourceW(HINSTANCE module, const char16_t* name, const char16_t* type);
const void* LoadResourceData(HINSTANCE module, HRSRC resource);  // null on failure
DWORD SizeofResource(HINSTANCE module, HRSRC resource);          // bytes; 0 on failure

}  // namespace platform
