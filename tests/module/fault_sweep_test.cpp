// What scenarios do: their log, results and registry changes stand in fault_sweep.txt. Then each kind of call that they
// make fails once: the process goes on, nothing is left open, and what the log says of it, what the methods return and
// how much of the registry comes out otherwise stands there too (failures without such an effect are left out). With
// ZTL_UPDATE_EXPECTED set, that file is written again: read its difference.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "module/notify/property_page.h"
#include "tests/support/machine_fixture.h"
#include "ztlsim/input/installation_files.h"
#include "ztlsim/input/load_machine.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/scenario/simulated_process.h"
#include "ztlsim/text_encoding.h"

namespace ztl_test {
namespace {

using namespace platform;
using simulation::Operation;

// How often the same kind of call fails: the same operation on the same name, or one without a name.
constexpr int kFailuresPerKind = 2, kFailuresWithoutName = 6;

struct SweptRun {
  std::string name;
  const char* sample;
  const char* scenario;
  DWORD windows = 10;
  bool driver = false, package = false;
};

class FaultSweepTest : public MachineTest {
 protected:
  struct Outcome {
    Strings log;  // with severities
    ztlsim::CallResults results;
    std::unique_ptr<simulation::Registry> registry;
    std::uint64_t calls;
  };

  Outcome Execute(const SweptRun& run, const simulation::Registry& registry, std::vector<simulation::Fault> faults,
                  Strings* kinds = nullptr) {
    Machine machine;
    const simulation::CurrentMachine current(machine);
    Prepare(machine);
    machine.version = {.major = run.windows, .minor = run.windows == 5 ? 2u : 0u};
    machine.registry.CopyFrom(registry);
    if (run.driver) machine.driver.version = {4, 17, 0, 18806};
    const std::string package = ZTL_SOURCE_DIR "/samples/package-4.17";
    if (run.package) EXPECT_FALSE(ztlsim::PlaceInstallationFiles(machine, {package, {}, package + "/ztl2000.sys"}));
    if (kinds)
      machine.observer = [kinds](Operation operation, const simulation::Arguments& arguments) {
        std::string kind = simulation::OperationName(operation);
        if (arguments.name != nullptr)
          for (const char16_t unit : u' ' + std::u16string(arguments.name))
            kind += unit < 0x80 ? static_cast<char>(unit) : '?';
        kinds->push_back(kind);
      };
    const ztlsim::Scenario& scenario = *ztlsim::FindScenario(run.scenario);
    ztlsim::CallOptions options;
    if (scenario.name == std::string("notify")) options.paths = {{u"qro_ztl->x", S_OK}};
    options.adapter = GUID{0x635699C6, 0xF3BE, 0x4629, {0xBC, 0xED, 0x47, 0xAB, 0x3C, 0x5D, 0x1A, 0xEE}};
    options.page.texts = {{ztl::kParam1Control, u"one"}};
    machine.faults = std::move(faults);
    const std::uint64_t before = machine.Calls();
    Outcome outcome;
    {
      const bool isTransaction = scenario.use == ztlsim::ModuleUse::Transaction;
      std::vector<ztlsim::ShownPage> pages;
      ztlsim::SimulatedProcess process(machine, isTransaction ? scenario.use : ztlsim::ModuleUse::Life, false, pages);
      outcome.results = scenario.calls(options, process);
    }
    outcome.calls = machine.Calls() - before;
    machine.faults.clear();
    machine.observer = nullptr;
    for (const std::string& line : Lines(ReadFile(LogPath())))
      if (line.size() > 28) outcome.log.push_back(line.substr(line.find_first_not_of(' ', 28)));
    outcome.registry = machine.registry.Copy();
    ExpectNothingLeft(machine);
    return outcome;
  }

  // What the run with the fault has said that the one without it has not.
  static Strings Added(const Strings& log, const Strings& usual) {
    std::multiset<std::string> left(usual.begin(), usual.end());
    Strings added;
    for (const std::string& line : log)
      if (const auto same = left.find(line); same != left.end())
        left.erase(same);
      else
        added.push_back(line);
    return added;
  }

