// System directories and version (sysinfoapi.h).
#pragma once

#include "platform/types.h"

namespace platform {

// The Windows directory, without a trailing backslash, into `buffer` of `capacity` characters. Returns the length
// without the terminator; the capacity needed when the buffer is too small; 0 on failure.
UINT GetWindowsDirectoryA(char* buffer, UINT capacity);

// The same for the Windows directory that all users share, and for the system directory.
UINT GetSystemWindowsDirectoryW(char16_t* buffer, UINT capacity);
UINT GetSystemDirectoryW(char16_t* buffer, UINT capacity);

struct OSVERSIONINFOEXW {
  DWORD dwOSVersionInfoSize;  // bytes, set by the caller
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char16_t szCSDVersion[128];
  WORD wServicePackMajor;
  WORD wServicePackMinor;
  WORD wSuiteMask;
  BYTE wProductType;
  BYTE wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXW) == 284);
constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

// Zero on failure, with the reason in GetLastError.
BOOL GetVersionExW(OSVERSIONINFOEXW* version);

DWORD GetLastError();  // of this thread, in winerror.h

}  // namespace platform
