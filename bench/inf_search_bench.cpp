// The search for the filter's INF file among many: how its time grows with the directory and with a file.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "bench/machines.h"
#include "module/install/miniport_inf.h"
#include "platform/com.h"

namespace ztl_bench {
namespace {

namespace fs = std::filesystem;

// Searches a directory of `files` stored INF files, of which the last one holds `bytes` more.
void InfSearch(benchmark::State& state) {
  const Drive drive;
  simulation::Machine machine;
  const simulation::CurrentMachine current(machine);
  machine.files.root = drive.Root();
  fs::create_directories(drive.Root() / "Windows/Inf");
  const auto files = state.range(0), bytes = state.range(1);
  for (std::int64_t i = 0; i < files; ++i) {
    const bool isLast = i + 1 == files;
    std::ofstream file(drive.Root() / ("Windows/Inf/oem" + std::to_string(i) + ".inf"));
    file << "[Version]\nSignature=\"$Windows NT$\"\nDriverVer=10/02/2025,4.17.0.18806\n[Manufacturer]\n%Q%=Models\n"
         << "[Models]\n%D%=Install," << (isLast ? "qro_ztl" : "other") << "\n[Strings]\nQ=\"Quillmark\"\n[More]\n";
    const std::string line = "HKR, Ndi, \"a value\", 0, %Q%, \\\n  more ; and a comment\n";
    for (std::int64_t written = 0; isLast && written < bytes; written += static_cast<std::int64_t>(line.size()))
      file << line;
  }
  for (auto _ : state) {
    char16_t* path = nullptr;
    if (ztl::HrGetProtocolInf(u"C:\\Windows\\Inf\\", &path) != platform::S_OK) state.SkipWithError("no INF was found");
    platform::CoTaskMemFree(path);
  }
}
BENCHMARK(InfSearch)
    ->ArgNames({"files", "bytes"})
    ->ArgsProduct({{20, 200, 2000}, {0}})
    ->Args({1, 10 << 20})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace ztl_bench
