#include "simulation/files.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "simulation/host_files.h"
#include "simulation/machine.h"
#include "simulation/text_encoding.h"

namespace simulation {
namespace {

constexpr int kFirstDescriptor = 3;
constexpr int kLockTries = 10;

// The part of a path below the drive's root, with slashes; false for a path of another form. Like Windows, no ".."
// leads out of the root.
bool BelowRoot(std::string_view path, std::string& relative) {
  const bool hasDrive = path.size() >= 2 && (path[0] == 'C' || path[0] == 'c') && path[1] == ':';
  if (hasDrive) path.remove_prefix(2);
  const auto isSlash = [](char c) { return c == '\\' || c == '/'; };
  if (path.empty() || !isSlash(path[0]) || (!hasDrive && path.size() > 1 && isSlash(path[1]))) return false;
  relative.clear();
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find_first_of("\\/"));
    path.remove_prefix(std::min(name.size() + 1, path.size()));
    if (name == "..") {
      const std::size_t slash = relative.rfind('/');
      relative.erase(slash == relative.npos ? 0 : slash);
    } else if (!name.empty() && name != ".") {
      if (!relative.empty()) relative += '/';
      relative += name;
    }
  }
  return true;
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

std::u16string FileName(const std::filesystem::path& path) {
#ifdef _WIN32
  const std::wstring name = path.filename().native();
  return {name.begin(), name.end()};
#else
  return Utf8ToUtf16(path.filename().native());
#endif
}

std::filesystem::path Files::RealPath(const char* path) const {
  std::string relative;
  return root.empty() || !BelowRoot(path, relative) ? std::filesystem::path() : Locate(relative);
}

std::filesystem::path Files::RealPath(const char16_t* path) const {
  std::string relative;
  if (root.empty() || !BelowRoot(Utf16ToUtf8(path), relative)) return {};
  return Locate(std::u8string(relative.begin(), relative.end()));
}

std::filesystem::path Files::Locate(const std::filesystem::path& relative) const {
  std::error_code error;
  std::filesystem::path real = root;
  for (const std::filesystem::path& name : relative) {
    std::filesystem::path next = real / name;
    if (!std::filesystem::exists(next, error)) {
      const std::u16string upper = UpperCase(FileName(name));
      for (std::filesystem::directory_iterator entry(real, error), end; !error && entry != end; entry.increment(error))
        if (UpperCase(FileName(entry->path())) == upper) {
          next = entry->path();
          break;
        }
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

}  // namespace simulation

namespace platform {

using simulation::Operation;

namespace {

// Enters an operation of a descriptor. False, with errno set, when it must fail.
bool EnterDescriptor(Operation operation, int descriptor, std::int64_t number2 = 0, const void* data = nullptr,
                     std::size_t dataBytes = 0) {
  if (const auto code = simulation::Current().Enter(
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
             ? simulation::Current().files.HostFile(descriptor)
             : -1;
}

bool EnterPath(Operation operation, const char* path) {
  if (const auto code = simulation::Current().Enter(operation, {.path = path})) {
    errno = *code;
    return false;
  }
  return true;
}

}  // namespace

int _open(const char* path, int flags, int) {
  return EnterPath(Operation::_open, path) ? simulation::Current().files.Open(path, (flags & _O_CREAT) != 0, false)
                                           : -1;
}

int _creat(const char* path, int) {
  return EnterPath(Operation::_creat, path) ? simulation::Current().files.Open(path, true, true) : -1;
}

int _mkdir(const char* path) {
  return EnterPath(Operation::_mkdir, path) ? simulation::Current().files.MakeDirectory(path) : -1;
}

// A failure that is to come closes the file all the same.
int _close(int descriptor) {
  simulation::Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::_close, {.number = descriptor});
  const int result = machine.files.Close(descriptor);
  return code ? simulation::SetErrno(*code) : result;
}

LONG _filelength(int descriptor) {
  const int file = EnterFile(Operation::_filelength, descriptor);
  return file == -1 ? -1 : simulation::host::Length(file);
}

LONG _lseek(int descriptor, LONG offset, int origin) {
  const int file = EnterFile(Operation::_lseek, descriptor, offset);
  return file == -1 ? -1 : simulation::host::Seek(file, offset, origin);
}

int _read(int descriptor, void* buffer, UINT bytes) {
  const int file = EnterFile(Operation::_read, descriptor, bytes);
  return file == -1 ? -1 : simulation::host::Read(file, buffer, bytes);
}

int _write(int descriptor, const void* buffer, UINT bytes) {
  const int file = EnterFile(Operation::_write, descriptor, bytes, buffer, bytes);
  if (file == -1) return -1;
  const simulation::Files& files = simulation::Current().files;
  if (files.onWrite) files.onWrite(files.PathOf(descriptor), {static_cast<const char*>(buffer), bytes});
  return simulation::host::Write(file, buffer, bytes);
}

int _locking(int descriptor, int mode, LONG bytes) {
  return EnterDescriptor(Operation::_locking, descriptor, bytes)
             ? simulation::Current().files.Lock(descriptor, mode, bytes)
             : -1;
}

BOOL CopyFileW(const char16_t* existing, const char16_t* copy, BOOL failIfExists) {
  namespace fs = std::filesystem;
  simulation::Machine& machine = simulation::Current();
  const auto fail = [&machine](LSTATUS code) {
    machine.lastError = static_cast<DWORD>(code);
    return 0;
  };
  if (const auto code = machine.Enter(Operation::CopyFileW, {.name = existing})) return fail(*code);
  const fs::path from = machine.files.RealPath(existing), to = machine.files.RealPath(copy);
  std::error_code error;
  if (!fs::exists(from, error))
    return fail(fs::exists(from.parent_path(), error) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  if (!fs::exists(to.parent_path(), error)) return fail(ERROR_PATH_NOT_FOUND);
  if (fs::exists(to, error)) {
    if (failIfExists != 0) return fail(ERROR_FILE_EXISTS);
    if (!fs::is_regular_file(to, error)) return fail(ERROR_ACCESS_DENIED);
    if (fs::equivalent(from, to, error)) return fail(ERROR_SHARING_VIOLATION);
  }
  LSTATUS rc = ERROR_SUCCESS;
  const std::optional<std::string> bytes = simulation::ReadFile(from, rc);
  return bytes && !simulation::WriteFileWhole(to, *bytes) ? 1 : fail(ERROR_ACCESS_DENIED);
}

}  // namespace platform
