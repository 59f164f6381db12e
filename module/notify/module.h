// The module as Windows and COM see it: its entry, its exports and its class object.
//
// In the DLL these are the exported functions themselves; elsewhere they are called like any other.
#pragma once

#include "module/version.h"
#include "platform/com.h"
#include "platform/module.h"
#include "platform/types.h"

namespace ztl {

inline constexpr platform::DWORD kModuleVersion[] = {ZTL_VERSION_NUMBERS};

extern "C" {

// Sets the module log up when a process attaches, and ends it when it detaches. Always true.
platform::BOOL DllMain(platform::HINSTANCE hinstDLL, platform::DWORD fdwReason, void* lpvReserved);

// S_OK when there is no instance and no server lock, else S_FALSE.
platform::HRESULT DllCanUnloadNow();

// The class object of CSampleFilter, with a reference for the caller. E_POINTER, CLASS_E_CLASSNOTAVAILABLE, or
// E_NOINTERFACE for anything but IUnknown and IClassFactory.
platform::HRESULT DllGetClassObject(platform::REFCLSID rclsid, platform::REFIID riid, void** ppv);

// Runs the registration script. Returns its failure, or that of ERROR_INSUFFICIENT_BUFFER when the module's path is
// longer than 259 characters.
platform::HRESULT DllRegisterServer();

// Prepares the driver for its unload and removes what was registered. Always S_OK.
platform::HRESULT DllUnregisterServer();

// The entry that a command-line host calls, with that call's arguments, of which it reads none. Installs the filter
// component again; the result is that of ReInstallFilter. The DLL exports it under the name that a C++ compiler gives
// this function outside of any namespace.
platform::DWORD ReInstallZtl(void* window, void* instance, char* commandLine, int show);

}  // extern "C"

// The module's instance handle, known since its attach.
platform::HINSTANCE ModuleInstance();

}  // namespace ztl
