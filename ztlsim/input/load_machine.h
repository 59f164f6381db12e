// Making a simulated machine from registry exports.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulation/machine.h"
#include "ztlsim/input/registry_export.h"

namespace ztlsim {

// Merges the exports in order. Without a CurrentControlSet so far, it becomes a link, as on a running system: to the
// set that SYSTEM\Select names as current, else to ControlSet001. What later files set in it then goes there.
std::optional<InputError> LoadRegistry(const std::vector<std::string>& files, simulation::Registry& registry);

// The directory that serves as drive C: a kept one, or a temporary one that is deleted with the object.
class DriveDirectory {
 public:
  // Makes the directory where it is missing; an empty `kept` makes a temporary one. A result is
  // what went wrong, in English.
  std::optional<std::string> Make(const std::string& kept);
  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
  std::optional<simulation::Temporary> temporary_;
};

}  // namespace ztlsim
