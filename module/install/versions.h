// Versions of files and INF files.
//
// A packed version holds the low 8 bits of a version's first three parts in bits 31-24, 23-16 and 15-8, and zero below;
// the fourth part, the build, is a number of its own. 0 means that there is no version.
#pragma once

#include <string_view>

#include "platform/types.h"

namespace ztl {

constexpr platform::DWORD PackVersion(platform::DWORD first, platform::DWORD second, platform::DWORD third) {
  return (first & 0xFF) << 24 | (second & 0xFF) << 16 | (third & 0xFF) << 8;
}

// The packed version of a dotted text, and into `build`, when it is not null, its fourth part; without one, `build`
// stays as it is. A part is the integer at its front, blanks and a sign included.
platform::DWORD ParseVersion(std::u16string_view text, platform::DWORD* build);

// The packed version of the version resource of the file `fileName` below `directory`; 0 when it has none, or when the
// path has more than 259 characters. `build`, when not null, receives the fourth part; without a version resource it
// stays as it is.
platform::DWORD GetFileVersion(const char16_t* directory, const char16_t* fileName, platform::DWORD* build);

// The packed version of the INF's "DriverVer", after its date and comma; 0 when there is none. `build` is as for
// ParseVersion. Of the value, 259 characters are read.
platform::DWORD GetInfVersion(const char16_t* infPath, platform::DWORD* build);

}  // namespace ztl
