// The terminal that the tool prints to, one file for each kind of host.
#pragma once

namespace ztlsim {

bool OutputIsTerminal();   // standard output is one, and shows colour
void WriteOutputAsUtf8();  // standard output takes UTF-8 from here on

}  // namespace ztlsim
