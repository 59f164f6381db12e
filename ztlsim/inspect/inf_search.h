// What the module's search for the filter's INF file finds on a machine: every candidate and its rank, the one that is
// chosen, and the media root that is recorded in it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/types.h"
#include "simulation/machine.h"

namespace ztlsim {

struct FileVersion {
  platform::DWORD packed;  // as install/versions.h has it
  platform::DWORD build;
  std::string Text() const;  // "A.B.C.D"
};

struct InfCandidate {
  std::u16string path;
  FileVersion version;
  int rank;  // 1 the best; 0 when no driver is installed to rank by
};

struct InfSearch {
  std::optional<FileVersion> driver;     // the installed one's
  std::vector<InfCandidate> candidates;  // in the order of the search, also those after one that ends it
  std::optional<std::u16string> chosen;
  std::optional<std::u16string> mediaRoot;
};

// Looks with the module's own functions.
InfSearch SearchInfFiles(simulation::Machine& machine);

}  // namespace ztlsim
