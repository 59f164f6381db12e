// The runtime library's time functions (time.h), in the runtime's default locale.
#pragma once

#include <ctime>

#include "platform/types.h"

namespace platform {

std::int64_t time();                                 // seconds since 1 January 1970, universal time
const std::tm* localtime(const std::int64_t* time);  // valid until this thread's next call; null when out of range
// Formats into `buffer` of `capacity` bytes; returns the length without the terminator, 0 when it does not fit. "%c" is
// month/day/two-digit year and hours:minutes:seconds.
std::size_t strftime(char* buffer, std::size_t capacity, const char* format, const std::tm* time);

}  // namespace platform
