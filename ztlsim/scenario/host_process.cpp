#include "ztlsim/scenario/host_process.h"

#include "module/names.h"
#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"
#include "ztlsim/scenario/noticed_path.h"

namespace ztlsim {

using namespace platform;

namespace {

template <class Interface>
ComPtr<Interface> Query(IUnknown* object, REFIID riid) {
  ComPtr<Interface> result;
  object->QueryInterface(riid, reinterpret_cast<void**>(result.Receive()));
  return result;
}

// Sends notices of all kinds, as the object supports all that there are here. Of each path as the filter's own and as
// another component's; the queries come before the change and the notices after it.
void SendNotices(const CallOptions& options, IUnknown* object, INetCfgComponent* component) {
  const auto own = Query<INetCfgComponentNotifyBinding>(object, IID_INetCfgComponentNotifyBinding);
  const auto global = Query<INetCfgComponentNotifyGlobal>(object, IID_INetCfgComponentNotifyGlobal);
  if (options.paths.empty() && options.changeFlag) global->SysNotifyComponent(*options.changeFlag, component);
  for (const PathNotice& notice : options.paths) {
    NoticedPath path(notice);
    const DWORD flag =
        options.changeFlag.value_or(NCN_BINDING_PATH | (notice.enabled == S_FALSE ? NCN_DISABLE : NCN_ENABLE));
    global->SysQueryBindingPath(flag, &path);
    own->QueryBindingPath(flag, &path);
    global->SysNotifyBindingPath(flag, &path);
    own->NotifyBindingPath(flag, &path);
  }
}

// False when the user has not applied the page.
bool UsePropertyPage(const CallOptions& options, Process& process, IUnknown* object, CallResults& results) {
  const auto properties = Query<INetCfgComponentPropertyUi>(object, IID_INetCfgComponentPropertyUi);
  ComPtr<INetLanConnectionUiInfo> connection;
  if (options.adapter)
    connection = ComPtr<INetLanConnectionUiInfo>::Attach(process.CreateLanConnection(*options.adapter));
  if (properties->QueryPropertyUi(connection.Get()) != S_OK) return false;
  results.emplace_back("SetContext", properties->SetContext(connection.Get()));
  const auto show = [&](const PageInput& input) {
    DWORD defaultPages = 0;
    BYTE* pages = nullptr;
    UINT count = 0;
    const HRESULT hr = properties->MergePropPages(&defaultPages, &pages, &count, nullptr, nullptr);
    const bool applied =
        !Failed(hr) && process.ShowPages({reinterpret_cast<const HPROPSHEETPAGE*>(pages), count}, input);
    platform::CoTaskMemFree(pages);
    if (applied) {
      properties->ValidateProperties(nullptr);
      properties->ApplyProperties();
    } else {
      properties->CancelProperties();
    }
    return std::pair(hr, applied);
  };
  const auto [hr, applied] = show(options.page);
  results.emplace_back("MergePropPages", hr);
  if (options.pageAgain) show({.texts = {}, .button = PageButton::Cancel});
  return applied;
}

// What a transaction does between the object's initialization and ApplyRegistryChanges.
struct Transaction {
  BOOL installing = 0;
  HRESULT (*setUp)(INetCfgComponentSetup& setup) = nullptr;
  // What follows the setup call. When it is false, the changes are cancelled.
  bool (*use)(const CallOptions& options, Process& process, INetCfgComponentControl* object,
              INetCfgComponent* component, CallResults& results) = nullptr;
  bool appliesPnp = true;
};

// From the notify object's creation to its release.
void CallNotifyObject(const CallOptions& options, Process& process, const Transaction& transaction,
                      CallResults& results) {
  const auto netCfg = ComPtr<INetCfg>::Attach(process.CreateTransaction());
  const auto callback = ComPtr<INetCfgPnpReconfigCallback>::Attach(process.CreatePnpReconfigCallback());
  ComPtr<INetCfgComponent> component;
  netCfg->FindComponent(ztl::kFilterComponent, component.Receive());

  auto call = [&results](const char* method, HRESULT hr) { results.emplace_back(method, hr); };
  ComPtr<INetCfgComponentControl> control;
  HRESULT hr = platform::CoCreateInstance(ztl::CLSID_CSampleFilter, nullptr, CLSCTX_INPROC_SERVER,
                                          IID_INetCfgComponentControl, reinterpret_cast<void**>(control.Receive()));
  if (Failed(hr)) return call("CreateInstance", hr);
  auto setup = Query<INetCfgComponentSetup>(control.Get(), IID_INetCfgComponentSetup);
  hr = control->Initialize(component.Get(), netCfg.Get(), transaction.installing);
  if (Failed(hr)) return call("Initialize", hr);
  DWORD wanted = 0;
  Query<INetCfgComponentNotifyGlobal>(control.Get(), IID_INetCfgComponentNotifyGlobal)
      ->GetSupportedNotifications(&wanted);
  if (transaction.setUp != nullptr) hr = transaction.setUp(*setup.Get());
  if (Failed(hr)) call("setup", hr);
  setup.Reset();
  if (transaction.use != nullptr && !transaction.use(options, process, control.Get(), component.Get(), results))
    return call("CancelChanges", control->CancelChanges());
  call("ApplyRegistryChanges", control->ApplyRegistryChanges());
  if (transaction.appliesPnp) call("ApplyPnpChanges", control->ApplyPnpChanges(callback.Get()));
}

// Asks for the class object, makes one instance and releases it.
void UseClassObject(const ModuleEntries& module, CallResults& results) {
  IClassFactory* factory = nullptr;
  ComPtr<IUnknown> instance;
  results.emplace_back("DllGetClassObject", module.getClassObject(ztl::CLSID_CSampleFilter, IID_IClassFactory,
                                                                  reinterpret_cast<void**>(&factory)));
  if (!Failed(results.back().second)) {
    results.emplace_back("CreateInstance",
                         factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(instance.Receive())));
    instance.Reset();
    factory->Release();
  }
  results.emplace_back("DllCanUnloadNow", module.canUnloadNow());
}

CallResults Transact(const CallOptions& options, Process& process, const Transaction& transaction) {
  const HRESULT hr = platform::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  if (Failed(hr)) return {{"CoInitializeEx", hr}};
  CallResults results;
  CallNotifyObject(options, process, transaction, results);
  platform::CoUninitialize();
  return results;
}

// `call` takes the module's entries and the results.
template <class Call>
CallResults CallModule(Process& process, Call call) {
  CallResults results;
  call(process.LoadModule(), results);
  process.UnloadModule();
  return results;
}

}  // namespace

