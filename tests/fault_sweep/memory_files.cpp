// The host's files in memory, linked in place of the real ones: a swept run writes thousands of log lines.
#include "tests/fault_sweep/memory_files.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "platform/files.h"
#include "simulation/host_files.h"

namespace simulation::host {

using namespace platform;

namespace {

struct OpenFile {
  std::string* bytes = nullptr;  // null: the descriptor is free
  std::size_t position = 0;
};

std::map<std::string, std::string> g_files;  // by path
std::vector<OpenFile> g_open;

OpenFile& At(int file) { return g_open[static_cast<std::size_t>(file)]; }

}  // namespace

std::string& MemoryFile(const std::string& path) { return g_files[path]; }

void ClearMemoryFiles() {
  g_files.clear();
  g_open.clear();
}

std::filesystem::path LinkTarget(const std::filesystem::path&) { return {}; }

int Open(const std::filesystem::path& path, bool create, bool truncate) {
  auto found = g_files.find(path.native());
  if (found == g_files.end()) {
    if (!create) {
      errno = RUNTIME_ENOENT;
      return -1;
    }
    found = g_files.try_emplace(path.native()).first;
  }
  if (truncate) found->second.clear();
  auto slot = std::find_if(g_open.begin(), g_open.end(), [](const OpenFile& open) { return open.bytes == nullptr; });
  if (slot == g_open.end()) slot = g_open.emplace(slot);
  *slot = {&found->second};
  return static_cast<int>(slot - g_open.begin());
}

int Close(int file) {
  At(file) = {};
  return 0;
}

LONG Length(int file) { return static_cast<LONG>(At(file).bytes->size()); }

LONG Seek(int file, LONG offset, int origin) {
  OpenFile& open = At(file);
  const std::size_t from = origin == 0 ? 0 : origin == 1 ? open.position : open.bytes->size();
  open.position = from + static_cast<std::size_t>(offset);
  return static_cast<LONG>(open.position);
}

int Read(int file, void* buffer, UINT bytes) {
  OpenFile& open = At(file);
  const std::size_t count =
      std::min<std::size_t>(bytes, open.bytes->size() - std::min(open.position, open.bytes->size()));
  open.bytes->copy(static_cast<char*>(buffer), count, open.position);
  open.position += count;
  return static_cast<int>(count);
}

// A line feed stays alone: nobody looks at the bytes of a line's end here.
int Write(int file, const void* buffer, UINT bytes) {
  OpenFile& open = At(file);
  open.bytes->resize(std::max(open.bytes->size(), open.position + bytes));
  open.bytes->replace(open.position, bytes, static_cast<const char*>(buffer), bytes);
  open.position += bytes;
  return static_cast<int>(bytes);
}

bool TryLock(int, LONG) { return true; }

int Unlock(int, LONG) { return 0; }

int MakeDirectory(const std::filesystem::path&) { return 0; }

void DropMemory(const char*, std::size_t) {}

}  // namespace simulation::host
