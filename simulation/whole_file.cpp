#include "simulation/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <system_error>
#include <utility>

namespace simulation {

namespace fs = std::filesystem;

namespace {

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

bool WriteAndClose(File file, std::string_view bytes) {
  if (!file) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  const int error = errno;
  const bool closed = std::fclose(file.release()) == 0;
  if (!written) errno = error;
  return written && closed;
}

}  // namespace

std::optional<std::string> ReadFile(const std::filesystem::path& path, LSTATUS& error) {
  std::error_code ignored;
  error = std::filesystem::exists(path, ignored)                 ? ERROR_ACCESS_DENIED
          : std::filesystem::exists(path.parent_path(), ignored) ? ERROR_FILE_NOT_FOUND
                                                                 : ERROR_PATH_NOT_FOUND;
  if (!std::filesystem::is_regular_file(path, ignored)) return std::nullopt;
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

std::optional<std::string> WriteFileWhole(const fs::path& path, std::string_view bytes) {
  const auto failed = [&](const std::string& why) { return path.string() + ": " + why; };
  std::error_code error;
  const fs::file_status earlier = fs::symlink_status(path, error);
  // A device, a pipe or a link is written to where it is. (/dev/stdout is a link, and must stay one.)
  if (fs::exists(earlier) && !fs::is_regular_file(earlier)) {
    if (WriteAndClose(OpenForWriting(path), bytes)) return std::nullopt;
    return failed(std::strerror(errno));
  }

  const fs::path temporary = fs::path(path).replace_filename("ztl-" + std::to_string(std::random_device()()) + ".tmp");
  File file = OpenForWriting(temporary);
  if (!file) return failed(std::strerror(errno));
  std::string trouble;
  if (!WriteAndClose(std::move(file), bytes)) {
    trouble = std::strerror(errno);
  } else {
    if (fs::exists(earlier)) fs::permissions(temporary, earlier.permissions(), error);
    fs::rename(temporary, path, error);
    if (!error) return std::nullopt;
    trouble = error.message();
  }
  fs::remove(temporary, error);
  return failed(trouble);
}

}  // namespace simulation
