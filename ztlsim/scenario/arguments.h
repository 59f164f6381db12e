// What the arguments of the command line mean. Nothing for a text of another form.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "simulation/machine.h"
#include "ztlsim/scenario/host_process.h"

namespace ztlsim {

// "MAJOR.MINOR" or "MAJOR.MINOR.SP".
std::optional<simulation::WindowsVersion> ParseWindowsVersion(const std::string& text);

// "A.B.C.D", each part of 32 bits.
std::optional<std::array<platform::DWORD, 4>> ParseDriverVersion(const std::string& text);

// Reads one option of a scenario's calls into `calls`: "--path", "--change", "--adapter", "--param1", "--bundle-id",
// "--page" or "--again". A result says what was expected instead of the text.
std::optional<std::string> ReadCallOption(const std::string& name, const std::string& text, CallOptions& calls);

}  // namespace ztlsim
