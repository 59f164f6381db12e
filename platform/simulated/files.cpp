#include "platform/simulated/files.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/simulated/host.h"
#include "platform/simulated/machine.h"

namespace platform::simulated {
namespace {

constexpr int kFirstDescriptor = 3;
constexpr int kLockTries = 10;

// The part of a path below the drive's root, with slashes; false for a path of another form.
bool BelowRoot(std::string_view path, std::string& relative) {
  if (path.size() >= 2 && (path[0] == 'C' || path[0] == 'c') && path[1] == ':') path.remove_prefix(2);
  if (path.empty() || (path[0] != '\\' && path[0] != '/')) return false;
  path.remove_prefix(path.find_first_not_of("\\/") == path.npos ? path.size() : path.find_first_not_of("\\/"));
  relative = path;
  std::replace(relative.begin(), relative.end(), '\\', '/');
  return true;
}

bool EqualNoCase8(std::string_view a, std::string_view b) {
  auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return fold(x) == fold(y); });
}

int SetErrno(int code) {
  errno = code;
  return -1;
}

}  // namespace

Files::~Files() {
  for (const int file : hostFiles_)
    if (file != 0) host::Close(file - 1);
}

std::filesystem::path Files::RealPath(const char* path) const {
  std::string relative;
  if (root.empty() || !BelowRoot(path, relative)) return {};
  std::error_code error;
  std::filesystem::path real = root;
  for (const std::filesystem::path& name : std::filesystem::path(relative)) {
    std::filesystem::path next = real / name;
    if (!std::filesystem::exists(next, error))
      for (std::filesystem::directory_iterator entry(real, error), end; !error && entry != end; entry.increment(error))
        if (EqualNoCase8(entry->path().filename().string(), name.string())) {
          next = entry->path();
          break;
        }
    real = std::move(next);
  }
  return real;
}

int Files::OpenDescriptors() const {
  return static_cast<int>(std::count_if(hostFiles_.begin(), hostFiles_.end(), [](int file) { return file != 0; }));
}

std::string Files::PathOf(int descriptor) const {
  const std::lock_guard lock(mutex_);
  const auto index = static_cast<std::size_t>(descriptor - kFirstDescriptor);
  return index < paths_.size() && hostFiles_[index] != 0 ? paths_[index] : std::string();
}

int Files::HostFile(int descriptor) const {
  const auto index = static_cast<std::size_t>(descriptor - kFirstDescriptor);
  const int file = index < kMaxDescriptors ? hostFiles_[index].load() : 0;
  return file == 0 ? SetErrno(RUNTIME_EBADF) : file - 1;
}

int Files::Open(const char* path, bool create, bool truncate) {
  const std::lock_guard lock(mutex_);
  if (root.empty()) return SetErrno(RUNTIME_ENOENT);
  // A message opens its file twice, and its cost is to be that of the system calls: the real path is made once, and a
  // file in another letter case is looked for only when there is none of this name.
  if (lastPath_ != path || lastRoot_ != root.native()) {
    std::string relative;
    if (!BelowRoot(path, relative)) return SetErrno(RUNTIME_ENOENT);
    lastReal_ = root / relative;
    lastRoot_ = root.native();
    lastPath_ = path;
  }
  int hostFile = host::Open(lastReal_, false, truncate);
  if (hostFile == -1 && errno == RUNTIME_ENOENT) hostFile = host::Open(RealPath(path), create, truncate);
  if (hostFile == -1) return -1;
  const auto slot = std::find(hostFiles_.begin(), hostFiles_.end(), 0);
  if (slot == hostFiles_.end()) {
    host::Close(hostFile);
    return SetErrno(RUNTIME_EMFILE);
  }
  const auto index = static_cast<std::size_t>(slot - hostFiles_.begin());
  if (index == paths_.size()) paths_.emplace_back();
  paths_[index] = path;
  *slot = hostFile + 1;
  return static_cast<int>(index) + kFirstDescriptor;
}

int Files::Close(int descriptor) {
  const auto index = static_cast<std::size_t>(descriptor - kFirstDescriptor);
  const int file = index < kMaxDescriptors ? hostFiles_[index].exchange(0) : 0;
  return file == 0 ? SetErrno(RUNTIME_EBADF) : host::Close(file - 1);
}

