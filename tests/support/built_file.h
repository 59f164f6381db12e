// Files that the build has, for test programs that are run on another machine.
#pragma once

#include <filesystem>

namespace ztl_test {

// The file of that name in the current directory, when there is one; else where the build has it.
inline std::filesystem::path BuiltFile(const std::filesystem::path& built) {
  const std::filesystem::path here = std::filesystem::absolute(built.filename());
  return std::filesystem::exists(here) ? here : built;
}

// The file of the sources by its path in them, which the archive keeps for samples.
inline std::filesystem::path SourceFile(const std::filesystem::path& path) {
  return std::filesystem::exists(path) ? path : ZTL_SOURCE_DIR / path;
}

}  // namespace ztl_test
