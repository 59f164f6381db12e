// The simulated machine's clock, debugger, message boxes, system directories and version.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/standard_output.h"
#include "platform/system_info.h"
#include "simulation/machine.h"
#include "simulation/text_encoding.h"

namespace platform {

using simulation::Operation;

std::int64_t time() {
  simulation::Machine& machine = simulation::Current();
  if (machine.Enter(Operation::time)) return -1;
  return (machine.clock ? *machine.clock : static_cast<std::int64_t>(std::time(nullptr))) +
         machine.WaitedMilliseconds() / 1000;
}

const std::tm* localtime(const std::int64_t* time) {
  if (simulation::Current().Enter(Operation::localtime, {.number = *time})) return nullptr;
  if (*time < 0) return nullptr;
  thread_local std::tm local;
  const auto seconds = static_cast<std::time_t>(*time);
#ifdef _WIN32
  return ::localtime_s(&local, &seconds) == 0 ? &local : nullptr;
#else
  return ::localtime_r(&seconds, &local);
#endif
}

std::size_t strftime(char* buffer, std::size_t capacity, const char* format, const std::tm* time) {
  if (simulation::Current().Enter(Operation::strftime, {.path = format})) return 0;
  // What the runtime's default locale writes for a date and time differs from one host to the other.
  std::string expanded;
  expanded.reserve(64);
  for (const char* at = format; *at != '\0'; ++at) {
    expanded += *at;
    if (*at != '%' || at[1] == '\0') continue;
    if (*++at == 'c')
      expanded += "m/%d/%y %H:%M:%S";
    else
      expanded += *at;
  }
  return std::strftime(buffer, capacity, expanded.c_str(), time);
}

void OutputDebugStringA(const char* text) {
  simulation::Machine& machine = simulation::Current();
  if (machine.Enter(Operation::OutputDebugStringA, {.path = text})) return;
  const std::lock_guard lock(machine.mutex);
  machine.debugOutput.emplace_back(text);
}

int MessageBoxA(HWND, const char* text, const char* caption, UINT style) {
  simulation::Machine& machine = simulation::Current();
  if (machine.Enter(Operation::MessageBoxA, {.path = text, .number = style})) return 0;
  const std::lock_guard lock(machine.mutex);
  machine.messageBoxes.push_back({text, caption, style});
  return 1;  // IDOK
}

UINT GetWindowsDirectoryA(char* buffer, UINT capacity) {
  simulation::Machine& machine = simulation::Current();
  if (machine.Enter(Operation::GetWindowsDirectoryA, {.number2 = capacity})) return 0;
  const std::string& directory = machine.files.windowsDirectory;
  if (directory.empty()) return 0;
  if (directory.size() >= capacity) return static_cast<UINT>(directory.size() + 1);
  std::memcpy(buffer, directory.c_str(), directory.size() + 1);
  return static_cast<UINT>(directory.size());
}

namespace {

// The answer of both: a directory below the Windows directory, "" for that itself.
UINT Directory(Operation operation, std::string_view below, char16_t* buffer, UINT capacity) {
  simulation::Machine& machine = simulation::Current();
  const std::string& windows = machine.files.windowsDirectory;
  if (const auto code = machine.Enter(operation, {.number2 = capacity}); code || windows.empty()) {
    machine.lastError = static_cast<DWORD>(code.value_or(ERROR_PATH_NOT_FOUND));
    return 0;
  }
  const std::u16string directory = simulation::Utf8ToUtf16(windows + std::string(below));
  if (directory.size() >= capacity) return static_cast<UINT>(directory.size() + 1);
  *std::copy(directory.begin(), directory.end(), buffer) = u'\0';
  return static_cast<UINT>(directory.size());
}

}  // namespace

UINT GetSystemWindowsDirectoryW(char16_t* buffer, UINT capacity) {
  return Directory(Operation::GetSystemWindowsDirectoryW, "", buffer, capacity);
}

UINT GetSystemDirectoryW(char16_t* buffer, UINT capacity) {
  return Directory(Operation::GetSystemDirectoryW, "\\System32", buffer, capacity);
}

BOOL GetVersionExW(OSVERSIONINFOEXW* version) {
  simulation::Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GetVersionExW);
  const DWORD bytes = version->dwOSVersionInfoSize;
  // The structure's older form ends in front of the service pack's number.
  if (code || (bytes != sizeof(*version) && bytes != offsetof(OSVERSIONINFOEXW, wServicePackMajor))) {
    machine.lastError = static_cast<DWORD>(code.value_or(ERROR_INSUFFICIENT_BUFFER));
    return 0;
  }
  OSVERSIONINFOEXW filled = {};
  filled.dwOSVersionInfoSize = bytes;
  filled.dwMajorVersion = machine.version.major;
  filled.dwMinorVersion = machine.version.minor;
  filled.dwPlatformId = machine.version.platformId;
  filled.wServicePackMajor = machine.version.servicePack;
  std::memcpy(version, &filled, bytes);
  return 1;
}

DWORD GetLastError() {
  simulation::Machine& machine = simulation::Current();
  machine.Enter(Operation::GetLastError);
  return machine.lastError;
}

void WriteStandardOutput(const char16_t* text) {
  simulation::Machine& machine = simulation::Current();
  if (machine.Enter(Operation::WriteStandardOutput, {.name = text})) return;
  const std::lock_guard lock(machine.mutex);
  machine.standardOutput += text;
}

}  // namespace platform
