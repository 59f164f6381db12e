// The diagnostic log: one text file that every process with the module shares, kept below a size limit by rotating it
// into one backup. Each accepted message goes to the debugger output too.
//
// Nothing here reports a failure to its caller: a message that cannot be written is lost, and the log's own troubles go
// to the debugger output alone, as a prefix and a text.
#pragma once

#include "module/log/format.h"
#include "platform/types.h"

namespace ztl {

// Severities (MsgType): exactly one of these; 0 is taken as SEV_INFO. SEV_DEBUG never reaches the file.
constexpr platform::DWORD SEV_DEBUG = 1;
constexpr platform::DWORD SEV_INFO = 2;
constexpr platform::DWORD SEV_WARNING = 4;
constexpr platform::DWORD SEV_ERROR = 8;
constexpr platform::DWORD SEV_CRITICAL = 16;
constexpr platform::DWORD SEV_POPUP = 32;

constexpr std::uint8_t LOG_MODE_CIRCULAR = 1;   // created if missing; the size limit is enforced before every line
constexpr std::uint8_t LOG_MODE_EXISTING = 16;  // an existing file only; no size limit

constexpr platform::DWORD kNoPopup = 0xFFFFFFFF;  // the popup style that shows no message box

struct LogFacility {
  std::uint32_t available;   // 1 once OpenLogMaster has succeeded; while 0, every message is dropped
  std::uint32_t popupStyle;  // MessageBoxA's style for SEV_POPUP, or kNoPopup
  std::uint32_t sizeLimit;   // bytes
  char path[260];            // directory, backslash, file name
  char tag[260];             // its first 8 characters are in every line
  std::uint8_t mode;
};

extern LogFacility g_ModuleLog;  // all zero, so unavailable, when the module is loaded

// Sets `log` up and creates its directory (one level) and, in LOG_MODE_CIRCULAR, the file. 8-bit texts; `sizeLimitKB`
// in units of 1,024 bytes. Success shows as `available`. A path longer than 259 characters is cut.
void OpenLogMaster(LogFacility& log, const char* fileName, const char* directory, std::uint32_t sizeLimitKB,
                   std::uint8_t mode, std::uint32_t popupStyle, const char* tag);

// Opens the log's file as its mode says. True when `*descriptor`, which the caller closes, is not -1.
bool OpenLogFile(const LogFacility& log, int* descriptor);

// Rotates the file when it has reached its size limit.
void EnforceCircular(const LogFacility& log);

// Copies the log to its backup while holding a lock on all of it and the byte after it; 1 when done (also when a read
// error cut it short), 0 on failure.
int CopyLogFile(const char* sourcePath, const char* destinationPath);

// What the templates below call. `arguments` has an entry for each conversion of the format, in its order.
void LogMessageArguments(const LogFacility& log, platform::DWORD MsgType, const char* format,
                         const FormatArgument* arguments);
void TraceLineArguments(const char16_t* format, const FormatArgument* arguments);
void DebugPrintArguments(const char* format, const FormatArgument* arguments);

// Writes one message of at most 1,039 bytes; a line of the file holds at most 1,023 with its line feed.
template <class... Arguments>
void LogMessage(const LogFacility& log, platform::DWORD MsgType,
                std::type_identity_t<CheckedFormat<char, Arguments...>> format, Arguments... arguments) {
  const FormatArgument list[] = {FormatArgument(arguments)..., FormatArgument(0)};
  LogMessageArguments(log, MsgType, format.Text(), list);
}

// The wide trace: at most 4,095 characters, less one line feed at the end, to the module log at SEV_INFO. The buffer
// belongs to the call, so traces of several threads stay apart.
template <class... Arguments>
void TraceLine(std::type_identity_t<CheckedFormat<char16_t, Arguments...>> format, Arguments... arguments) {
  const FormatArgument list[] = {FormatArgument(arguments)..., FormatArgument(0)};
  TraceLineArguments(format.Text(), list);
}

// Sends formatted text of at most 527 bytes to the debugger output.
template <class... Arguments>
void DebugPrint(std::type_identity_t<CheckedFormat<char, Arguments...>> format, Arguments... arguments) {
  const FormatArgument list[] = {FormatArgument(arguments)..., FormatArgument(0)};
  DebugPrintArguments(format.Text(), list);
}

}  // namespace ztl
