// Real files, read and written whole, and what must not stay behind of them.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace simulation {

using namespace platform;

// Stands for what may not be touched: nothing is there, and nothing can be made there or beside it.
const std::filesystem::path& DeniedPath();

// The whole of a regular file, not of a link to one. When there is none: nothing, with `error` set to the system's code
// (for DeniedPath ERROR_ACCESS_DENIED), ERROR_SUCCESS else.
std::optional<std::string> ReadFile(const std::filesystem::path& path, LSTATUS& error);

// Takes a file's bytes, a part at a time.
using Sink = std::function<void(std::string_view)>;

// Writes what `produce` puts into the sink to `path`, or to where a link of this name leads, so that an earlier file
// survives a failure. A result is what went wrong, in English.
std::optional<std::string> WriteFileWhole(const std::filesystem::path& path,
                                          const std::function<void(const Sink& sink)>& produce);
std::optional<std::string> WriteFileWhole(const std::filesystem::path& path, std::string_view bytes);

// Whether what is written to the two would go to one place, existing or not.
bool IsSamePlace(const std::filesystem::path& a, const std::filesystem::path& b);

// A file or directory that is removed with the object.
class Temporary {
 public:
  // `make` makes it.
  Temporary(std::filesystem::path path, const std::function<void(const std::filesystem::path&)>& make);
  ~Temporary();
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;
  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Removes all that there are, on any thread, for a program that ends now: whoever makes another one waits for ever.
void RemoveTemporaries();

}  // namespace simulation
