// The options of the scenarios' calls, and what their texts mean.
#pragma once

#include <optional>
#include <string>

#include "ztlsim/scenario/host_process.h"

namespace ztlsim {

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
