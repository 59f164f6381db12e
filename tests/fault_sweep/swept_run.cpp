#include "tests/fault_sweep/swept_run.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/notify/module.h"
#include "module/notify/module_log.h"
#include "module/notify/property_page.h"
#include "platform/setup_files.h"
#include "tests/fault_sweep/memory_files.h"
#include "ztlsim/input/installation_files.h"
#include "ztlsim/scenario/scenarios.h"
#include "ztlsim/scenario/simulated_process.h"
#include "ztlsim/text_encoding.h"

namespace ztl_test {

using namespace platform;
using simulation::Machine;

namespace {

constexpr std::size_t kSeverityAt = 28;  // in a line of the log

constexpr std::int32_t Bits(std::uint32_t code) { return static_cast<std::int32_t>(code); }

std::vector<std::string> WhatIsLeft(const Machine& machine) {
  std::vector<std::string> left;
  for (const std::u16string& path : machine.registry.OpenHandlePaths())
    left.push_back("open key " + ztlsim::Utf16ToUtf8(path));
  const std::pair<const char*, std::int64_t> counts[] = {
      {"open files", machine.files.OpenDescriptors()},
      {"task memory", machine.taskAllocations},
      {"global memory", static_cast<std::int64_t>(machine.globalMemory.size())},
      {"open INF files", static_cast<std::int64_t>(machine.openInfs.size())},
      {"objects of the engine", machine.engine.objects},
      {"write locks", machine.engine.lockHolders},
      {"threads with COM", static_cast<std::int64_t>(machine.comInitializations.size())},
      {"windows and pages", static_cast<std::int64_t>(machine.dialogs.Windows() + machine.dialogs.Pages())},
      {"open devices", machine.driver.isOpen},
      {"object count of the module", ztl::DllCanUnloadNow() == S_OK ? 0 : 1}};
  for (const auto& [what, count] : counts)
    if (count != 0) left.push_back(std::to_string(count) + " " + what);
  return left;
}

}  // namespace

std::string MessageOf(const std::string& line) { return line.substr(line.find_first_not_of(' ', kSeverityAt)); }

Outcome Execute(const SweptRun& run, const std::filesystem::path& root, std::vector<simulation::Fault> faults,
                std::uint64_t most, const Observer& see) {
  Machine machine;
  const simulation::CurrentMachine current(machine);
  simulation::host::ClearMemoryFiles();
  machine.files.root = root;
  machine.clock = 1709647432;
  machine.version = {.major = run.windows, .minor = run.windows == 5 ? 2u : 0u};
  machine.registry.CopyFrom(*run.registry);
  if (run.driver) machine.driver.version = {4, 17, 0, 18806};
  if (run.package) {
    std::filesystem::remove_all(root);
    std::filesystem::create_directories(root / "Windows");
    const std::string package = ZTL_SOURCE_DIR "/samples/package-4.17";
    if (const auto trouble = ztlsim::PlaceInstallationFiles(machine, {package, {}, package + "/ztl2000.sys"})) {
      std::fprintf(stderr, "%s\n", trouble->c_str());
      std::exit(2);
    }
  }
  ztlsim::CallOptions options;
  if (run.scenario == "notify")
    options.paths = {{u"qro_ztl->x", S_OK}, {u"qro_ztl->y", S_FALSE}, {u"other->z", E_FAIL}};
  options.adapter = GUID{0x635699C6, 0xF3BE, 0x4629, {0xBC, 0xED, 0x47, 0xAB, 0x3C, 0x5D, 0x1A, 0xEE}};
  options.page.texts = {{ztl::kParam1Control, u"one"}};
  if (run.arrange) run.arrange(machine, options);
  machine.faults = std::move(faults);
  const std::uint64_t before = machine.Calls();
  std::uint64_t made = 0;
  machine.observer = [&](Operation operation, const simulation::Arguments& arguments) {
    if (++made > most) std::_Exit(kHangs);
    if (see) see(machine, operation, arguments);
  };
  Outcome outcome;
  {
    const ztlsim::Scenario& scenario = *ztlsim::FindScenario(run.scenario);
    const bool isTransaction = scenario.use == ztlsim::ModuleUse::Transaction;
    std::vector<ztlsim::ShownPage> pages;
    ztlsim::SimulatedProcess process(machine, isTransaction ? scenario.use : ztlsim::ModuleUse::Life, false, pages);
    outcome.results = scenario.calls(options, process);
  }
  outcome.calls = machine.Calls() - before;
  machine.faults.clear();
  machine.observer = nullptr;
  std::istringstream log(simulation::host::MemoryFile((root / "Windows/temp/ztlinst.log").native()));
  for (std::string line; std::getline(log, line);)
    if (line.size() > kSeverityAt) outcome.log.push_back(MessageOf(line));
  outcome.left = WhatIsLeft(machine);
  outcome.registry = machine.registry.Copy();
  return outcome;
}

bool IsOfLog(Operation operation) {
  switch (operation) {
    case Operation::time:
    case Operation::localtime:
    case Operation::strftime:
    case Operation::OutputDebugStringA:
    case Operation::MessageBoxA:
    case Operation::GetWindowsDirectoryA:
      return true;
    default:
      return operation >= Operation::_open && operation <= Operation::_mkdir;
  }
}

const Codes& CodesOf(Operation operation) {
  // The ordinary ones are numbers that no message has for another reason.
  static const Codes system = {{1009, 1018}, {ERROR_FILE_NOT_FOUND, ERROR_MORE_DATA, ERROR_NO_MORE_ITEMS}, 1009};
  static const Codes setup = {{1392, 1450}, {0, ERROR_INSUFFICIENT_BUFFER, ERROR_LINE_NOT_FOUND}, 1392};
  static const Codes runtime = {
      {RUNTIME_EMFILE, RUNTIME_ENOSPC}, {RUNTIME_ENOENT, RUNTIME_EACCES, RUNTIME_EDEADLOCK}, RUNTIME_EACCES};
  static const Codes results = {{E_FAIL, Bits(0x800706BA)}, {NETCFG_E_NO_WRITE_LOCK, S_FALSE, NETCFG_S_REBOOT}, E_FAIL};
  static const Codes one = {{ERROR_ACCESS_DENIED}, {}, ERROR_ACCESS_DENIED};
  switch (operation) {
    case Operation::time:
    case Operation::localtime:
    case Operation::strftime:
    case Operation::OutputDebugStringA:
    case Operation::MessageBoxA:
    case Operation::WriteStandardOutput:
    case Operation::GetWindowsDirectoryA:
    case Operation::GetLastError:
    case Operation::GetCurrentProcessId:
    case Operation::GetCommandLineW:
    case Operation::DisableThreadLibraryCalls:
    case Operation::GlobalAlloc:
    case Operation::CoUninitialize:
    case Operation::CoFreeUnusedLibraries:
    case Operation::CoTaskMemAlloc:
    case Operation::CoTaskMemFree:
    case Operation::lstrcmpiW:
    case Operation::StringFromGUID2:
      return one;  // they fail in one way, or cannot
    default:
      break;
  }
  return operation >= Operation::CoInitializeEx                                                   ? results
         : operation >= Operation::_open && operation <= Operation::_mkdir                        ? runtime
         : operation >= Operation::SetupGetInfFileListW && operation <= Operation::VerQueryValueW ? setup
                                                                                                  : system;
}

}  // namespace ztl_test
