// The simulated engine as a COM server of a real process, over the operating system's registry. It stands in the place
// of the system's own engine, in a Wine prefix that is made for a run.
#include "tests/conformance/engine_server.h"

#include <atomic>
#include <cstdio>

#include "platform/com_ptr.h"
#include "simulation/netcfg_engine/engine_host.h"

namespace {

using namespace platform;
using simulation::Engine;

struct Host {
  Engine engine;
  std::mutex mutex;
  std::atomic<std::int64_t> waitedMilliseconds{0};
  std::string report;
};
Host g_host;

class ClassObject final : public IClassFactory {
 public:
  HRESULT QueryInterface(REFIID riid, void** object) override {
    *object = riid == IID_IUnknown || riid == IID_IClassFactory ? this : nullptr;
    return *object != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG AddRef() override { return 2; }
  ULONG Release() override { return 1; }
  HRESULT CreateInstance(IUnknown* outer, REFIID riid, void** object) override {
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    return ComPtr<INetCfg>::Attach(simulation::CreateNetCfg())->QueryInterface(riid, object);
  }
  HRESULT LockServer(BOOL) override { return S_OK; }
};
constinit ClassObject g_classObject;

}  // namespace

namespace simulation::engine_host {

Engine& State() { return g_host.engine; }
std::optional<std::int32_t> Enter(Operation, const Arguments&) { return std::nullopt; }
void Wait(std::int64_t milliseconds) { g_host.waitedMilliseconds += milliseconds; }
std::mutex& Mutex() { return g_host.mutex; }

}  // namespace simulation::engine_host

extern "C" {

HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, void** object) {
  if (clsid == CLSID_CNetCfg) return g_classObject.QueryInterface(riid, object);
  *object = nullptr;
  return CLASS_E_CLASSNOTAVAILABLE;
}

// What the engine remembers lasts as long as the process.
HRESULT DllCanUnloadNow() { return S_FALSE; }

INetCfg* CreateTransaction() { return simulation::CreateTransaction(); }

INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() { return simulation::CreatePnpReconfigCallback(); }

INetLanConnectionUiInfo* CreateLanConnection(const GUID& adapter) { return simulation::CreateLanConnection(adapter); }

void StartEngine(const char16_t* otherClient, bool grantSecondLock) {
  g_host.engine.otherClient = otherClient;
  g_host.engine.grantSecondLock = grantSecondLock;
  g_host.engine.recordRequests = true;
}

const char* EngineReport() {
  g_host.report = std::to_string(g_host.waitedMilliseconds) + "\n" + std::to_string(g_host.engine.objects) + "\n";
  for (const simulation::EngineRequest& request : g_host.engine.requests) {
    char result[16];
    std::snprintf(result, sizeof(result), " = 0x%08X", static_cast<unsigned>(request.result));
    g_host.report += request.text + result + "\n";
  }
  return g_host.report.c_str();
}

}  // extern "C"
