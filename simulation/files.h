// The simulated machine's files: real files below a directory that serves as drive C:.
#pragma once

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "simulation/whole_file.h"

namespace simulation {

using namespace platform;

std::u16string FileName(const std::filesystem::path& path);  // its last part

class Files {
 public:
  Files() = default;
  ~Files();  // closes what is still open
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  std::filesystem::path root;                    // serves as C:; while it is empty, no path exists
  std::string windowsDirectory = "C:\\Windows";  // what GetWindowsDirectoryA stores; empty: the call fails
  // Real time between two tries of _locking, for what holds the lock may be another process.
  unsigned lockRetryMilliseconds = 1000;

  // Sees what was written, by the file's path as it was opened.
  std::function<void(const std::string& path, std::string_view bytes)> onWrite;

  // The real path of a path of the machine: C:\... or \...; names that exist are found in any letter case, and links
  // are followed. Empty for a path of another form; DeniedPath() where a link leads out of the root or to an absolute
  // path.
  std::filesystem::path RealPath(const char* path) const;
  std::filesystem::path RealPath(const char16_t* path) const;
  // The same for a path below the root with the host's own names.
  std::filesystem::path Locate(const std::filesystem::path& relative) const;

  // What the real drive refused, a text in English for each file and reason; the machine's code may have passed over
  // it.
  std::vector<std::string> Troubles() const;

  int OpenDescriptors() const;               // opened and not closed
  std::string PathOf(int descriptor) const;  // as it was opened; empty when it is not open

  // What the boundary's operations do once they have entered; the same contracts.
  int Open(const char* path, bool create, bool truncate);
  int Close(int descriptor);
  int Lock(int descriptor, int mode, LONG bytes);
  int MakeDirectory(const char* path);
  int Write(int descriptor, const void* buffer, UINT bytes);
  int HostFile(int descriptor) const;  // -1, with errno set, when it is not open

 private:
  void AddTrouble(const std::string& file, const std::string& why) const;

  static constexpr std::size_t kMaxDescriptors = 2048;

  // By descriptor, from the first on: the host's file plus one, 0 when it is not open; read without the mutex.
  std::array<std::atomic<int>, kMaxDescriptors> hostFiles_{};

  mutable std::mutex troublesMutex_;
  mutable std::vector<std::string> troubles_;

  mutable std::mutex mutex_;  // guards the rest
  std::vector<std::string> paths_;
  // The path that was opened last, and its real one.
  std::string lastPath_;
  std::filesystem::path::string_type lastRoot_;
  std::filesystem::path lastReal_;
};

}  // namespace simulation
