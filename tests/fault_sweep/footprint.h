// What the module asks of the operating system, from the calls of swept runs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulation/machine.h"

namespace ztl_test {

class Footprint {
 public:
  // Sees a call before it happens, in a run of the scenario.
  void See(const simulation::Machine& machine, const std::string& scenario, simulation::Operation operation,
           const simulation::Arguments& arguments);

  // A table in Markdown: the calls in the order in which they were first made, and the scenarios of each.
  std::string Table() const;

 private:
  std::vector<std::string> rows_;
  std::map<std::string, std::string> scenarios_;  // by row
};

}  // namespace ztl_test
