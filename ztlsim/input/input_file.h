// Files that the command line names, and the directories that they are put into.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace ztlsim {

// Reads the whole of a file or a pipe. `expected` is what it should be, for people. A result is what is wrong with it,
// in English and without its name.
std::optional<std::string> ReadInputFile(const std::filesystem::path& path, const std::string& expected,
                                         std::string& bytes);

// Makes the directories of `real` that are missing below `root`, but not `root` itself: who stops the program may have
// removed it.
std::error_code MakeDirectories(const std::filesystem::path& root, const std::filesystem::path& real);

}  // namespace ztlsim
