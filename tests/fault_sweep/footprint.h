// What the module asks of the operating system, from the calls of swept runs.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "simulation/machine.h"

namespace ztl_test {

// A call that changes the machine, or the session that it belongs to, in words; empty for any other.
std::string ChangeText(const simulation::Machine& machine, simulation::Operation operation,
                       const simulation::Arguments& arguments);

class Footprint {
 public:
  // Sees a call before it happens, in a run of the scenario.
  void See(const simulation::Machine& machine, const std::string& scenario, simulation::Operation operation,
           const simulation::Arguments& arguments);

  // A table in Markdown: the calls in the order in which they were first made, and how often each scenario makes them.
  std::string Table() const;

 private:
  std::vector<std::string> rows_;
  std::map<std::string, std::vector<std::pair<std::string, int>>> counts_;  // of each scenario, by row
};

}  // namespace ztl_test