  // Calls whose failure leaves what they were to close, and those that cannot fail.
  static bool IsSwept(Operation operation) {
    static const std::set<Operation> without = {
        Operation::RegCloseKey,         Operation::_close,       Operation::CoTaskMemFree,
        Operation::CoUninitialize,      Operation::GetLastError, Operation::GlobalFree,
        Operation::GetCurrentProcessId, Operation::CloseHandle,  Operation::SetupCloseInfFile};
    return !without.contains(operation);
  }
  static std::int32_t Code(Operation operation) {
    return operation >= Operation::CoInitializeEx                            ? E_FAIL
           : operation >= Operation::_open && operation <= Operation::_mkdir ? 13
                                                                             : ERROR_ACCESS_DENIED;
  }
};

// An export's text, without its mark and carriage returns.
std::string ExportText(const std::string& bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  std::memcpy(text.data(), bytes.data(), bytes.size());
  std::erase_if(text, [](char16_t unit) { return unit == 0xFEFF || unit == u'\r'; });
  return ztlsim::Utf16ToUtf8(text);
}

TEST_F(FaultSweepTest, EachKindOfCallFailsAsExpected) {
  const SweptRun runs[] = {{"upgrade", "loop", "upgrade"},
                           {"upgrade with exclusions", "windows-5.2", "upgrade", 5},
                           {"install a package", "saved-parameters", "install", 10, false, true},
                           {"remove, with a driver", "saved-parameters", "remove", 10, true},
                           {"upgrade that reorders", "laptop", "upgrade"},
                           {"notify", "loop", "notify"},
                           {"properties", "laptop", "properties"},
                           {"reinstall", "saved-parameters", "reinstall"},
                           {"register", "loop", "register"},
                           {"unregister, with a driver", "saved-parameters", "unregister", 10, true},
                           {"unregister", "saved-parameters", "unregister"},
                           {"load", "loop", "load"}};
  std::ostringstream found;
  int faults = 0;
  for (const SweptRun& run : runs) {
    simulation::Registry registry;
    ASSERT_FALSE(ztlsim::LoadRegistry({ZTL_SOURCE_DIR "/samples/" + std::string(run.sample) + ".reg"}, registry));
    Strings kinds;
    const Outcome usual = Execute(run, registry, {}, &kinds);
    found << "== " << run.name << ": " << usual.calls << " calls\n";
    for (const std::string& line : usual.log) found << line << '\n';
    found << ExportText(ztlsim::FormatRegistryChanges(ztlsim::CompareRegistries(registry, *usual.registry)));
    for (const auto& [method, hr] : usual.results) found << method << ' ' << std::hex << hr << std::dec << '\n';
    std::map<std::string, int> failed;
    std::set<std::string> written;
    for (std::size_t n = 0; n < kinds.size(); ++n) {
      if (failed[kinds[n]]++ >= (kinds[n].find(' ') != std::string::npos ? kFailuresPerKind : kFailuresWithoutName))
        continue;
      Operation operation{};
      while (operation < Operation::Count && !kinds[n].starts_with(simulation::OperationName(operation)))
        operation = static_cast<Operation>(static_cast<int>(operation) + 1);
      if (!IsSwept(operation)) continue;
      SCOPED_TRACE(run.name + ", call " + std::to_string(n + 1) + ", " + kinds[n]);
      const Outcome outcome = Execute(run, registry, {{.first = n + 1, .code = Code(operation)}});
      ++faults;
      EXPECT_LE(outcome.calls, 20 * usual.calls);
      std::ostringstream text;
      if (outcome.results != usual.results)
        for (const auto& [method, hr] : outcome.results)
          text << "  " << method << ' ' << std::hex << hr << std::dec << '\n';
      if (const auto changes = ztlsim::CompareRegistries(*usual.registry, *outcome.registry); !changes.empty())
        text << "  " << changes.size() << " registry changes\n";
      for (const std::string& line : Added(outcome.log, usual.log)) text << "  " << line << '\n';
      const bool isClock =
          operation == Operation::time || operation == Operation::localtime || operation == Operation::strftime;
      if (!isClock && !text.str().empty() && written.insert(kinds[n] + text.str()).second)
        found << "- " << kinds[n] << '\n' << text.str();
    }
  }
  const char* const file = ZTL_SOURCE_DIR "/tests/module/fault_sweep.txt";
  if (std::getenv("ZTL_UPDATE_EXPECTED") != nullptr) std::ofstream(file, std::ios::binary) << found.str();
  std::istringstream actual(found.str()), expected(ReadFile(file));
  for (int line = 1; actual || expected; ++line) {
    std::string now, before;
    std::getline(actual, now);
    std::getline(expected, before);
    ASSERT_EQ(now, before) << "line " << line << " of " << file;
  }
  std::cout << faults << " faults\n";
  EXPECT_GT(faults, 500);
}

}  // namespace
}  // namespace ztl_test
