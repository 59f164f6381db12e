// ztlsim: runs the module's code on a machine made from registry exports.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iterator>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "platform/simulated/host.h"
#include "platform/simulated/machine.h"
#include "ztlsim/check.h"
#include "ztlsim/load_machine.h"
#include "ztlsim/registry_export.h"
#include "ztlsim/report.h"
#include "ztlsim/scenario.h"
#include "ztlsim/text_encoding.h"

namespace {

using namespace ztlsim;
namespace host = platform::simulated::host;

enum ExitStatus { kSuccess = 0, kMethodFailed = 1, kBadInput = 2, kFindings = 3 };

const std::map<std::string, Scenario> kScenariosByName(std::begin(kScenarios), std::end(kScenarios));

struct Options {
  std::string scenario;
  std::vector<std::string> machineFiles;
  std::string os = "10.0";
  std::string root;
  std::string out;
  std::string changes;
  std::string lockHeld;
  std::string secondLock = "grant";
  std::string driverVersion;
  bool json = false;
};

int Complain(const std::string& message, int status) {
  std::fprintf(stderr, "ztlsim: %s\n", message.c_str());
  return status;
}

int Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return kSuccess;
  return Complain("standard output could not be written", kMethodFailed);
}

// What is wanted in files is written before anything is printed: a reader of the output may go away early.
int Run(const Options& options, platform::simulated::Machine& machine) {
  ScenarioResult result;
  {
    DriveDirectory drive;
    if (const auto error = drive.Make(options.root)) return Complain(*error, kBadInput);
    machine.files.root = drive.Path();
    result = RunScenario(kScenariosByName.at(options.scenario));
  }
  int status = kSuccess;
  if (!options.out.empty())
    if (const auto error = WriteFileWhole(options.out, FormatRegistryExport(machine.registry)))
      status = Complain(*error, kMethodFailed);
  if (!options.changes.empty())
    if (const auto error = WriteFileWhole(options.changes, FormatRegistryChanges(result.changes)))
      status = Complain(*error, kMethodFailed);
  for (const std::string& trouble : result.logTroubles) Complain("log: " + trouble, 0);
  const int printed = Print(options.json ? FormatRunAsJson(options.scenario, result)
                                         : FormatRun(options.scenario, result, host::OutputIsTerminal()));
  if (printed != kSuccess) status = printed;
  return result.Failed() ? kMethodFailed : status;
}

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Shows what the filter's network configuration module does on a machine made from registry exports.");
  app.name("ztlsim");
  app.require_subcommand(1);
  app.set_version_flag("--version", ZTL_VERSION);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("ztlsim: ") + error.what() + "\nRun with --help for more.\n";
  });
  auto addMachine = [&options](CLI::App* command) {
    command->add_option("--machine", options.machineFiles, "Registry exports, merged in order")
        ->required()
        ->type_name("FILE");
    command->add_flag("--json", options.json, "One JSON object instead of the report");
  };
  CLI::App* const show = app.add_subcommand("show", "The machine's stacks, its configured order, what it resolves to");
  addMachine(show);
  CLI::App* const check =
      app.add_subcommand("check", "What is wrong with the machine, and what will happen because of it");
  addMachine(check);
  CLI::App* const run = app.add_subcommand("run", "Run a scenario and show what it changes");
  run->add_option("SCENARIO", options.scenario,
                  "install, upgrade, remove, notify, reinstall, register, unregister or load")
      ->required()
      ->check(CLI::IsMember(kScenariosByName));
  addMachine(run);
  run->add_option("--os", options.os, "Windows version; 10.0 when not given")->type_name("MAJOR.MINOR[.SP]");
  run->add_option("--root", options.root, "Directory that stands for drive C: and is kept")->type_name("DIR");
  run->add_option("--out", options.out, "Write the registry afterwards, as an export")->type_name("FILE");
  run->add_option("--changes", options.changes, "Write what changed, as an export")->type_name("FILE");
  run->add_option("--driver-version", options.driverVersion, "The filter driver runs, in this version")
      ->type_name("A.B.C.D");
  run->add_option("--lock-held", options.lockHeld,
                  "Another client holds the engine's write lock, with this description")
      ->type_name("TEXT");
  run->add_option("--second-lock", options.secondLock, "Whether a second session of the process gets the write lock")
      ->check(CLI::IsMember({"grant", "refuse"}))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kSuccess : kBadInput;
  }

  for (const CLI::Option* option : run->get_options())
    if (option->count() > 0 && option->get_type_size() > 0 && option->results().front().empty())
      return Complain(option->get_name() + ": an empty name", kBadInput);
  if (!options.out.empty() && options.out == options.changes)
    return Complain("--out and --changes name the same file", kBadInput);
  host::WriteOutputAsUtf8();
  platform::simulated::Machine machine;
  const platform::simulated::CurrentMachine current(machine);
  const auto version = ParseWindowsVersion(options.os);
  if (!version) return Complain("--os " + options.os + ": expected MAJOR.MINOR or MAJOR.MINOR.SP", kBadInput);
  machine.version = *version;
  if (!options.driverVersion.empty()) {
    machine.driver.version = ParseDriverVersion(options.driverVersion);
    if (!machine.driver.version)
      return Complain("--driver-version " + options.driverVersion + ": expected A.B.C.D", kBadInput);
  }
  machine.engine.otherClient = Utf8ToUtf16(options.lockHeld);
  machine.engine.grantSecondLock = options.secondLock == "grant";
  if (const auto error = LoadRegistry(options.machineFiles, machine.registry))
    return Complain(error->Text(), kBadInput);
  if (show->parsed()) {
    const MachineState state = ReadMachineState();
    const BindingState bindings = ReadBindings();
    return Print(options.json ? FormatStateAsJson(state, bindings) : FormatState(state, bindings));
  }
  if (check->parsed()) {
    const std::vector<Finding> findings = CheckMachine(machine.registry);
    const int printed = Print(options.json ? FormatFindingsAsJson(findings) : FormatFindings(findings));
    return printed != kSuccess ? printed : findings.empty() ? kSuccess : kFindings;
  }
  return Run(options, machine);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::bad_alloc&) {
    return Complain("out of memory", kBadInput);
  } catch (const std::exception& error) {
    return Complain(error.what(), kBadInput);
  }
}
