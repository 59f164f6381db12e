// One scenario on one machine, run as often as there are failures to try.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulation/machine.h"
#include "ztlsim/scenario/host_process.h"

namespace ztl_test {

using simulation::Operation;

struct SweptRun {
  std::string name, scenario;
  std::shared_ptr<simulation::Registry> registry;  // which stays as it is
  platform::DWORD windows = 10;
  bool driver = false, package = false;
  std::function<void(simulation::Machine&, ztlsim::CallOptions&)> arrange = nullptr;  // what else is special about it
};

struct Outcome {
  std::vector<std::string> log;  // with severities, without times
  ztlsim::CallResults results;
  std::unique_ptr<simulation::Registry> registry;
  std::uint64_t calls = 0;
  std::vector<std::string> left;  // what was opened, made or allocated, and not released
};

// The severity and the text of a line of the log.
std::string MessageOf(const std::string& line);

// Runs it on a machine and a drive `root` of its own; `see` sees every call. The process ends with kHangs when it makes
// more than `most` calls.
constexpr int kHangs = 9;
using Observer = std::function<void(const simulation::Machine&, Operation, const simulation::Arguments&)>;
Outcome Execute(const SweptRun& run, const std::filesystem::path& root, std::vector<simulation::Fault> faults,
                std::uint64_t most = UINT64_MAX, const Observer& see = nullptr);

// The codes that an operation of this kind can fail with: `ordinary` ones differ in nothing but their number, `special`
// ones mean something to some caller.
struct Codes {
  std::vector<std::int32_t> ordinary, special;
  std::int32_t transcript;  // the one that transcripts show
};
const Codes& CodesOf(Operation operation);

// Whether it serves the log alone.
bool IsOfLog(Operation operation);

}  // namespace ztl_test
