// Clock, debugger, message boxes, system directories and version.
#include <ctime>

#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/system_info.h"
#include "platform/windows/cast.h"

namespace platform {

using windows::Os;

std::int64_t time() { return ::_time64(nullptr); }

const std::tm* localtime(const std::int64_t* time) {
  const __time64_t seconds = *time;
  return ::_localtime64(&seconds);
}

std::size_t strftime(char* buffer, std::size_t capacity, const char* format, const std::tm* time) {
  return ::strftime(buffer, capacity, format, time);
}

void OutputDebugStringA(const char* text) { ::OutputDebugStringA(text); }

int MessageBoxA(HWND owner, const char* text, const char* caption, UINT style) {
  return ::MessageBoxA(Os(owner), text, caption, style);
}

UINT GetWindowsDirectoryA(char* buffer, UINT capacity) { return ::GetWindowsDirectoryA(buffer, capacity); }

BOOL GetVersionExW(OSVERSIONINFOEXW* version) {
  static_assert(sizeof(*version) == sizeof(::OSVERSIONINFOEXW));
  return ::GetVersionExW(reinterpret_cast<::OSVERSIONINFOW*>(version));
}

}  // namespace platform
