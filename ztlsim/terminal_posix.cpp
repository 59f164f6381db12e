#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "ztlsim/terminal.h"

namespace ztlsim {

bool OutputIsTerminal() {
  const char* const terminal = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0 &&
         std::getenv("NO_COLOR") == nullptr;
}

void WriteOutputAsUtf8() {}

}  // namespace ztlsim
