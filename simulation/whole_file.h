// Real files, read and written whole.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace simulation {

using namespace platform;

// The whole of a regular file. When there is none: nothing, with `error` set to the system's code, ERROR_SUCCESS else.
std::optional<std::string> ReadFile(const std::filesystem::path& path, LSTATUS& error);

// Writes `bytes` to `path` so that an earlier file survives a failure. A result is what went wrong, in English.
std::optional<std::string> WriteFileWhole(const std::filesystem::path& path, std::string_view bytes);

}  // namespace simulation
