// How the program ends, and what it says when it ends badly.
#pragma once

#include <cstdio>
#include <string>

#include "ztlsim/text_encoding.h"

namespace ztlsim {

enum ExitStatus { kSuccess = 0, kMethodFailed = 1, kBadInput = 2, kFindings = 3 };

inline int Complain(const std::string& message, int status) {
  std::fprintf(stderr, "ztlsim: %s\n", Printable(message).c_str());
  return status;
}

}  // namespace ztlsim
