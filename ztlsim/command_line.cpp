#include "ztlsim/command_line.h"

#include <CLI/CLI.hpp>
#include <iterator>
#include <map>
#include <set>

#include "module/version.h"
#include "simulation/whole_file.h"
#include "ztlsim/exit_status.h"

namespace ztlsim {

namespace {

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

}  // namespace

std::optional<int> ReadCommandLine(int argc, char** argv, Options& options) {
  std::map<std::string, std::vector<std::string>> texts;  // of the calls' options, by the option's name
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
      CLI::Option* const added =
          run->add_option(option.name, texts[option.name], std::string(scenario.name) + ": " + option.description);
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
  options.command = show->parsed()    ? Options::Command::kShow
                    : check->parsed() ? Options::Command::kCheck
                                      : Options::Command::kRun;

  for (const CLI::App* command : {show, check, run})
    for (const CLI::Option* option : command->get_options())
      if (option->get_type_name() != "TEXT" && option->get_expected_max() != 0)
        for (const std::string& text : option->results())
          if (text.empty()) return Complain(option->get_name() + ": an empty name", kBadInput);
  for (const Scenario& scenario : kScenarios)
    for (const CallOption& option : scenario.options)
      for (const std::string& text : texts[option.name]) {
        if (options.scenario != scenario.name)
          return Complain(std::string(option.name) + ": only the scenario " + scenario.name + " takes it", kBadInput);
        if (const auto expected = option.read(text, options.calls))
          return Complain(option.name + (" " + text) + ": expected " + *expected, kBadInput);
      }
  if (!options.out.empty() && !options.changes.empty() && simulation::IsSamePlace(options.out, options.changes))
    return Complain("--out " + options.out + " and --changes " + options.changes + ": the same file", kBadInput);
  return std::nullopt;
}

}  // namespace ztlsim
