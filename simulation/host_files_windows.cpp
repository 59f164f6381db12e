#include "simulation/host_files.h"
// Its macros stand for names that ours declare as functions.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// The runtime's own header defines names that ours declare as constants, so it comes last.
#include <direct.h>
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <sys/locking.h>
#include <sys/stat.h>

namespace simulation::host {

// Links and mounted directories stand for another name; a file that a cloud service keeps elsewhere does not.
std::filesystem::path LinkTarget(const std::filesystem::path& path) {
  ::WIN32_FIND_DATAW found;
  const HANDLE search = ::FindFirstFileW(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return {};
  ::FindClose(search);
  const bool isLink =
      (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsReparseTagNameSurrogate(found.dwReserved0);
  return isLink ? path.root_path() : std::filesystem::path();
}

int Open(const std::filesystem::path& path, bool create, bool truncate) {
  return ::_wopen(path.c_str(), _O_RDWR | _O_TEXT | (create ? _O_CREAT : 0) | (truncate ? _O_TRUNC : 0),
                  _S_IREAD | _S_IWRITE);
}

int Close(int file) { return ::_close(file); }

platform::LONG Length(int file) { return ::_filelength(file); }

platform::LONG Seek(int file, platform::LONG offset, int origin) { return ::_lseek(file, offset, origin); }

int Read(int file, void* buffer, platform::UINT bytes) { return ::_read(file, buffer, bytes); }

int Write(int file, const void* buffer, platform::UINT bytes) { return ::_write(file, buffer, bytes); }

// Some runtimes leave errno as it was when another holder is there.
bool TryLock(int file, platform::LONG bytes) {
  if (::_locking(file, _LK_NBLCK, bytes) == 0) return true;
  errno = EACCES;
  return false;
}

int Unlock(int file, platform::LONG bytes) { return ::_locking(file, _LK_UNLCK, bytes); }

int MakeDirectory(const std::filesystem::path& path) { return ::_wmkdir(path.c_str()); }

void DropMemory(const char*, std::size_t) {}

}  // namespace simulation::host
