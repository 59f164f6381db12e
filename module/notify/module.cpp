#include "module/notify/module.h"

#include "module/install/reinstall_filter.h"
#include "module/install/saved_parameters.h"
#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/notify/com_object.h"
#include "module/notify/module_log.h"
#include "module/notify/notify_object.h"
#include "module/notify/registrar.h"
#include "platform/system_info.h"

namespace ztl {

using namespace platform;

namespace {

constexpr WORD kRegistrationScript = 40001;
constexpr DWORD kModulePathCapacity = 260;

HINSTANCE g_instance = nullptr;

// The one class object. It keeps no state and lives as long as the module, so nothing counts its references.
class ClassObject final : public IClassFactory {
 public:
  HRESULT QueryInterface(REFIID riid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = riid == IID_IUnknown || riid == IID_IClassFactory ? this : nullptr;
    return *object != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG AddRef() override { return 2; }
  ULONG Release() override { return 1; }
  HRESULT CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override {
    return HrCreateSampleFilter(pUnkOuter, riid, ppvObject);
  }
  HRESULT LockServer(BOOL fLock) override {
    g_moduleLocks += fLock != 0 ? 1 : -1;
    return S_OK;
  }
};

constinit ClassObject g_classObject;

HRESULT RunScript(bool registering) {
  char16_t path[kModulePathCapacity];
  const DWORD length = platform::GetModuleFileNameW(g_instance, path, kModulePathCapacity);
  if (length == 0) return HresultFromError(static_cast<LSTATUS>(platform::GetLastError()));
  if (length == kModulePathCapacity) return HresultFromError(ERROR_INSUFFICIENT_BUFFER);
  const HRSRC script = platform::FindResourceW(g_instance, ResourceId(kRegistrationScript), u"REGISTRY");
  if (script == nullptr) return HresultFromError(static_cast<LSTATUS>(platform::GetLastError()));
  const auto* const text = static_cast<const char*>(platform::LoadResourceData(g_instance, script));
  if (text == nullptr) return HresultFromError(static_cast<LSTATUS>(platform::GetLastError()));
  return RunRegistrationScript({text, platform::SizeofResource(g_instance, script)}, {path, length}, registering);
}

}  // namespace

HINSTANCE ModuleInstance() { return g_instance; }

extern "C" BOOL DllMain(HINSTANCE hinstDLL, DWORD fdwReason, void*) {
  const DWORD process = platform::GetCurrentProcessId();
  switch (fdwReason) {
    case DLL_PROCESS_ATTACH:
      g_instance = hinstDLL;
      OpenModuleLog();
      LogMessage(g_ModuleLog, SEV_INFO, "DLL_PROCESS_ATTACH %u.%u.%u.%u pid=%u <%S>", kModuleVersion[0],
                 kModuleVersion[1], kModuleVersion[2], kModuleVersion[3], process, platform::GetCommandLineW());
      platform::DisableThreadLibraryCalls(hinstDLL);
      break;
    case DLL_PROCESS_DETACH:
      LogMessage(g_ModuleLog, SEV_INFO, "DLL_PROCESS_DETACH pid=%u", process);
      CloseModuleLog();
      break;
    default:
      LogMessage(g_ModuleLog, SEV_INFO, "DllMain Reason=%u pid=%u", fdwReason, process);
  }
  return 1;
}

extern "C" HRESULT DllCanUnloadNow() {
  const HRESULT hr = g_moduleLocks == 0 ? S_OK : S_FALSE;
  LogMessage(g_ModuleLog, SEV_INFO, "DllCanUnloadNow hr=%u", hr);
  return hr;
}

extern "C" HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
  LogMessage(g_ModuleLog, SEV_INFO, "DllGetClassObject");
  if (ppv == nullptr) return E_POINTER;
  if (rclsid == CLSID_CSampleFilter) return g_classObject.QueryInterface(riid, ppv);
  *ppv = nullptr;
  return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT DllRegisterServer() {
  LogMessage(g_ModuleLog, SEV_INFO, "DllRegisterServer");
  return RunScript(true);
}

extern "C" HRESULT DllUnregisterServer() {
  LogMessage(g_ModuleLog, SEV_INFO, "DllUnregisterServer");
  PrepareZtlForUnload();
  LogMessage(g_ModuleLog, SEV_INFO, "PrepareZtlForUnload() called");
  RunScript(false);
  platform::CoFreeUnusedLibraries();
  return S_OK;
}

extern "C" DWORD ReInstallZtl(void*, void*, char*, int) { return ReInstallFilter(); }

}  // namespace ztl
