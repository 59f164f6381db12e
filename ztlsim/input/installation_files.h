// The files of an installation, put into a machine.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulation/machine.h"

namespace ztlsim {

struct InstallationFiles {
  std::string mediaDirectory;  // becomes C:\Media; the filter's INF files in it are stored as Windows stores them
  std::vector<std::string> infFiles;  // go into the INF directory, under their own names
  std::string driverFile;             // becomes the installed driver
};

// Puts them into the machine, which has its drive; empty names are passed over. A result is what went wrong, in
// English.
std::optional<std::string> PlaceInstallationFiles(simulation::Machine& machine, const InstallationFiles& files);

}  // namespace ztlsim
