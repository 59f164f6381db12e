#include <benchmark/benchmark.h>

#include <cstdio>

#include "bench/machines.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  std::puts("");
  ztl_bench::PrintOrderPassSummary();
  ztl_bench::PrintLogLineSummary();
}
