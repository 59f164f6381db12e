// The runtime library's low-level file operations (io.h, direct.h). Paths are 8-bit text of the form C:\directory\name.
//
// A failure is -1 with the runtime's number in `errno`. Descriptors are opened in text translation mode: a line feed is
// written as carriage return and line feed, and read back as a line feed.
#pragma once

#include "platform/types.h"

namespace platform {

constexpr int _O_RDWR = 0x0002;
constexpr int _O_CREAT = 0x0100;
constexpr int _S_IWRITE = 0x0080;
constexpr int _S_IREAD = 0x0100;
constexpr int _LK_UNLCK = 0;
constexpr int _LK_LOCK = 1;

// The runtime's error numbers that the module prints or tests (errno.h of the platform).
constexpr int RUNTIME_ENOENT = 2;
constexpr int RUNTIME_EBADF = 9;
constexpr int RUNTIME_EACCES = 13;
constexpr int RUNTIME_EEXIST = 17;
constexpr int RUNTIME_EINVAL = 22;
constexpr int RUNTIME_EMFILE = 24;
constexpr int RUNTIME_ENOSPC = 28;
constexpr int RUNTIME_EDEADLOCK = 36;

int _open(const char* path, int flags, int permission = 0);  // flags: _O_…; permission: _S_…
int _creat(const char* path, int permission);                // creates the file or truncates it to zero length
int _close(int descriptor);
LONG _filelength(int descriptor);                            // bytes
LONG _lseek(int descriptor, LONG offset, int origin);        // the new position in bytes from the start
int _read(int descriptor, void* buffer, UINT bytes);         // bytes stored, 0 at the end
int _write(int descriptor, const void* buffer, UINT bytes);  // bytes of the buffer that were written
// Locks or unlocks `bytes` bytes, as `mode` (_LK_…) says, from the current position, which may lie beyond the end. A
// lock belongs to its descriptor. _LK_LOCK tries ten times, a second apart, then fails with RUNTIME_EDEADLOCK.
int _locking(int descriptor, int mode, LONG bytes);
int _mkdir(const char* path);  // one level; 0 on success, RUNTIME_EEXIST when it exists already

// Copies a file (winbase.h), over an existing one unless `failIfExists` is set. Zero on failure, with the reason in
// GetLastError.
BOOL CopyFileW(const char16_t* existing, const char16_t* copy, BOOL failIfExists);

}  // namespace platform
