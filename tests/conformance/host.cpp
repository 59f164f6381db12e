// ztl_host.exe: a process in which Windows' own COM, registry and files meet the shipped DLL, with the simulated engine
// behind its class in the registry. It makes a scenario's calls, or writes many lines of the log, and reports as JSON.
#include "module/names.h"
#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"
#include "platform/system_info.h"
#include "simulation/text_encoding.h"
#include "tests/conformance/engine_server.h"
#include "tests/conformance/real_sheet.h"
#include "ztlsim/scenario/noticed_path.h"
#include "ztlsim/scenario/scenarios.h"
// The public headers come last: they define some of the boundary's names as macros.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using simulation::Utf16ToUtf8;
using simulation::Utf8ToUtf16;
using Json = nlohmann::ordered_json;

std::vector<std::string> g_debuggerOutput;
std::string g_dieAt;  // the process ends when the debugger gets a text with this in it; empty: never

constexpr UINT kDied = 99;

[[noreturn]] void Complain(const char* text, const std::string& what = {}) {
  std::fprintf(stderr, "ztl_host: %s %s (system error %lu)\n", text, what.c_str(), GetLastError());
  std::exit(2);
}

// Every text for the debugger arrives as an exception, before anything else sees it.
LONG CALLBACK TakeDebuggerText(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode != DBG_PRINTEXCEPTION_C) return EXCEPTION_CONTINUE_SEARCH;
  g_debuggerOutput.emplace_back(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
  if (!g_dieAt.empty() && g_debuggerOutput.back().find(g_dieAt) != std::string::npos)
    TerminateProcess(GetCurrentProcess(), kDied);
  return EXCEPTION_CONTINUE_EXECUTION;
}

std::string Utf8(const wchar_t* text) { return Utf16ToUtf8(reinterpret_cast<const char16_t*>(text)); }

template <class Function>
Function* Find(HMODULE library, const char* name) {
  const FARPROC found = GetProcAddress(library, name);
  if (found == nullptr) Complain("no export", name);
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(found));
}

// Where COM finds the server of a class.
std::wstring ServerOf(const wchar_t* clsid) {
  wchar_t path[MAX_PATH] = L"";
  DWORD bytes = sizeof(path);
  const std::wstring key = std::wstring(L"Software\\Classes\\CLSID\\") + clsid + L"\\InprocServer32";
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, path, &bytes) != ERROR_SUCCESS)
    Complain("no server is registered for", Utf8(clsid));
  return path;
}

// The engine's library stays for the whole life of the process, as what it remembers does.
struct Engine {
  HMODULE library = LoadLibraryW(ServerOf(L"{5B035261-40F9-11D1-AAEC-00805FC1270E}").c_str());
  ztl_conformance::StartEngine* start = Find<ztl_conformance::StartEngine>(library, "StartEngine");
  ztl_conformance::EngineReport* report = Find<ztl_conformance::EngineReport>(library, "EngineReport");
};

class RealProcess final : public ztlsim::Process {
 public:
  explicit RealProcess(const Engine& engine) : engine_(engine) {}

  platform::INetCfg* CreateTransaction() override {
    return Find<ztl_conformance::CreateTransaction>(engine_.library, "CreateTransaction")();
  }
  platform::INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() override {
    return Find<ztl_conformance::CreatePnpReconfigCallback>(engine_.library, "CreatePnpReconfigCallback")();
  }
  platform::INetLanConnectionUiInfo* CreateLanConnection(const platform::GUID& adapter) override {
    return Find<ztl_conformance::CreateLanConnection>(engine_.library, "CreateLanConnection")(adapter);
  }
  bool ShowPages(std::span<const platform::HPROPSHEETPAGE> pages, const ztlsim::PageInput& input) override {
    bool applied = false;
    shownPages_.push_back(ztl_conformance::UseSheet(pages, input, applied));
    return applied;
  }
  const Json& ShownPages() const { return shownPages_; }
  ztlsim::ModuleEntries LoadModule() override {
    module_ = LoadLibraryW(L"C:\\Windows\\System32\\ztli64x.dll");
    if (module_ == nullptr) Complain("cannot load the module");
    return {Entry<decltype(ztlsim::ModuleEntries::canUnloadNow)>("DllCanUnloadNow"),
            Entry<decltype(ztlsim::ModuleEntries::getClassObject)>("DllGetClassObject"),
            Entry<decltype(ztlsim::ModuleEntries::registerServer)>("DllRegisterServer"),
            Entry<decltype(ztlsim::ModuleEntries::unregisterServer)>("DllUnregisterServer"),
            Entry<decltype(ztlsim::ModuleEntries::reInstallZtl)>("?ReInstallZtl@@YAKPEAX0PEADH@Z")};
  }
  void UnloadModule() override { FreeLibrary(module_); }

