#include "platform/module.h"

#include "platform/windows/cast.h"

namespace platform {

using windows::Os;

namespace {

::HMODULE Os(HINSTANCE module) { return reinterpret_cast<::HMODULE>(module); }
::HRSRC Os(HRSRC resource) { return reinterpret_cast<::HRSRC>(resource); }

}  // namespace

DWORD GetCurrentProcessId() { return ::GetCurrentProcessId(); }

const char16_t* GetCommandLineW() { return reinterpret_cast<const char16_t*>(::GetCommandLineW()); }

BOOL DisableThreadLibraryCalls(HINSTANCE module) { return ::DisableThreadLibraryCalls(Os(module)); }

DWORD GetModuleFileNameW(HINSTANCE module, char16_t* path, DWORD capacity) {
  return ::GetModuleFileNameW(Os(module), Os(path), capacity);
}

HRSRC FindResourceW(HINSTANCE module, const char16_t* name, const char16_t* type) {
  return reinterpret_cast<HRSRC>(::FindResourceW(Os(module), Os(name), Os(type)));
}

const void* LoadResourceData(HINSTANCE module, HRSRC resource) {
  return ::LockResource(::LoadResource(Os(module), Os(resource)));
}

DWORD SizeofResource(HINSTANCE module, HRSRC resource) { return ::SizeofResource(Os(module), Os(resource)); }

}  // namespace platform
