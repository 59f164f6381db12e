#include "simulation/files.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
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
constexpr int kMaxLinks = 40;  // of one path

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

int OpenReal(const std::filesystem::path& real, bool create, bool truncate) {
  if (real.empty()) return SetErrno(RUNTIME_ENOENT);
  return real.native() == DeniedPath().native() ? SetErrno(RUNTIME_EACCES) : host::Open(real, create, truncate);
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

// Links are followed here, one by one, so that the result has none below the root.
std::filesystem::path Files::Locate(const std::filesystem::path& relative) const {
  std::error_code error;
  std::vector<std::filesystem::path> pending(relative.begin(), relative.end());  // the next name is the last one
  std::reverse(pending.begin(), pending.end());
  std::filesystem::path real = root;
  std::filesystem::path link;  // the last one
  std::size_t depth = 0;       // below the root
  for (int links = 0; !pending.empty();) {
    const std::filesystem::path name = std::move(pending.back());
    pending.pop_back();
    if (name.empty() || name == ".") continue;
    std::filesystem::path next = real / name;
    if (name != ".." && !std::filesystem::exists(std::filesystem::symlink_status(next, error))) {
      const std::u16string upper = UpperCase(FileName(name));
      for (std::filesystem::directory_iterator entry(real, error), end; !error && entry != end; entry.increment(error))
        if (UpperCase(FileName(entry->path())) == upper) {
          next = entry->path();
          break;
        }
    }
    const std::filesystem::path target = name == ".." ? std::filesystem::path() : host::LinkTarget(next);
    if (target.has_root_path() || (!target.empty() && ++links > kMaxLinks) || (name == ".." && depth == 0)) {
      AddTrouble((target.empty() ? link : next).string(), "a link that leads out of the drive");
      return DeniedPath();
    }
    if (!target.empty()) {
      const std::vector<std::filesystem::path> steps(target.begin(), target.end());
      pending.insert(pending.end(), steps.rbegin(), steps.rend());
      link = std::move(next);
    } else if (name == "..") {
      real = real.parent_path();
      --depth;
    } else {
      real = std::move(next);
      ++depth;
    }
  }
  return real;
}

void Files::AddTrouble(const std::string& file, const std::string& why) const {
  const std::lock_guard lock(troublesMutex_);
  std::string trouble = file + ": " + why;
  if (std::find(troubles_.begin(), troubles_.end(), trouble) == troubles_.end())
    troubles_.push_back(std::move(trouble));
}

std::vector<std::string> Files::Troubles() const {
  const std::lock_guard lock(troublesMutex_);
  return troubles_;
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
  // A message opens its file twice, and its cost is to be that of the system calls: the real path is made once, and
  // again only when there is no file.
  if (lastPath_ != path || lastRoot_ != root.native()) {
    lastReal_ = RealPath(path);
    lastRoot_ = root.native();
    lastPath_ = path;
  }
  int hostFile = OpenReal(lastReal_, false, truncate);
  if (hostFile == -1 && errno == RUNTIME_ENOENT) {
    lastReal_ = RealPath(path);
    hostFile = OpenReal(lastReal_, create, truncate);
  }
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

int Files::Write(int descriptor, const void* buffer, UINT bytes) {
  const int hostFile = HostFile(descriptor);
  if (hostFile == -1) return -1;
  const int written = host::Write(hostFile, buffer, bytes);
  if (written == static_cast<int>(bytes)) {
    if (onWrite) onWrite(PathOf(descriptor), {static_cast<const char*>(buffer), bytes});
  } else {
    const int error = written == -1 ? errno : RUNTIME_ENOSPC;
    AddTrouble(PathOf(descriptor), std::strerror(error));
    errno = error;
  }
  return written;
}

int Files::MakeDirectory(const char* path) {
  const std::filesystem::path real = RealPath(path);
  if (real.empty()) return SetErrno(RUNTIME_ENOENT);
  return real == DeniedPath() ? SetErrno(RUNTIME_EACCES) : host::MakeDirectory(real);
}

}  // namespace simulation

namespace platform {

using simulation::Operation;

namespace {

// Enters an operation of a descriptor. False, with errno set, when it must fail.
bool EnterDescriptor(Operation operation, int descriptor, simulation::Arguments arguments = {}) {
  arguments.number = descriptor;
  if (const auto code = simulation::Current().Enter(operation, arguments)) {
    errno = *code;
    return false;
  }
  return true;
}

// The same, with the host's file as the result: -1, with errno set, when the descriptor is not open either.
int EnterFile(Operation operation, int descriptor, const simulation::Arguments& arguments = {}) {
  return EnterDescriptor(operation, descriptor, arguments) ? simulation::Current().files.HostFile(descriptor) : -1;
}

bool EnterPath(Operation operation, const char* path, int flags = 0) {
  if (const auto code = simulation::Current().Enter(operation, {.path = path, .flags = flags})) {
    errno = *code;
    return false;
  }
  return true;
}

}  // namespace

int _open(const char* path, int flags, int) {
  return EnterPath(Operation::_open, path, flags)
             ? simulation::Current().files.Open(path, (flags & _O_CREAT) != 0, false)
             : -1;
}

int _creat(const char* path, int mode) {
  return EnterPath(Operation::_creat, path, mode) ? simulation::Current().files.Open(path, true, true) : -1;
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
  const int file = EnterFile(Operation::_lseek, descriptor, {.number2 = offset, .flags = origin});
  return file == -1 ? -1 : simulation::host::Seek(file, offset, origin);
}

int _read(int descriptor, void* buffer, UINT bytes) {
  const int file = EnterFile(Operation::_read, descriptor, {.number2 = bytes});
  return file == -1 ? -1 : simulation::host::Read(file, buffer, bytes);
}

int _write(int descriptor, const void* buffer, UINT bytes) {
  return EnterDescriptor(Operation::_write, descriptor, {.number2 = bytes, .data = buffer, .dataBytes = bytes})
             ? simulation::Current().files.Write(descriptor, buffer, bytes)
             : -1;
}

int _locking(int descriptor, int mode, LONG bytes) {
  return EnterDescriptor(Operation::_locking, descriptor, {.number2 = bytes, .flags = mode})
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
  if (from == simulation::DeniedPath() || to == simulation::DeniedPath()) return fail(ERROR_ACCESS_DENIED);
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