 private:
  template <class Pointer>
  Pointer Entry(const char* name) {
    return Find<std::remove_pointer_t<Pointer>>(module_, name);
  }

  const Engine& engine_;
  Json shownPages_ = Json::array();
  HMODULE module_ = nullptr;
};

Json Run(const std::string& scenario, std::map<std::string, std::string>& options) {
  const Engine engine;
  engine.start(Utf8ToUtf16(options["--lock-held"]).c_str(), options["--second-lock"] != "refuse");
  Json report;
  RealProcess process(engine);
  const ztlsim::Scenario* const known = ztlsim::FindScenario(scenario);
  if (known == nullptr) Complain("no scenario", scenario);
  ztlsim::CallOptions calls;
  for (const ztlsim::CallOption& option : known->options)
    if (const auto given = options.find(option.name); given != options.end() && option.read(given->second, calls))
      Complain("cannot use the option", option.name);
  report["result"] = Json::object();
  for (const auto& [method, hr] : known->calls(calls, process)) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(hr));
    report["result"][method] = text;
  }
  const Json& pages = process.ShownPages();
  report["page"] = pages.empty() ? Json(nullptr) : pages[0];
  if (pages.size() > 1) report["page"]["again"] = pages[1]["opened"];
  std::istringstream lines(engine.report());
  std::int64_t waited = 0;
  std::int64_t objects = 0;
  std::string line;
  lines >> waited >> objects;
  std::getline(lines, line);
  report["elapsed_ms"] = waited;
  report["objects_left"] = objects;
  report["engine_requests"] = Json::array();
  while (std::getline(lines, line)) report["engine_requests"].push_back(line);
  return report;
}

// Makes a notify object and asks it about `count` binding paths, which is worth three lines of the log each; the third
// holds "PathToken <NAME:NUMBER:filler>", the filler being `filler` times the name's last character.
void WriteLines(const std::string& name, int count, std::size_t filler) {
  platform::CoInitializeEx(nullptr, platform::COINIT_APARTMENTTHREADED);
  platform::ComPtr<platform::INetCfgComponentSetup> setup;
  platform::ComPtr<platform::INetCfgComponentNotifyBinding> binding;
  if (platform::Failed(platform::CoCreateInstance(ztl::CLSID_CSampleFilter, nullptr, platform::CLSCTX_INPROC_SERVER,
                                                  platform::IID_INetCfgComponentSetup,
                                                  reinterpret_cast<void**>(setup.Receive()))) ||
      platform::Failed(setup->QueryInterface(platform::IID_INetCfgComponentNotifyBinding,
                                             reinterpret_cast<void**>(binding.Receive()))))
    Complain("no notify object");
  ztlsim::PathNotice notice{{}, S_OK};
  ztlsim::NoticedPath path(notice);
  for (int query = 0; query < count; ++query) {
    notice.token = Utf8ToUtf16(name + ":" + std::to_string(query) + ":" + std::string(filler, name.back()));
    binding->QueryBindingPath(0, &path);
  }
  setup->Removing();  // so that the release runs no pass
  binding = {}, setup = {};
  platform::CoUninitialize();
}

std::wstring Wide(const std::string& text) {
  const std::u16string units = Utf8ToUtf16(text);
  return {units.begin(), units.end()};
}