int Files::Lock(int descriptor, int mode, LONG bytes) {
  const int hostFile = HostFile(descriptor);
  if (hostFile == -1) return -1;
  if (bytes < 0 || (mode != _LK_LOCK && mode != _LK_UNLCK)) return SetErrno(RUNTIME_EINVAL);
  if (mode == _LK_UNLCK) return host::Unlock(hostFile, bytes);
  for (int tries = 1; !host::TryLock(hostFile, bytes); ++tries) {
    if (errno != RUNTIME_EACCES) return -1;
    if (tries == kLockTries) return SetErrno(RUNTIME_EDEADLOCK);
    std::this_thread::sleep_for(std::chrono::milliseconds(lockRetryMilliseconds));
  }
  return 0;
}

int Files::MakeDirectory(const char* path) {
  const std::filesystem::path real = RealPath(path);
  return real.empty() ? SetErrno(RUNTIME_ENOENT) : host::MakeDirectory(real);
}

}  // namespace platform::simulated

namespace platform {

using simulated::Operation;

namespace {

// Enters an operation of a descriptor. False, with errno set, when it must fail.
bool EnterDescriptor(Operation operation, int descriptor, std::int64_t number2 = 0, const void* data = nullptr,
                     std::size_t dataBytes = 0) {
  if (const auto code = simulated::Current().Enter(
          operation, {.number = descriptor, .number2 = number2, .data = data, .dataBytes = dataBytes})) {
    errno = *code;
    return false;
  }
  return true;
}

// The same, with the host's file as the result: -1, with errno set, when the descriptor is not open either.
int EnterFile(Operation operation, int descriptor, std::int64_t number2 = 0, const void* data = nullptr,
              std::size_t dataBytes = 0) {
  return EnterDescriptor(operation, descriptor, number2, data, dataBytes)
             ? simulated::Current().files.HostFile(descriptor)
             : -1;
}

bool EnterPath(Operation operation, const char* path) {
  if (const auto code = simulated::Current().Enter(operation, {.path = path})) {
    errno = *code;
    return false;
  }
  return true;
}

}  // namespace

int _open(const char* path, int flags, int) {
  return EnterPath(Operation::_open, path) ? simulated::Current().files.Open(path, (flags & _O_CREAT) != 0, false) : -1;
}

int _creat(const char* path, int) {
  return EnterPath(Operation::_creat, path) ? simulated::Current().files.Open(path, true, true) : -1;
}

int _mkdir(const char* path) {
  return EnterPath(Operation::_mkdir, path) ? simulated::Current().files.MakeDirectory(path) : -1;
}

int _close(int descriptor) {
  return EnterDescriptor(Operation::_close, descriptor) ? simulated::Current().files.Close(descriptor) : -1;
}

LONG _filelength(int descriptor) {
  const int file = EnterFile(Operation::_filelength, descriptor);
  return file == -1 ? -1 : simulated::host::Length(file);
}

LONG _lseek(int descriptor, LONG offset, int origin) {
  const int file = EnterFile(Operation::_lseek, descriptor, offset);
  return file == -1 ? -1 : simulated::host::Seek(file, offset, origin);
}

int _read(int descriptor, void* buffer, UINT bytes) {
  const int file = EnterFile(Operation::_read, descriptor, bytes);
  return file == -1 ? -1 : simulated::host::Read(file, buffer, bytes);
}

int _write(int descriptor, const void* buffer, UINT bytes) {
  const int file = EnterFile(Operation::_write, descriptor, bytes, buffer, bytes);
  if (file == -1) return -1;
  const simulated::Files& files = simulated::Current().files;
  if (files.onWrite) files.onWrite(files.PathOf(descriptor), {static_cast<const char*>(buffer), bytes});
  return simulated::host::Write(file, buffer, bytes);
}

int _locking(int descriptor, int mode, LONG bytes) {
  return EnterDescriptor(Operation::_locking, descriptor, bytes)
             ? simulated::Current().files.Lock(descriptor, mode, bytes)
             : -1;
}

}  // namespace platform
