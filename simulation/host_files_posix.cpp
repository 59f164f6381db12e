#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <system_error>

#include "platform/files.h"
#include "simulation/host_files.h"

namespace simulation::host {

using namespace platform;
namespace {

constexpr char kEndOfText = 0x1A;  // ends a file that the runtime reads as text

// Leaves in errno what the Windows runtime would; most numbers are the same.
int Failed() {
  switch (errno) {
    case ENOTDIR:
    case ENAMETOOLONG:
      errno = RUNTIME_ENOENT;
      break;
    case EISDIR:
    case EPERM:
    case EROFS:
    case ETXTBSY:
    case ELOOP:
      errno = RUNTIME_EACCES;
      break;
    case ENFILE:
      errno = RUNTIME_EMFILE;
      break;
    case EDQUOT:
    case EFBIG:
      errno = RUNTIME_ENOSPC;
      break;
    default:
      break;
  }
  return -1;
}

bool Lock(int file, short type, LONG bytes) {
  if (bytes == 0) return true;  // to fcntl, this would be everything up to the end
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_CUR;
  lock.l_len = bytes;
  return ::fcntl(file, F_OFD_SETLK, &lock) == 0;
}

// Writes the whole block, or as much as the file system takes.
std::size_t WriteBlock(int file, const char* data, std::size_t bytes) {
  std::size_t written = 0;
  while (written < bytes) {
    const ssize_t count = ::write(file, data + written, bytes - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    written += static_cast<std::size_t>(count);
  }
  return written;
}

}  // namespace

std::filesystem::path LinkTarget(const std::filesystem::path& path) {
  std::error_code isNone;
  return std::filesystem::read_symlink(path, isNone);
}

int Open(const std::filesystem::path& path, bool create, bool truncate) {
  const int file =
      ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | (create ? O_CREAT : 0) | (truncate ? O_TRUNC : 0), 0666);
  return file == -1 ? Failed() : file;
}

int Close(int file) { return ::close(file) == 0 ? 0 : Failed(); }

LONG Length(int file) {
  struct stat status;
  if (::fstat(file, &status) != 0) return Failed();
  if (status.st_size > std::numeric_limits<LONG>::max()) {
    errno = RUNTIME_EINVAL;
    return -1;
  }
  return static_cast<LONG>(status.st_size);
}

LONG Seek(int file, LONG offset, int origin) {
  const off_t position = ::lseek(file, offset, origin);
  if (position > std::numeric_limits<LONG>::max()) errno = RUNTIME_EINVAL;
  return position < 0 || position > std::numeric_limits<LONG>::max() ? Failed() : static_cast<LONG>(position);
}

int Read(int file, void* buffer, UINT bytes) {
  char* const text = static_cast<char*>(buffer);
  const ssize_t count = ::read(file, text, bytes);
  if (count < 0) return Failed();
  const char* end = text + count;
  if (const char* const endOfText = std::find(static_cast<const char*>(text), end, kEndOfText); endOfText != end) {
    ::lseek(file, endOfText - end, SEEK_CUR);  // the next read ends here too
    end = endOfText;
  }
  char* out = text;
  for (const char* in = text; in != end; ++in)
    if (!(*in == '\r' && in + 1 != end && in[1] == '\n')) *out++ = *in;
  // A carriage return at the end of the block belongs to the line feed after it, if one follows.
  char next;
  if (out != text && out[-1] == '\r' && end == text + count && ::read(file, &next, 1) == 1) {
    if (next == '\n')
      out[-1] = '\n';
    else
      ::lseek(file, -1, SEEK_CUR);
  }
  return static_cast<int>(out - text);
}

int Write(int file, const void* buffer, UINT bytes) {
  const char* in = static_cast<const char*>(buffer);
  const char* const end = in + bytes;
  char block[4096];
  while (in != end) {
    std::size_t length = 0;
    const char* const start = in;
    for (; in != end && length + 2 <= sizeof(block); ++in) {
      if (*in == '\n') block[length++] = '\r';
      block[length++] = *in;
    }
    if (WriteBlock(file, block, length) != length) {
      if (start == buffer) return Failed();
      return static_cast<int>(start - static_cast<const char*>(buffer));
    }
  }
  return static_cast<int>(bytes);
}

bool TryLock(int file, LONG bytes) {
  if (Lock(file, F_WRLCK, bytes)) return true;
  if (errno == EAGAIN) errno = RUNTIME_EACCES;
  return false;
}

int Unlock(int file, LONG bytes) { return Lock(file, F_UNLCK, bytes) ? 0 : Failed(); }

int MakeDirectory(const std::filesystem::path& path) { return ::mkdir(path.c_str(), 0777) == 0 ? 0 : Failed(); }

void DropMemory(const char* memory, std::size_t bytes) {
  const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t first = (begin + page - 1) / page * page, end = (begin + bytes) / page * page;
  if (first < end) ::madvise(const_cast<char*>(memory) + (first - begin), end - first, MADV_DONTNEED);
}

}  // namespace simulation::host
