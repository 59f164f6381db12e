// Files that the command line names.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace ztlsim {

// Reads the whole of a file or a pipe. `expected` is what it should be, for people. A result is what is wrong with it,
// in English and without its name.
std::optional<std::string> ReadInputFile(const std::filesystem::path& path, const std::string& expected,
                                         std::string& bytes);

}  // namespace ztlsim
