// Debugger output and message boxes (debugapi.h, winuser.h). The text is 8-bit.
#pragma once

#include "platform/types.h"

namespace platform {

void OutputDebugStringA(const char* text);
int MessageBoxA(HWND owner, const char* text, const char* caption, UINT style);  // returns when the user closes it

}  // namespace platform
