// The module's log as the simulated machine sees it. Only this file's functions know the form of a line.
#pragma once

#include <string>
#include <vector>

#include "simulation/machine.h"

namespace ztlsim {

// Collects the message of every line written to the module's log until it is destroyed, without the line's head.
class LogObserver {
 public:
  LogObserver(simulation::Machine& machine, std::vector<std::string>& messages);
  ~LogObserver() { machine_.files.onWrite = nullptr; }
  LogObserver(const LogObserver&) = delete;
  LogObserver& operator=(const LogObserver&) = delete;

 private:
  simulation::Machine& machine_;
};

// What kept lines from the log, each without its line feed.
std::vector<std::string> ReadLogTroubles(const std::vector<std::string>& debugOutput);

}  // namespace ztlsim
