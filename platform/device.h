// Devices and their control requests (fileapi.h, ioapiset.h, handleapi.h). Failures leave their reason in GetLastError.
#pragma once

#include "platform/types.h"

namespace platform {

using HANDLE = void*;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;

// INVALID_HANDLE_VALUE on failure. The caller closes the handle with CloseHandle.
HANDLE CreateFileW(const char16_t* name, DWORD access, DWORD shareMode, void* securityAttributes, DWORD disposition,
                   DWORD flags, HANDLE templateFile);

// Sends one request; 0 on failure. Sizes are in bytes; `overlapped` is null: the call is synchronous.
BOOL DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputBytes, void* output, DWORD outputBytes,
                     DWORD* returned, void* overlapped);

BOOL CloseHandle(HANDLE handle);  // 0 on failure

}  // namespace platform
