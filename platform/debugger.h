// Debugger output and message boxes (debugapi.h, winuser.h). The text is 8-bit.
#pragma once

#include "platform/types.h"

namespace platform {

void OutputDebugStringA(const char* text);
// `style` is made of the system's MB_ flags. Returns the pressed button's number when the user has closed the box; 0 on
// failure.
int MessageBoxA(HWND owner, const char* text, const char* caption, UINT style);

}  // namespace platform
