// What the command line asks for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ztlsim/input/installation_files.h"
#include "ztlsim/scenario/scenarios.h"

namespace ztlsim {

struct Options {
  enum class Command { kShow, kCheck, kRun } command = Command::kShow;
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
  bool process = false;
  bool json = false;
};

// Fills the options. An exit status means that the program ends with it; everything has been printed.
std::optional<int> ReadCommandLine(int argc, char** argv, Options& options);

}  // namespace ztlsim
