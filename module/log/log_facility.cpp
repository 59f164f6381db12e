#include "module/log/log_facility.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>

#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/files.h"

namespace ztl {

using namespace platform;

LogFacility g_ModuleLog;

namespace {

constexpr std::size_t kMessageBytes = 1040;
constexpr std::size_t kLineBytes = 1024;
constexpr std::size_t kTimeStampBytes = 32;
constexpr std::size_t kDebugPrintBytes = 528;
constexpr std::size_t kBackupPathBytes = 272;
constexpr std::size_t kCopyBytes = 32768;
constexpr std::size_t kTraceCharacters = 4096;

// A runtime descriptor, closed when it goes out of scope. Closing also releases the descriptor's locks.
class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool IsOpen() const { return value_ != -1; }
  int Get() const { return value_; }
  void Close() {
    if (IsOpen()) platform::_close(value_);
    value_ = -1;
  }

 private:
  int value_;
};

// A trouble of the log itself: two debugger strings.
template <class... Arguments>
void Report(const char* prefix, std::type_identity_t<CheckedFormat<char, Arguments...>> format,
            Arguments... arguments) {
  DebugPrint("%s", prefix);
  DebugPrint<Arguments...>(format, arguments...);
}
constexpr char kError[] = "ERROR: ";
constexpr char kWarning[] = "WARNING: ";
constexpr char kLog[] = "LOG: ";

const char* SeverityName(DWORD severity) {
  switch (severity) {
    case SEV_DEBUG:
      return "DEBUG";
    case SEV_INFO:
      return "INFO";
    case SEV_WARNING:
      return "WARNING";
    case SEV_ERROR:
      return "ERROR";
    case SEV_CRITICAL:
      return "CRITICAL";
    case SEV_POPUP:
      return "POPUP";
    default:
      return nullptr;
  }
}

void FormatTimeStamp(char (&stamp)[kTimeStampBytes]) {
  const std::int64_t now = platform::time();
  const std::tm* const local = platform::localtime(&now);
  if (local == nullptr || platform::strftime(stamp, kTimeStampBytes - 1, "%c: ", local) == 0) stamp[0] = '\0';
}

// Locks `bytes` bytes at the end of the file, whose position `*end` is, and leaves the file pointer there. `lineBytes`
// is the line's length, for a report.
//
// Another process may have appended, or rotated the file, between the look at the end and the lock. The lock then
// covers bytes that nobody is about to write, so it moves to where the end is now, and the end is looked at again.
bool LockEnd(int descriptor, LONG bytes, LONG lineBytes, LONG* end) {
  for (;;) {
    if (platform::_locking(descriptor, _LK_LOCK, bytes) == -1) {
      Report(kError, "Failed to lock %d bytes rc=%d\n", lineBytes, errno);
      return false;
    }
    const LONG newEnd = platform::_lseek(descriptor, 0, SEEK_END);
    if (newEnd == *end) return true;
    if (newEnd == -1 || platform::_lseek(descriptor, *end, SEEK_SET) == -1) {
      Report(kError, "Failed to move File ptr rc=%d\n", errno);
      return false;
    }
    if (platform::_locking(descriptor, _LK_UNLCK, bytes) == -1) {
      Report(kError, "Failed to unlock Log file rc=%d\n", errno);
      return false;
    }
    if (platform::_lseek(descriptor, newEnd, SEEK_SET) == -1) {
      Report(kError, "Failed to move File ptr rc=%d\n", errno);
      return false;
    }
    *end = newEnd;
  }
}

}  // namespace

void OpenLogMaster(LogFacility& log, const char* fileName, const char* directory, std::uint32_t sizeLimitKB,
                   std::uint8_t mode, std::uint32_t popupStyle, const char* tag) {
  if (fileName == nullptr || *fileName == '\0') {
    Report(kError, "no filename\n");
    return;
  }
  if (directory == nullptr || *directory == '\0') {
    Report(kError, "no path\n");
    return;
  }
  log.available = 0;
  log.sizeLimit = sizeLimitKB * 1024;
  log.mode = mode;
  log.popupStyle = popupStyle;
  Format(log.path, "%s\\%s", directory, fileName);
  Format(log.tag, "%s", tag);
  if (platform::_mkdir(directory) == -1 && errno != RUNTIME_EEXIST) {
    Report(kError, "Master failed to open/create path %s\n", directory);
    return;
  }
  int descriptor;
  if (!OpenLogFile(log, &descriptor)) {
    Report(kError, "Master failed to open log, MUST abort\n");
    return;
  }
  platform::_close(descriptor);
  log.available = 1;
}

bool OpenLogFile(const LogFacility& log, int* descriptor) {
  switch (log.mode) {
    case LOG_MODE_CIRCULAR:
      *descriptor = platform::_open(log.path, _O_RDWR | _O_CREAT, _S_IREAD | _S_IWRITE);
      break;
    case LOG_MODE_EXISTING:
      *descriptor = platform::_open(log.path, _O_RDWR);
      break;
    default:
      *descriptor = -1;
      Report(kError, "mode %x not supported\n", static_cast<std::int32_t>(static_cast<std::int8_t>(log.mode)));
  }
  return *descriptor != -1;
}

