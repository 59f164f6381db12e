// One line of the module log, and the bare system calls that it needs.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <optional>
#include <string>

#include "bench/comparison.h"
#include "bench/machines.h"
#include "module/log/log_facility.h"
#include "module/notify/module_log.h"

namespace ztl_bench {
namespace {

using simulation::CurrentMachine;
using simulation::Machine;

constexpr double kMostLineToBare = 1.15;
constexpr int kBatch = 25;  // lines
constexpr std::size_t kStampBytes = 19;
constexpr char kStampFormat[] = "%m/%d/%y %H:%M:%S: ";

struct Result {
  double lineMicroseconds;
  double bareMicroseconds;
  double lineToBare;
};
std::optional<Result> g_result;

void LogLine() {
  ztl::LogMessage(ztl::g_ModuleLog, ztl::SEV_INFO, "  RootDevice %S %S", u"{0F2C97A1-5B0E-4C39-9A70-6D1F2E8B4C55}",
                  u"E1000");
}

void Lock(int file, short type, off_t bytes) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_CUR;
  lock.l_len = bytes;
  ::fcntl(file, F_OFD_SETLK, &lock);
}

// Appends `line` with the time of now in front: the look at the file's size, then the line below a lock on the end.
void BareLine(const char* path, std::string& line) {
  int file = ::open(path, O_RDWR | O_CLOEXEC);
  struct stat status;
  ::fstat(file, &status);
  ::close(file);

  file = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  const off_t end = ::lseek(file, 0, SEEK_END);
  const std::time_t now = std::time(nullptr);
  std::tm local;
  ::localtime_r(&now, &local);
  char stamp[kStampBytes + 1];
  std::strftime(stamp, sizeof(stamp), kStampFormat, &local);
  std::memcpy(line.data(), stamp, kStampBytes);
  const auto bytes = static_cast<off_t>(line.size());
  Lock(file, F_WRLCK, bytes);
  ::lseek(file, 0, SEEK_END);
  if (::write(file, line.data(), line.size()) == -1) std::perror(path);
  ::lseek(file, end, SEEK_SET);
  Lock(file, F_UNLCK, bytes);
  ::close(file);
}

template <class Line>
double BatchSeconds(Line line) {
  const double begin = ThreadSeconds();
  for (int i = 0; i < kBatch; ++i) line();
  return ThreadSeconds() - begin;
}

// The file's lines without their time stamps.
std::string WithoutStamps(const std::filesystem::path& path, std::size_t lineBytes) {
  const std::string text = ReadFile(path);
  std::string rest;
  for (std::size_t at = 0; at + lineBytes <= text.size(); at += lineBytes)
    rest += text.substr(at + kStampBytes, lineBytes - kStampBytes);
  return rest;
}

void LogLineAgainstSystemCalls(benchmark::State& state) {
  const Drive drive;
  Machine machine;
  machine.files.root = drive.Root();
  const CurrentMachine current(machine);
  ztl::OpenModuleLog();
  LogLine();
  std::string line = ReadFile(drive.LogPath());  // what the bare calls write too
  const std::string logPath = drive.LogPath();
  const std::string barePath = drive.LogPath().parent_path() / "bareinst.log";
  std::ofstream(barePath).close();

  const auto measureLine = [&] {
    std::filesystem::resize_file(logPath, 0);
    machine.debugOutput.clear();
    return BatchSeconds(LogLine);
  };
  const auto measureBare = [&] {
    std::filesystem::resize_file(barePath, 0);
    return BatchSeconds([&] { BareLine(barePath.c_str(), line); });
  };
  Comparison comparison;
  for (auto _ : state) {
    comparison.RunPair(measureLine, measureBare);
    state.SetIterationTime(comparison.LastFirstSeconds());
  }
  ztl::CloseModuleLog();
  const std::string written = WithoutStamps(logPath, line.size());
  if (written.size() != kBatch * (line.size() - kStampBytes) || written != WithoutStamps(barePath, line.size()))
    state.SkipWithError("the lines are not the same");

  const Result result{comparison.FirstSeconds() / kBatch * 1e6, comparison.SecondSeconds() / kBatch * 1e6,
                      comparison.Ratio()};
  state.counters["line_us"] = result.lineMicroseconds;
  state.counters["bare_us"] = result.bareMicroseconds;
  state.counters["line_to_bare"] = result.lineToBare;
  if (!state.error_occurred()) g_result = result;
}
BENCHMARK(LogLineAgainstSystemCalls)->Iterations(4001)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

void PrintLogLineSummary() {
  if (!g_result) return;
  std::printf(
      "A log line takes %.2f us, its bare system calls and time stamp %.2f us: %.3f times (target: at most %.2f).\n",
      g_result->lineMicroseconds, g_result->bareMicroseconds, g_result->lineToBare, kMostLineToBare);
}

}  // namespace ztl_bench
