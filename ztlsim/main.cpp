// ztlsim: runs the module's code on a machine made from registry exports.
#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "simulation/machine.h"
#include "simulation/whole_file.h"
#include "ztlsim/command_line.h"
#include "ztlsim/exit_status.h"
#include "ztlsim/input/input_file.h"
#include "ztlsim/input/installation_files.h"
#include "ztlsim/input/load_machine.h"
#include "ztlsim/inspect/check.h"
#include "ztlsim/progress.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/report/report.h"
#include "ztlsim/scenario/run_scenario.h"
#include "ztlsim/terminal.h"
#include "ztlsim/text_encoding.h"

namespace {

using namespace ztlsim;

// Reads numbers that are separated by dots. How many there are; 0 when the text is anything else or has too many.
template <class Number>
std::size_t ReadParts(const std::string& text, std::span<Number> parts) {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::size_t count = 0; count < parts.size();) {
    const auto [next, error] = std::from_chars(at, end, parts[count]);
    if (error != std::errc()) return 0;
    ++count;
    at = next;
    if (at == end) return count;
    if (*at++ != '.') return 0;
  }
  return 0;
}

// "MAJOR.MINOR" or "MAJOR.MINOR.SP".
std::optional<simulation::WindowsVersion> ParseWindowsVersion(const std::string& text) {
  std::uint16_t parts[3] = {0, 0, 0};
  if (ReadParts<std::uint16_t>(text, parts) < 2) return std::nullopt;
  return simulation::WindowsVersion{.major = parts[0], .minor = parts[1], .servicePack = parts[2]};
}

// "A.B.C.D", each part of 32 bits.
std::optional<std::array<platform::DWORD, 4>> ParseDriverVersion(const std::string& text) {
  std::array<platform::DWORD, 4> parts{};
  if (ReadParts<platform::DWORD>(text, parts) != 4) return std::nullopt;
  return parts;
}

int Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return kSuccess;
  EndOnClosedPipe();
  return Complain("standard output could not be written", kMethodFailed);
}

// What is wanted in files is written before anything is printed: a reader of the output may go away early.
int Run(const Options& options, simulation::Machine& machine) {
  ScenarioResult result;
  {
    DriveDirectory drive;
    if (const auto trouble = drive.Make(options.root)) return Complain(*trouble, kBadInput);
    machine.files.root = drive.Path();
    const std::filesystem::path windows = machine.files.RealPath("C:\\Windows");
    if (windows == simulation::DeniedPath()) return Complain(machine.files.Troubles().back(), kBadInput);
    if (const std::error_code error = MakeDirectories(drive.Path(), windows))
      return Complain(windows.string() + ": " + error.message(), kBadInput);
    if (const auto trouble = PlaceInstallationFiles(machine, options.files)) return Complain(*trouble, kBadInput);
    const Progress progress(options.scenario, machine);
    result = RunScenario(machine, *FindScenario(options.scenario), options.calls, options.process);
  }
  int status = result.driveTroubles.empty() ? kSuccess : kMethodFailed;
  if (!options.out.empty())
    if (const auto error = simulation::WriteFileWhole(
            options.out, [&](const simulation::Sink& sink) { WriteRegistryExport(machine.registry, sink); }))
      status = Complain(*error, kMethodFailed);
  if (!options.changes.empty())
    if (const auto error = simulation::WriteFileWhole(options.changes, FormatRegistryChanges(result.changes)))
      status = Complain(*error, kMethodFailed);
  for (const std::string& trouble : result.driveTroubles) Complain("drive C: " + trouble, kSuccess);
  for (const std::string& trouble : result.logTroubles) Complain("log: " + trouble, kSuccess);
  const int printed = Print(options.json ? FormatRunAsJson(options.scenario, result)
                                         : FormatRun(options.scenario, result, OutputIsTerminal()));
  if (printed != kSuccess) status = printed;
  return result.Failed() ? kMethodFailed : status;
}

int Main(int argc, char** argv) {
  Options options;
  if (const auto status = ReadCommandLine(argc, argv, options)) return *status;
  WriteOutputAsUtf8();
  CleanUpWhenStopped();
  static simulation::Machine& machine = *new simulation::Machine;  // taking a large one apart at the end takes a second
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
  std::optional<InputError> error;
  {
    const Progress progress("reading", machine);
    error = LoadRegistry(options.machineFiles, machine.registry);
  }
  if (error) return Complain(error->Text(), kBadInput);
  if (options.command == Options::Command::kShow) {
    const MachineState state = ReadMachineState(machine);
    const BindingState bindings = ReadBindings(machine);
    return Print(options.json ? FormatStateAsJson(state, bindings) : FormatState(state, bindings));
  }
  if (options.command == Options::Command::kCheck) {
    std::vector<Finding> findings;
    {
      const Progress progress("check", machine);
      findings = CheckMachine(machine.registry);
    }
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
