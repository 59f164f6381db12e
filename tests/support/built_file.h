// Files that the build has, for test programs that are run on another machine.
#pragma once

#include <filesystem>

namespace ztl_test {

// The file of that name in the current directory, when there is one; else where the build has it.
inline std::filesystem::path BuiltFile(const std::filesystem::path& built) {
  const std::filesystem::path here = std::filesystem::absolute(built.filename());
  return std::filesystem::exists(here) ? here : built;
}

}  // namespace ztl_test
