#include "platform/files.h"

#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <sys/locking.h>

#include "platform/windows/cast.h"

namespace platform {

// Text translation is asked for: the runtime's own default belongs to the process that has loaded the module.
int _open(const char* path, int flags, int permission) { return ::_open(path, flags | _O_TEXT, permission); }

int _creat(const char* path, int permission) {
  const int descriptor = ::_creat(path, permission);
  if (descriptor != -1) ::_setmode(descriptor, _O_TEXT);
  return descriptor;
}

int _close(int descriptor) { return ::_close(descriptor); }

LONG _filelength(int descriptor) { return ::_filelength(descriptor); }

LONG _lseek(int descriptor, LONG offset, int origin) { return ::_lseek(descriptor, offset, origin); }

int _read(int descriptor, void* buffer, UINT bytes) { return ::_read(descriptor, buffer, bytes); }

int _write(int descriptor, const void* buffer, UINT bytes) { return ::_write(descriptor, buffer, bytes); }

int _locking(int descriptor, int mode, LONG bytes) { return ::_locking(descriptor, mode, bytes); }

int _mkdir(const char* path) { return ::_mkdir(path); }

BOOL CopyFileW(const char16_t* existing, const char16_t* copy, BOOL failIfExists) {
  return ::CopyFileW(windows::Os(existing), windows::Os(copy), failIfExists);
}

}  // namespace platform
