// A fuzz target without libFuzzer: runs the files that are given, or the target's seeds and some thousand changes of
// them, the same on every run. What ends it is left in the current directory as TARGET.finding.
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>

#include "fuzz/fuzz.h"

namespace {

constexpr int kRuns = 10000;
constexpr std::chrono::milliseconds kTime(250);

std::string g_file;
const std::string* g_input = nullptr;

void Keep(int signal) {
  std::signal(signal, SIG_DFL);
  std::ofstream(g_file, std::ios::binary) << *g_input;
  std::cerr << "The input is in " << g_file << '\n';
  std::raise(signal);
}

void Run(const std::string& input) {
  g_input = &input;
  const auto copy = std::make_unique<std::uint8_t[]>(input.size());
  std::memcpy(copy.get(), input.data(), input.size());
  LLVMFuzzerTestOneInput(copy.get(), input.size());
}

void Change(std::string& input, const std::string& other, std::mt19937& random) {
  const auto below = [&random](std::size_t end) { return static_cast<std::size_t>(random() % (end + 1)); };
  const std::size_t at = below(input.size()), length = below(std::min<std::size_t>(input.size() - at, 16));
  switch (below(3)) {
    case 0:
      input.erase(at, length);
      break;
    case 1:
      input.insert(at, 1, static_cast<char>(random()));
      break;
    case 2:
      if (at < input.size()) input[at] = static_cast<char>(random());
      break;
    default:
      input.replace(at, length, other, below(other.size()), below(16));
  }
}

}  // namespace

int main(int argc, char** argv) {
  g_file = std::string(argv[0]).substr(std::string(argv[0]).rfind('/') + 1) + ".finding";
  for (const int signal : {SIGABRT, SIGSEGV, SIGFPE, SIGILL}) std::signal(signal, Keep);
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    Run({std::istreambuf_iterator<char>(file), {}});
  }
  if (argc > 1) return 0;
  const std::vector<std::string> seeds = ztl_fuzz::Seeds();
  for (const std::string& seed : seeds) Run(seed);
  std::mt19937 random(1);
  const auto start = std::chrono::steady_clock::now();
  int runs = 0;
  for (; runs < kRuns && std::chrono::steady_clock::now() - start < kTime; ++runs) {
    std::string input = seeds[random() % seeds.size()];
    for (auto changes = random() % 6 + 1; changes > 0; --changes) Change(input, seeds[random() % seeds.size()], random);
    Run(input);
  }
  std::cout << seeds.size() << " seeds and " << runs << " changes of them\n";
  return 0;
}
