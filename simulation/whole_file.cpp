#include "simulation/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <system_error>
#include <utility>

#include "simulation/host_files.h"
#include "simulation/upper_case.h"

namespace simulation {

namespace fs = std::filesystem;

namespace {

constexpr int kMaxLinks = 40;  // from one name to the file
constexpr int kMaxTries = 100;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File OpenForWriting(const fs::path& path) {
#ifdef _WIN32
  return File(::_wfopen(path.c_str(), L"wb"));
#else
  return File(std::fopen(path.c_str(), "wb"));
#endif
}

// False, with errno set, when not everything was written.
bool WriteAndClose(File file, const std::function<void(const Sink&)>& produce) {
  if (!file) return false;
  int error = 0;
  produce([&](std::string_view bytes) {
    if (error == 0 && std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) error = errno;
  });
  if (std::fclose(file.release()) != 0 && error == 0) error = errno;
  errno = error;
  return error == 0;
}

// Where what is written to `path` goes: links are followed, also to where nothing is yet. The links of the system that
// stand for a process's open files are not: the file is to stay the one that is open.
fs::path Target(fs::path path) {
  std::error_code error;
  for (int links = 0; links < kMaxLinks; ++links) {
    const fs::path directory = fs::weakly_canonical(fs::absolute(path, error).parent_path(), error);
    path = directory / path.filename();
    if (directory.native().starts_with(fs::path("/proc/").native()) || !fs::is_symlink(path, error)) break;
    path = directory / fs::read_symlink(path, error);
  }
  return path;
}

// Of all objects. They are never destroyed: another thread may still be using them when the program ends.
struct Temporaries {
  std::mutex mutex;
  std::set<fs::path> paths;
};
Temporaries& AllTemporaries() {
  static auto* const all = new Temporaries;
  return *all;
}

}  // namespace

const fs::path& DeniedPath() {
#ifdef _WIN32
  static const fs::path path = L"\\\\?\\ztl-nowhere\\denied";
#else
  static const fs::path path = "/dev/null/denied";
#endif
  return path;
}

std::optional<std::string> ReadFile(const std::filesystem::path& path, LSTATUS& error) {
  std::error_code ignored;
  error = std::filesystem::exists(path, ignored) || path == DeniedPath() ? ERROR_ACCESS_DENIED
          : std::filesystem::exists(path.parent_path(), ignored)         ? ERROR_FILE_NOT_FOUND
                                                                         : ERROR_PATH_NOT_FOUND;
  if (!std::filesystem::is_regular_file(path, ignored) || !host::LinkTarget(path).empty()) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  const std::uintmax_t size = std::filesystem::file_size(path, ignored);
  if (!file || ignored) return std::nullopt;
  std::string bytes(static_cast<std::size_t>(size), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (file.bad()) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  error = ERROR_SUCCESS;
  return bytes;
}

std::optional<std::string> WriteFileWhole(const fs::path& path, const std::function<void(const Sink&)>& produce) {
  const auto failed = [&](const std::string& why) { return path.string() + ": " + why; };
  std::error_code error;
  const fs::path target = Target(path);
  const fs::file_status earlier = fs::symlink_status(target, error);
  // A device, a pipe or an open file of a process is written to where it is.
  if (fs::exists(earlier) && !fs::is_regular_file(earlier)) {
    if (WriteAndClose(OpenForWriting(path), produce)) return std::nullopt;
    return failed(std::strerror(errno));
  }

  File file;
  const Temporary temporary(fs::path(target).replace_filename("ztl-" + std::to_string(std::random_device()()) + ".tmp"),
                            [&](const fs::path& made) { file = OpenForWriting(made); });
  if (!file) return failed(std::strerror(errno));
  if (!WriteAndClose(std::move(file), produce)) return failed(std::strerror(errno));
  if (fs::exists(earlier)) fs::permissions(temporary.Path(), earlier.permissions(), error);
  fs::rename(temporary.Path(), target, error);
  if (error) return failed(error.message());
  return std::nullopt;
}

std::optional<std::string> WriteFileWhole(const fs::path& path, std::string_view bytes) {
  return WriteFileWhole(path, [bytes](const Sink& sink) { sink(bytes); });
}

bool IsSamePlace(const fs::path& a, const fs::path& b) {
  std::error_code error;
#ifdef _WIN32
  const bool isSameName = UpperCase(Target(a).u16string()) == UpperCase(Target(b).u16string());
#else
  const bool isSameName = Target(a) == Target(b);
#endif
  return isSameName || fs::equivalent(a, b, error);
}

Temporary::Temporary(fs::path path, const std::function<void(const fs::path&)>& make) : path_(std::move(path)) {
  Temporaries& all = AllTemporaries();
  const std::lock_guard lock(all.mutex);
  all.paths.insert(path_);
  make(path_);
}

Temporary::~Temporary() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  Temporaries& all = AllTemporaries();
  const std::lock_guard lock(all.mutex);
  all.paths.erase(path_);
}

void RemoveTemporaries() {
  Temporaries& all = AllTemporaries();
  all.mutex.lock();
  std::error_code error;
  for (const fs::path& path : all.paths)
    for (int tries = 0; tries < kMaxTries && fs::exists(fs::symlink_status(path, error)); ++tries)
      fs::remove_all(path, error);  // somebody may put files into a directory meanwhile
}

}  // namespace simulation