void EnforceCircular(const LogFacility& log) {
  Descriptor file(platform::_open(log.path, _O_RDWR));
  if (!file.IsOpen()) {
    Report(kError, "_open failed rc=%d\n", errno);
    return;
  }
  const LONG size = platform::_filelength(file.Get());
  const int error = errno;
  file.Close();
  if (size == -1) {
    Report(kError, "_filelength failed rc=%d\n", error);
  } else {
    if (static_cast<std::uint32_t>(size) < log.sizeLimit) return;
    Report(kLog, "Enforcing circular\n");
  }
  char backupPath[kBackupPathBytes];
  Format(backupPath, "%s.backup", static_cast<const char*>(log.path));
  Report(kLog, "Copying <%s> to <%s>\n", static_cast<const char*>(log.path), static_cast<const char*>(backupPath));
  if (CopyLogFile(log.path, backupPath) == 0) Report(kError, "backup failed; old log will be lost\n");
  const Descriptor truncated(platform::_creat(log.path, _S_IREAD | _S_IWRITE));
  if (!truncated.IsOpen()) Report(kError, "_creat failed rc=%d\n", errno);
}

int CopyLogFile(const char* sourcePath, const char* destinationPath) {
  const Descriptor destination(platform::_creat(destinationPath, _S_IREAD | _S_IWRITE));
  if (!destination.IsOpen()) {
    Report(kError, "CopyLogFile create <%s> failed rc=%d\n", destinationPath, errno);
    return 0;
  }
  const Descriptor source(platform::_open(sourcePath, _O_RDWR));
  if (!source.IsOpen()) {
    Report(kError, "CopyLogFile open <%s> failed rc=%d\n", sourcePath, errno);
    return 0;
  }
  const LONG length = platform::_filelength(source.Get());
  if (length == -1) {
    Report(kError, "CopyLogFile file size failed rc=%d\n", errno);
    return 0;
  }
  // One byte beyond the end: a line that is being appended there waits until the copy is finished. (A file of the
  // largest size has no such byte.)
  const LONG locked = std::min(length, std::numeric_limits<LONG>::max() - 1) + 1;
  if (platform::_locking(source.Get(), _LK_LOCK, locked) == -1) {
    Report(kError, "CopyLogFile lock file failed rc=%d\n", errno);
    return 0;
  }
  char buffer[kCopyBytes];
  for (;;) {
    const int count = platform::_read(source.Get(), buffer, kCopyBytes);
    if (count == -1) Report(kError, "CopyLogFile read failed rc=%d\n", errno);
    if (count <= 0) break;
    platform::_write(destination.Get(), buffer, static_cast<UINT>(count));
  }
  platform::_lseek(source.Get(), 0, SEEK_SET);
  platform::_locking(source.Get(), _LK_UNLCK, locked);
  return 1;
}

void LogMessageArguments(const LogFacility& log, DWORD MsgType, const char* format, const FormatArgument* arguments) {
  if (log.available == 0) {
    Report(kWarning, "LogMessage instantiation of class failed, LOG FACILITY IS UNAVAILABLE !!\n");
    return;
  }
  if (MsgType == 0) {
    Report(kWarning, "LogMessage NO severity provided, defaulting to SEV_INFO\n");
    MsgType = SEV_INFO;
  }
  char message[kMessageBytes];
  FormatText(message, kMessageBytes, format, arguments);
  const char* const name = SeverityName(MsgType);
  if (name == nullptr) {
    Report(kError, "unknown MsgType %lX\n", MsgType);
    return;
  }
  DebugPrint("%s:%s\n", name, static_cast<const char*>(message));
  if (MsgType == SEV_DEBUG) return;
  if (MsgType == SEV_POPUP && log.popupStyle != kNoPopup)
    platform::MessageBoxA(nullptr, message, log.tag, log.popupStyle);

  if (log.mode == LOG_MODE_CIRCULAR) EnforceCircular(log);
  int opened;
  if (!OpenLogFile(log, &opened)) {
    Report(kError, "Failed to open log, try next msg in buf\n");
    return;
  }
  const Descriptor file(opened);
  LONG end = platform::_lseek(file.Get(), 0, SEEK_END);
  if (end == -1) {
    Report(kError, "Failed to move File ptr rc=%d\n", errno);
    return;
  }
  char stamp[kTimeStampBytes];
  FormatTimeStamp(stamp);
  char line[kLineBytes];
  const std::size_t lineBytes = Format(line, "%s%8.8s:%8.8s: %s\n", static_cast<const char*>(stamp),
                                       static_cast<const char*>(log.tag), name, static_cast<const char*>(message));
  // The lock covers the carriage returns too that text mode adds: a file system may show the file's end inside a line
  // that is being written, and whoever takes that for the end must wait for the whole line.
  const auto bytes = static_cast<LONG>(lineBytes) + static_cast<LONG>(std::count(line, line + lineBytes, '\n'));
  if (!LockEnd(file.Get(), bytes, static_cast<LONG>(lineBytes), &end)) return;
  platform::_write(file.Get(), line, static_cast<UINT>(lineBytes));
  if (platform::_lseek(file.Get(), end, SEEK_SET) == -1) {
    Report(kError, "Failed to move File ptr for unlock rc=%d\n", errno);
    return;
  }
  if (platform::_locking(file.Get(), _LK_UNLCK, bytes) == -1)
    Report(kError, "Failed to unlock Log file rc=%d\n", errno);
}

void TraceLineArguments(const char16_t* format, const FormatArgument* arguments) {
  char16_t text[kTraceCharacters];
  const std::size_t length = FormatText(text, kTraceCharacters, format, arguments);
  if (length > 0 && text[length - 1] == u'\n') text[length - 1] = u'\0';
  LogMessage(g_ModuleLog, SEV_INFO, "%S", static_cast<const char16_t*>(text));
}

void DebugPrintArguments(const char* format, const FormatArgument* arguments) {
  char text[kDebugPrintBytes];
  FormatText(text, kDebugPrintBytes, format, arguments);
  platform::OutputDebugStringA(text);
}

}  // namespace ztl
