// What the arguments of the command line mean. Nothing for a text of another form.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "platform/simulated/machine.h"
#include "ztlsim/calls.h"

namespace ztlsim {

// "MAJOR.MINOR" or "MAJOR.MINOR.SP".
std::optional<platform::simulated::WindowsVersion> ParseWindowsVersion(const std::string& text);

// "A.B.C.D", each part of 32 bits.
std::optional<std::array<platform::DWORD, 4>> ParseDriverVersion(const std::string& text);

// "{8-4-4-4-12}" in hexadecimal, with or without the braces.
std::optional<platform::GUID> ParseGuid(std::string text);

// "TOKEN=on", "TOKEN=off" or "TOKEN=error".
std::optional<PathNotice> ParsePathNotice(const std::string& text);

// A number of 32 bits, in hexadecimal behind 0x.
std::optional<platform::DWORD> ParseFlag(const std::string& text);

}  // namespace ztlsim
