// The files of an installation, put into a machine.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ztlsim {

struct InstallationFiles {
  std::string mediaDirectory;  // becomes C:\Media; the filter's INF files in it are stored as Windows stores them
  std::vector<std::string> infFiles;  // go into the INF directory, under their own names
  std::string driverFile;             // becomes the installed driver
};

// Puts them into the current machine, which has its drive; empty names stand for nothing. The module's log must not be
// open. A result says what went wrong.
std::optional<std::string> PlaceInstallationFiles(const InstallationFiles& files);

}  // namespace ztlsim
