// What the benchmarks run on: simulated machines of any number of adapters, and a drive for their files.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "simulation/machine.h"

namespace ztl_bench {

// A temporary directory that stands for drive C:.
class Drive {
 public:
  Drive();
  ~Drive();
  Drive(const Drive&) = delete;
  Drive& operator=(const Drive&) = delete;

  const std::filesystem::path& Root() const { return root_; }
  std::filesystem::path LogPath() const { return root_ / "Windows" / "temp" / "ztlinst.log"; }
  void Clear() const;            // removes the module log and its backup
  std::string LogBytes() const;  // the backup's, then the log's

 private:
  std::filesystem::path root_;
};

std::string ReadFile(const std::filesystem::path& path);

// A machine with `adapters` physical adapters, at most 3,333. Two intermediate drivers have a virtual adapter each
// above every one of them, so there are three instances an adapter; every second stack is in the wrong order. Machines
// made with the same arguments are the same in everything, handle values included.
std::unique_ptr<simulation::Machine> MakeMachine(unsigned adapters, const Drive& drive);

// Whether both machines were called alike and are now alike: calls by operation, registry, debugger output; and neither
// has an open handle.
bool Same(const simulation::Machine& a, const simulation::Machine& b);

// Each prints what its benchmark has found, in plain words; nothing when that did not run.
void PrintOrderPassSummary();
void PrintLogLineSummary();

}  // namespace ztl_bench
