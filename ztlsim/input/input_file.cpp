#include "ztlsim/input/input_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace ztlsim {

namespace fs = std::filesystem;

std::optional<std::string> ReadInputFile(const fs::path& path, const std::string& expected, std::string& bytes) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return "expected " + expected + ", found a directory";
  if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_fifo(status))
    return "expected " + expected + ", found a device or a socket";
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::string("cannot be opened: ") + std::strerror(errno);
  const std::uintmax_t size = fs::file_size(path, error);
  if (!error) bytes.reserve(static_cast<std::size_t>(size));
  char block[65536];
  errno = 0;
  while (file.read(block, sizeof block), file.gcount() > 0)
    bytes.append(block, static_cast<std::size_t>(file.gcount()));
  if (file.bad()) return std::string("cannot be read: ") + std::strerror(errno);
  return std::nullopt;
}

std::error_code MakeDirectories(const fs::path& root, const fs::path& real) {
  std::error_code error;
  fs::path at = root;
  for (const fs::path& name : real.lexically_relative(root)) {
    at /= name;
    fs::create_directory(at, error);
    if (error) break;
  }
  return error;
}

}  // namespace ztlsim
