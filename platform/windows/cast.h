// Casts at the boundary: the operating system's types and ours are the same bits under two names.
//
// Included after the boundary's headers: <windows.h> defines names that they declare as macros.
#pragma once

#include "platform/types.h"
// The operating system's own headers come last.
#include <windows.h>

namespace platform::windows {

static_assert(sizeof(wchar_t) == sizeof(char16_t));
static_assert(sizeof(::GUID) == sizeof(platform::GUID));

inline ::HKEY Os(platform::HKEY key) { return reinterpret_cast<::HKEY>(key); }
inline ::HKEY* Os(platform::HKEY* key) { return reinterpret_cast<::HKEY*>(key); }
inline ::HWND Os(platform::HWND window) { return reinterpret_cast<::HWND>(window); }
inline ::DWORD* Os(platform::DWORD* number) { return reinterpret_cast<::DWORD*>(number); }
inline const wchar_t* Os(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline wchar_t* Os(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }
inline const ::GUID& Os(const platform::GUID& guid) { return reinterpret_cast<const ::GUID&>(guid); }

}  // namespace platform::windows
