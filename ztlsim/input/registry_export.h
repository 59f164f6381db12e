// Reading registry exports: the text files in which Windows' registry tools exchange keys and values.
//
// They are taken as support people send them: version 5.00 in UTF-16 or UTF-8, REGEDIT4 in 8-bit text, any line ends.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "simulation/registry.h"

namespace ztlsim {

// What is wrong with an input file. `line` counts from 1; 0 when the trouble is with the whole file.
struct InputError {
  std::string file;
  std::size_t line = 0;
  std::string message;  // English, no final full stop

  std::string Text() const;  // "FILE:LINE: message", or "FILE: message" without a line
};

// Merges the export in `path` into `registry`: what it sets is set, what it deletes is deleted. After an error the
// registry holds what came before the broken line.
std::optional<InputError> ReadRegistryExport(const std::string& path, simulation::Registry& registry);

// The same for the bytes of an export; `file` is the name used in errors.
std::optional<InputError> ReadRegistryExport(const std::string& file, std::string_view bytes,
                                             simulation::Registry& registry);

}  // namespace ztlsim
