// Clock, debugger, message boxes, comparison, system directories and version.
#include <ctime>
#include <string_view>

#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/locale.h"
#include "platform/standard_output.h"
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

int lstrcmpiW(const char16_t* a, const char16_t* b) { return ::lstrcmpiW(Os(a), Os(b)); }

UINT GetWindowsDirectoryA(char* buffer, UINT capacity) { return ::GetWindowsDirectoryA(buffer, capacity); }

UINT GetSystemWindowsDirectoryW(char16_t* buffer, UINT capacity) {
  return ::GetSystemWindowsDirectoryW(Os(buffer), capacity);
}

UINT GetSystemDirectoryW(char16_t* buffer, UINT capacity) { return ::GetSystemDirectoryW(Os(buffer), capacity); }

BOOL GetVersionExW(OSVERSIONINFOEXW* version) {
  static_assert(sizeof(*version) == sizeof(::OSVERSIONINFOEXW));
  return ::GetVersionExW(reinterpret_cast<::OSVERSIONINFOW*>(version));
}

DWORD GetLastError() { return ::GetLastError(); }

// To a console as it is, to a file or a pipe as UTF-8: the runtime's own stream would stop at the first character that
// its locale lacks.
void WriteStandardOutput(const char16_t* text) {
  ::HANDLE const output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  const auto length = static_cast<DWORD>(std::u16string_view(text).size());
  ::DWORD written = 0;
  if (::DWORD mode = 0; ::GetConsoleMode(output, &mode)) {
    ::WriteConsoleW(output, text, length, &written, nullptr);
    return;
  }
  char bytes[3 * kStandardOutputCapacity];
  const int count =
      ::WideCharToMultiByte(CP_UTF8, 0, Os(text), static_cast<int>(length), bytes, sizeof(bytes), nullptr, nullptr);
  if (count > 0) ::WriteFile(output, bytes, static_cast<::DWORD>(count), &written, nullptr);
}

}  // namespace platform
