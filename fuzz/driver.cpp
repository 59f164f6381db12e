// Starts a fuzz target from its rows of seeds.txt: libFuzzer with them in its corpus, or where there is none, the files
// that are given, or the seeds and some thousand changes of them, the same on every run. What ends the latter is left
// in the current directory as TARGET.finding.
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>

#include "fuzz/fuzz.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The seeds of the program with this path.
std::vector<std::string> Seeds(const std::filesystem::path& program) {
  std::istringstream rows(ReadFile(ZTL_SOURCE_DIR "/fuzz/seeds.txt"));
  std::vector<std::string> seeds;
  const std::string target = program.stem().string();
  for (std::string row; std::getline(rows, row);) {
    if (row.substr(0, row.find(' ')) + "_fuzz" != target) continue;
    std::string& seed = seeds.emplace_back();
    for (std::size_t at = row.find(' ') + 1; at < row.size(); ++at) {
      const char escape = row[at] == '\\' ? row[++at] : ' ';
      if (escape == 'x') {
        seed += static_cast<char>(std::stoi(row.substr(at + 1, 2), nullptr, 16));
        at += 2;
      } else if (escape == 'F') {
        std::istringstream place(row.substr(at + 2, row.find('}', at) - at - 2));
        std::string file;
        std::size_t first = 0, count = 0;
        place >> file >> first >> count;
        seed += ReadFile(ZTL_SOURCE_DIR "/" + file).substr(first, count);
        at = row.find('}', at);
      } else {
        seed += escape == 'n' ? '\n' : escape == 'r' ? '\r' : escape == '0' ? '\0' : row[at];
      }
    }
    ZTL_HOLDS(!seed.empty());
  }
  ZTL_HOLDS(!seeds.empty());
  return seeds;
}

}  // namespace

#ifdef ZTL_LIBFUZZER

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ztl_fuzz::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}

// The corpus is the first argument that is a directory.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  int number = 0;
  const auto corpus =
      std::find_if(*argv + 1, *argv + *argc, [](const char* path) { return std::filesystem::is_directory(path); });
  if (corpus != *argv + *argc)
    for (const std::string& seed : Seeds(**argv))
      std::ofstream(*corpus + ("/seed-" + std::to_string(++number)), std::ios::binary) << seed;
  return 0;
}

#else

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
  const auto copy = std::make_unique<char[]>(input.size());
  std::memcpy(copy.get(), input.data(), input.size());
  ztl_fuzz::Check({copy.get(), input.size()});
}

void Change(std::string& input, const std::string& other, std::mt19937& random) {
  const auto below = [&random](std::size_t end) { return static_cast<std::size_t>(random() % (end + 1)); };
  const std::size_t at = below(input.size()), length = below(std::min<std::size_t>(input.size() - at, 16));
  const std::size_t kind = below(3);
  if (kind == 0) input.erase(at, length);
  if (kind == 1) input.insert(at, 1, static_cast<char>(random()));
  if (kind == 2 && at < input.size()) input[at] = static_cast<char>(random());
  if (kind == 3) input.replace(at, length, other, below(other.size()), below(16));
}

}  // namespace

int main(int argc, char** argv) {
  g_file = std::filesystem::path(argv[0]).filename().string() + ".finding";
  for (const int signal : {SIGABRT, SIGSEGV, SIGFPE, SIGILL}) std::signal(signal, Keep);
  for (int i = 1; i < argc; ++i) Run(ReadFile(argv[i]));
  if (argc > 1) return 0;
  const std::vector<std::string> seeds = Seeds(argv[0]);
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

#endif
