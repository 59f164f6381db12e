#include "simulation/whole_file.h"
#include "ztlsim/terminal.h"
// After the platform's headers: it defines some of their names as macros.
#include <windows.h>

namespace ztlsim {

// A console shows colour once its processing of escape sequences is switched on.
bool OutputIsTerminal() {
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  ::DWORD mode = 0;
  return ::GetConsoleMode(output, &mode) != 0 &&
         ::SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

bool ErrorIsTerminal() {
  ::DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

void WriteOutputAsUtf8() { ::SetConsoleOutputCP(CP_UTF8); }

// The system calls it on a thread of its own, and ends the program after it.
void CleanUpWhenStopped() {
  ::SetConsoleCtrlHandler(
      [](::DWORD) {
        simulation::RemoveTemporaries();
        return FALSE;
      },
      TRUE);
}

void EndOnClosedPipe() {}

}  // namespace ztlsim