void Check(LSTATUS rc, const std::string& path) {
  if (rc != ERROR_SUCCESS) throw std::runtime_error("registry code " + std::to_string(rc) + " at " + path);
}

// [[key, value's name, type, bytes]…], by paths below HKEY_LOCAL_MACHINE. Text stays unterminated.
void SetValues(const Json& values) {
  for (const Json& value : values) {
    HKEY key;
    const std::string path = value[0];
    Check(RegCreateKeyW(HKEY_LOCAL_MACHINE, Wide(path).c_str(), &key), path);
    std::vector<BYTE> data = value[3];
    const auto bytes = static_cast<DWORD>(data.size());
    data.insert(data.end(), 2, 0xFF);  // a NUL there would be stored with it
    Check(RegSetValueExW(key, Wide(value[1]).c_str(), 0, value[2], data.data(), bytes), path);
    RegCloseKey(key);
  }
}

// The same of all values of an open key, [key] for the key as such, and what is below it.
void ReadKey(HKEY key, const std::string& path, Json& read) {
  read.push_back({path});
  std::wstring name(16384, L'\0');
  std::vector<BYTE> data(1 << 20);
  LSTATUS rc = ERROR_SUCCESS;
  for (DWORD index = 0;; ++index) {
    DWORD length = 16384, type = 0, bytes = 1 << 20;
    rc = RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &bytes);
    if (rc == ERROR_NO_MORE_ITEMS) break;
    Check(rc, path);
    read.push_back({path, Utf8(name.c_str()), type, Json(std::vector(data.data(), data.data() + bytes))});
  }
  for (DWORD index = 0;; ++index) {
    rc = RegEnumKeyW(key, index, name.data(), 256);
    if (rc == ERROR_NO_MORE_ITEMS) break;
    const std::string below = path + "\\" + Utf8(name.c_str());
    HKEY subkey = nullptr;
    Check(rc != ERROR_SUCCESS ? rc : RegOpenKeyW(key, name.c_str(), &subkey), below);
    ReadKey(subkey, below, read);
    RegCloseKey(subkey);
  }
}

int Main(int argc, char** argv) {
  if (argc < 3) Complain("usage: ztl_host run SCENARIO | log NAME | look keys [OPTION VALUE]…");
  std::map<std::string, std::string> options;
  for (int i = 3; i + 1 < argc; i += 2) options[argv[i]] = argv[i + 1];
  Json report;
  Json job = {{"set", Json::array()}, {"read", Json::array()}, {"die_at", ""}};
  if (!options["--job"].empty()) job.update(Json::parse(std::ifstream(options["--job"])));
  SetValues(job["set"]);
  g_dieAt = job["die_at"];
  AddVectoredExceptionHandler(1, TakeDebuggerText);
  if (std::strcmp(argv[1], "run") == 0) report = Run(argv[2], options);
  if (std::strcmp(argv[1], "log") == 0)
    WriteLines(argv[2], std::stoi(options["--count"]), std::stoul(options["--filler"]));
  platform::OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  platform::GetVersionExW(&version);
  report["os"] = std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                 std::to_string(version.wServicePackMajor);
  report["process"] = {{"id", GetCurrentProcessId()}, {"command_line", Utf8(GetCommandLineW())}};
  report["debugger_output"] = g_debuggerOutput;
  report["registry"] = Json::array();
  for (const std::string path : job["read"])
    if (HKEY key; RegOpenKeyW(HKEY_LOCAL_MACHINE, Wide(path).c_str(), &key) == ERROR_SUCCESS) {
      ReadKey(key, path, report["registry"]);
      RegCloseKey(key);
    }
  std::ofstream(options["--report"], std::ios::binary)
      << report.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
  return 0;
}

}  // namespace

// ztl_host run SCENARIO: --lock-held and --second-lock as of ztlsim.
// ztl_host log NAME: --count queries that each log three lines, --filler bytes long.
// ztl_host look keys: nothing else.
// All: --job FILE of what the command line, which is in the log, does not tell: the values to "set" at first, the text
// to "die_at", when the debugger gets it, and the keys to "read" at last; --report FILE.
int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    Complain(error.what());
  }
}
