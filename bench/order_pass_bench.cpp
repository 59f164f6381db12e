// A whole binding-order pass: how its time per platform call grows with the machine, and how it compares to the same
// platform calls without the module's code.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/comparison.h"
#include "bench/machines.h"
#include "bench/recording.h"
#include "module/notify/module_log.h"
#include "module/order/order_im.h"

namespace ztl_bench {
namespace {

using simulation::Arguments;
using simulation::CurrentMachine;
using simulation::Machine;
using simulation::Operation;

constexpr double kMostGrowth = 1.3;
constexpr double kMostPassToReplay = 1.1;
constexpr unsigned kFewAdapters = 10;  // what the growth starts from
constexpr int kFewRuns = 300;          // of it before and after each run of a larger machine

// The passes and replays on machines of one size. Each runs on a machine of its own, and must end as all others do.
class Subject {
 public:
  // With the module log open on an empty file, or not at all. What is measured is the average of `runs` runs.
  Subject(unsigned adapters, bool logOpen, int runs)
      : adapters_(adapters), logOpen_(logOpen), runs_(runs), reference_(MakeMachine(adapters, drive_)) {
    calls_ = Run(*reference_, Pass).calls;
    log_ = drive_.LogBytes();
    const auto recorded = MakeMachine(adapters, drive_);
    recording_.Reserve(calls_);
    Run(*recorded, [&] {
      recorded->observer = [&](Operation operation, const Arguments& arguments) {
        recording_.Add(operation, arguments);
      };
      const bool changed = Pass();
      recorded->observer = nullptr;
      return changed;
    });
    Check(*recorded);
  }

  // Seconds of one pass or replay.
  double PassSeconds() { return Measure(Pass); }
  double ReplaySeconds() {
    return Measure([&] { return recording_.Replay(); });
  }

  std::uint64_t Calls() const { return calls_; }    // of a pass
  const char* Problem() const { return problem_; }  // null, or what makes every figure worthless

 private:
  struct Timed {
    double seconds;
    std::uint64_t calls;
  };

  static bool Pass() {
    std::uint8_t changed;
    return ztl::OrderIM(&changed) == 0 && changed == 1;
  }

  template <class Work>
  Timed Run(Machine& machine, Work work) {
    const CurrentMachine current(machine);
    drive_.Clear();
    if (logOpen_) ztl::OpenModuleLog();
    const std::uint64_t callsBefore = machine.Calls();
    const double begin = ThreadSeconds();
    const bool done = work();
    const double seconds = ThreadSeconds() - begin;
    ztl::CloseModuleLog();
    if (!done) problem_ = "a pass has changed nothing, or a replay has met other handles";
    return {seconds, machine.Calls() - callsBefore};
  }

  void Check(const Machine& machine) {
    if (!Same(machine, *reference_) || drive_.LogBytes() != log_) problem_ = "a run has not ended as the first one has";
  }

  template <class Work>
  double Measure(Work work) {
    double seconds = 0;
    for (int i = 0; i < runs_; ++i) {
      const auto machine = MakeMachine(adapters_, drive_);
      seconds += Run(*machine, work).seconds;
      Check(*machine);
    }
    return seconds / runs_;
  }

  Drive drive_;
  unsigned adapters_;
  bool logOpen_;
  int runs_;
  const char* problem_ = nullptr;
  std::unique_ptr<Machine> reference_;
  std::uint64_t calls_;
  std::string log_;
  Recording recording_;
};

struct Result {
  double passNanoseconds;  // per platform call
  double replayNanoseconds;
  double passToReplay;
  double growth;  // of the time per call, from a machine with few adapters to this one
};
std::map<std::pair<bool, unsigned>, Result> g_results;  // by whether the log is open, and adapters

void OrderPass(benchmark::State& state) {
  const auto adapters = static_cast<unsigned>(state.range(0));
  const bool logOpen = state.range(1) != 0;
  Subject subject(adapters, logOpen, static_cast<int>(state.range(2)));
  Subject few(kFewAdapters, logOpen, adapters == kFewAdapters ? 1 : kFewRuns);
  const auto calls = static_cast<double>(subject.Calls());

  Comparison passToReplay;
  std::vector<double> growth;
  const auto timeFew = [&] { return few.PassSeconds() / static_cast<double>(few.Calls()); };
  const auto timePass = [&] {
    const double before = timeFew();
    const double seconds = subject.PassSeconds();
    growth.push_back(seconds / calls / ((before + timeFew()) / 2));
    return seconds;
  };
  for (auto _ : state) {
    passToReplay.RunPair(timePass, [&] { return subject.ReplaySeconds(); });
    state.SetIterationTime(passToReplay.LastFirstSeconds());
  }
  for (const char* const problem : {subject.Problem(), few.Problem()})
    if (problem != nullptr) return state.SkipWithError(problem);

  const Result result{passToReplay.FirstSeconds() / calls * 1e9, passToReplay.SecondSeconds() / calls * 1e9,
                      passToReplay.Ratio(), Median(growth)};
  state.counters["calls"] = calls;
  state.counters["pass_ns_per_call"] = result.passNanoseconds;
  state.counters["replay_ns_per_call"] = result.replayNanoseconds;
  state.counters["pass_to_replay"] = result.passToReplay;
  state.counters["growth"] = result.growth;
  g_results[{logOpen, adapters}] = result;
}

// Adapters, runs that are averaged, and iterations.
void Sizes(benchmark::internal::Benchmark* benchmark, int adapters, int runs, int iterations) {
  benchmark->ArgNames({"adapters", "log", "runs"})
      ->Args({adapters, 0, runs})
      ->Args({adapters, 1, runs})
      ->Iterations(iterations)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}
BENCHMARK(OrderPass)->Apply([](auto* benchmark) { Sizes(benchmark, kFewAdapters, 10, 301); });
BENCHMARK(OrderPass)->Apply([](auto* benchmark) { Sizes(benchmark, 100, 1, 21); });
BENCHMARK(OrderPass)->Apply([](auto* benchmark) { Sizes(benchmark, 1000, 1, 7); });

}  // namespace

void PrintOrderPassSummary() {
  for (const auto& [machine, result] : g_results) {
    const char* const log = machine.first ? "open" : "not open";
    std::printf(
        "%4u adapters, log %s: a pass takes %.1f ns a platform call, the same calls alone %.1f ns: %.2f times (at most "
        "%.2f).\n",
        machine.second, log, result.passNanoseconds, result.replayNanoseconds, result.passToReplay, kMostPassToReplay);
    if (machine.second != kFewAdapters)
      std::printf(
          "%4u adapters, log %s: a platform call of a pass takes %.2f times what it takes with %u (at most %.2f).\n",
          machine.second, log, result.growth, kFewAdapters, kMostGrowth);
  }
}

}  // namespace ztl_bench
