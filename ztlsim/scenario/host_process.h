// The calls that a process makes in a scenario: in one transaction to the notify object, as the configuration engine
// makes them, or to the module's entries. They go through the platform boundary alone, so the simulation and a real
// process run the same ones.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/com.h"
#include "platform/dialogs.h"
#include "platform/netcfg.h"

namespace ztlsim {

// A binding path that the notify object gets a notice of.
struct PathNotice {
  std::u16string token;
  platform::HRESULT enabled;  // S_OK, S_FALSE, or the failure to query it
};

enum class PageButton { Ok, Apply, Cancel };

// What the user of the property page does: types each text in place of what the control shows, and presses the button.
// A sheet that stays open is closed by its Close button.
struct PageInput {
  std::vector<std::pair<int, std::u16string>> texts;  // by the control's identifier
  PageButton button = PageButton::Ok;
};

struct CallOptions {
  std::vector<PathNotice> paths;  // of a notification
  // The change flag of every notice; without it, that of the path's state. Without paths, it is that of a notice of the
  // filter's component, and without it there is none.
  std::optional<platform::DWORD> changeFlag;
  std::optional<platform::GUID> adapter;  // whose properties are opened; unset: those of no connection
  PageInput page;
  bool pageAgain = false;  // it is opened a second time, and cancelled
};

// What the module exports.
struct ModuleEntries {
  platform::HRESULT (*canUnloadNow)();
  platform::HRESULT (*getClassObject)(platform::REFCLSID rclsid, platform::REFIID riid, void** ppv);
  platform::HRESULT (*registerServer)();
  platform::HRESULT (*unregisterServer)();
  platform::DWORD (*reInstallZtl)(void*, void*, char*, int);
};

// The process that makes the calls. Objects that it makes carry one reference, which the caller releases.
class Process {
 public:
  // The engine's object and callback for a transaction that is under way.
  virtual platform::INetCfg* CreateTransaction() = 0;
  virtual platform::INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() = 0;
  virtual platform::INetLanConnectionUiInfo* CreateLanConnection(const platform::GUID& adapter) = 0;

  // Shows the pages, which it takes over, in a property sheet, and does what `input` says. Whether they were
  // applied.
  virtual bool ShowPages(std::span<const platform::HPROPSHEETPAGE> pages, const PageInput& input) = 0;

  // The module's entries, which are there until it is unloaded.
  virtual ModuleEntries LoadModule() = 0;
  virtual void UnloadModule() = 0;

 protected:
  ~Process() = default;
};

// The methods whose result matters to the caller, in the order of the calls.
using CallResults = std::vector<std::pair<std::string, platform::HRESULT>>;

// The calls of each scenario. Those from Install to ShowProperties are transactions of the configuration engine, in
// which CoCreateInstance makes the notify object; the others load the module, call its entries and unload it.
using Calls = CallResults(const CallOptions& options, Process& process);
Calls Install, Upgrade, Remove, Notify, ShowProperties;
Calls Reinstall, Register, Unregister, LoadAndUnload;

}  // namespace ztlsim
