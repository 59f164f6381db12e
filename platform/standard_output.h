// The standard output of the process that the module runs in.
#pragma once

#include "platform/types.h"

namespace platform {

inline constexpr std::size_t kStandardOutputCapacity = 1040;  // characters of one text, with the terminator

// Writes the text as it is, with no line feed. It is lost where the process has no standard output.
void WriteStandardOutput(const char16_t* text);

}  // namespace platform
