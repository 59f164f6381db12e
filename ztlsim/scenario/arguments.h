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

// An option of one scenario's calls.
struct CallOption {
  const char* name;
  const char* typeName;  // of its text; empty for a flag
  const char* description;
  // Reads the text into `calls`. A result says what was expected instead.
  std::optional<std::string> (*read)(const std::string& text, CallOptions& calls);
  bool isRepeatable = false;
};
extern const CallOption kNotifyOptions[2];
extern const CallOption kPropertiesOptions[5];

}  // namespace ztlsim
