#include "ztlsim/scenario/log_observer.h"

#include <algorithm>
#include <string_view>

#include "module/log/log_facility.h"

namespace ztlsim {
namespace {

// A line's head: the simulated machine's time stamp, the tag and the severity.
constexpr std::size_t kHeadBytes =
    std::string_view("01/31/26 12:00:00: ").size() + std::string_view("     Tag:severity: ").size();

// The log writes a trouble of its own to the debugger as two texts: this one and the trouble.
constexpr std::string_view kTroublePrefix = "ERROR: ";

}  // namespace

LogObserver::LogObserver(simulation::Machine& machine, std::vector<std::string>& messages) : machine_(machine) {
  machine_.files.onWrite = [&messages](const std::string& path, std::string_view line) {
    if (path != ztl::g_ModuleLog.path) return;
    line.remove_prefix(std::min(kHeadBytes, line.size()));
    if (line.ends_with('\n')) line.remove_suffix(1);
    messages.emplace_back(line);
  };
}

std::vector<std::string> ReadLogTroubles(const std::vector<std::string>& debugOutput) {
  std::vector<std::string> troubles;
  for (std::size_t i = 0; i + 1 < debugOutput.size(); ++i)
    if (debugOutput[i] == kTroublePrefix)
      troubles.push_back(debugOutput[i + 1].substr(0, debugOutput[i + 1].find('\n')));
  return troubles;
}

}  // namespace ztlsim
