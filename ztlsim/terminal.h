// The terminal or pipe that the tool prints to, and what stops it from there, one file for each kind of host.
#pragma once

namespace ztlsim {

bool OutputIsTerminal();   // standard output is one, and shows colour
bool ErrorIsTerminal();    // standard error is one
void WriteOutputAsUtf8();  // standard output takes UTF-8 from here on

// From here on, whoever stops the program (by a signal, or from the console) stops it without temporary files left; it
// ends as if nothing had been done about that. A closed pipe or a full file is an error of the write alone.
void CleanUpWhenStopped();

// For a write to standard output that failed, with errno set: ends the program as a closed pipe ends others, if that
// was the reason. Returns else.
void EndOnClosedPipe();

}  // namespace ztlsim