CallResults Install(const CallOptions& options, Process& process) {
  return Transact(options, process,
                  {.installing = 1, .setUp = [](INetCfgComponentSetup& setup) { return setup.Install(0); }});
}

CallResults Upgrade(const CallOptions& options, Process& process) {
  return Transact(options, process, {.setUp = [](INetCfgComponentSetup& setup) { return setup.Upgrade(0, 0); }});
}

CallResults Remove(const CallOptions& options, Process& process) {
  return Transact(options, process, {.setUp = [](INetCfgComponentSetup& setup) { return setup.Removing(); }});
}

CallResults Notify(const CallOptions& options, Process& process) {
  return Transact(options, process,
                  {.use =
                       [](const CallOptions& given, Process&, INetCfgComponentControl* object,
                          INetCfgComponent* component, CallResults&) {
                         SendNotices(given, object, component);
                         return true;
                       },
                   .appliesPnp = false});
}

CallResults ShowProperties(const CallOptions& options, Process& process) {
  return Transact(
      options, process,
      {.use = [](const CallOptions& given, Process& user, INetCfgComponentControl* object, INetCfgComponent*,
                 CallResults& results) { return UsePropertyPage(given, user, object, results); }});
}

CallResults Reinstall(const CallOptions&, Process& process) {
  return CallModule(process, [](const ModuleEntries& module, CallResults& results) {
    results.emplace_back("ReInstallZtl", static_cast<HRESULT>(module.reInstallZtl(nullptr, nullptr, nullptr, 0)));
  });
}

CallResults Register(const CallOptions&, Process& process) {
  return CallModule(process, [](const ModuleEntries& module, CallResults& results) {
    results.emplace_back("DllRegisterServer", module.registerServer());
  });
}

CallResults Unregister(const CallOptions&, Process& process) {
  return CallModule(process, [](const ModuleEntries& module, CallResults& results) {
    results.emplace_back("DllUnregisterServer", module.unregisterServer());
  });
}

CallResults LoadAndUnload(const CallOptions&, Process& process) { return CallModule(process, UseClassObject); }

}  // namespace ztlsim
