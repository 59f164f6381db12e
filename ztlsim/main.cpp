// ztlsim: runs the module's code on a machine made from registry exports.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iterator>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "module/version.h"
#include "simulation/machine.h"
#include "ztlsim/input/installation_files.h"
#include "ztlsim/input/load_machine.h"
#include "ztlsim/inspect/check.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/report/report.h"
#include "ztlsim/scenario/scenario.h"
#include "ztlsim/terminal.h"
#include "ztlsim/text_encoding.h"

namespace {

using namespace ztlsim;

enum ExitStatus { kSuccess = 0, kMethodFailed = 1, kBadInput = 2, kFindings = 3 };

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
  InstallationFiles files;
  CallOptions calls;
  std::map<std::string, std::vector<std::string>> callOptions;  // the texts given, by the option's name
  bool process = false;
  bool json = false;
};

// As a list in a sentence: "install, upgrade or load".
std::string ScenarioNames() {
  std::string names;
  for (const Scenario& scenario : kScenarios) {
    const bool isLast = &scenario == std::end(kScenarios) - 1;
    names += (names.empty() ? "" : isLast ? " or " : ", ") + std::string(scenario.name);
  }
  return names;
}

// For the help, a line each.
std::string ScenarioHelp() {
  std::string help = "Scenarios:";
  for (const Scenario& scenario : kScenarios) {
    std::string name = scenario.name;
    name.resize(12, ' ');
    help += "\n  " + name + scenario.help + "; passes: " + scenario.passes;
  }
  return help;
}

int Complain(const std::string& message, int status) {
  std::fprintf(stderr, "ztlsim: %s\n", message.c_str());
  return status;
}

int Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return kSuccess;
  return Complain("standard output could not be written", kMethodFailed);
}

// What is wanted in files is written before anything is printed: a reader of the output may go away early.
int Run(const Options& options, simulation::Machine& machine) {
  ScenarioResult result;
  {
    DriveDirectory drive;
    if (const auto trouble = drive.Make(options.root)) return Complain(*trouble, kBadInput);
    machine.files.root = drive.Path();
    std::error_code error;
    const std::filesystem::path windows = machine.files.RealPath("C:\\Windows");
    if (std::filesystem::create_directories(windows, error); error)
      return Complain(windows.string() + ": " + error.message(), kBadInput);
    if (const auto trouble = PlaceInstallationFiles(machine, options.files)) return Complain(*trouble, kBadInput);
    result = RunScenario(machine, *FindScenario(options.scenario), options.calls, options.process);
  }
  int status = kSuccess;
  if (!options.out.empty())
    if (const auto error = simulation::WriteFileWhole(options.out, FormatRegistryExport(machine.registry)))
      status = Complain(*error, kMethodFailed);
  if (!options.changes.empty())
    if (const auto error = simulation::WriteFileWhole(options.changes, FormatRegistryChanges(result.changes)))
      status = Complain(*error, kMethodFailed);
  for (const std::string& trouble : result.logTroubles) Complain("log: " + trouble, 0);
  const int printed = Print(options.json ? FormatRunAsJson(options.scenario, result)
                                         : FormatRun(options.scenario, result, OutputIsTerminal()));
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
  run->footer(ScenarioHelp());
  std::set<std::string> scenarioNames;
  for (const Scenario& scenario : kScenarios) scenarioNames.insert(scenario.name);
  run->add_option("SCENARIO", options.scenario, ScenarioNames())->required()->check(CLI::IsMember(scenarioNames));
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
  run->add_option("--media", options.files.mediaDirectory, "The package that the filter was installed from")
      ->type_name("DIR");
  run->add_option("--inf", options.files.infFiles, "INF files to put into the INF directory")->type_name("FILE");
  run->add_option("--driver-file", options.files.driverFile, "The installed driver's file")->type_name("FILE");
  for (const Scenario& scenario : kScenarios)
    for (const CallOption& option : scenario.options) {
      const bool isFlag = *option.typeName == '\0';
      CLI::Option* const added = run->add_option(option.name, options.callOptions[option.name],
                                                 std::string(scenario.name) + ": " + option.description);
      added->type_name(option.typeName)->allow_extra_args(false);
      added->expected(isFlag ? 0 : 1, isFlag ? 0 : option.isRepeatable ? CLI::detail::expected_max_vector_size : 1);
    }
  run->add_flag("--process", options.process,
                "Load the module, ask it for its class object and unload it, as a process of its own does");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kSuccess : kBadInput;
  }

  for (const CLI::Option* option : run->get_options())
    if (option->count() > 0 && option->get_expected_max() > 0 && option->get_type_size() > 0 &&
        option->results().front().empty() && option->get_type_name() != "TEXT")
      return Complain(option->get_name() + ": an empty name", kBadInput);
  for (const Scenario& scenario : kScenarios)
    for (const CallOption& option : scenario.options)
      for (const std::string& text : options.callOptions[option.name]) {
        if (options.scenario != scenario.name)
          return Complain(std::string(option.name) + ": only the scenario " + scenario.name + " takes it", kBadInput);
        if (const auto expected = option.read(text, options.calls))
          return Complain(option.name + (" " + text) + ": expected " + *expected, kBadInput);
      }
  if (!options.out.empty() && options.out == options.changes)
    return Complain("--out and --changes name the same file", kBadInput);
  WriteOutputAsUtf8();
  simulation::Machine machine;
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
    const MachineState state = ReadMachineState(machine);
    const BindingState bindings = ReadBindings(machine);
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
