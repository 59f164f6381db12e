// A look at a machine with the module's own functions.
#pragma once

#include <cassert>
#include <cstddef>

#include "module/log/log_facility.h"
#include "simulation/machine.h"

namespace ztlsim {

// Makes the machine current until it is destroyed, and drops what the module writes to the debugger meanwhile. The
// module's log must not be open: messages would go there.
class Inspection {
 public:
  explicit Inspection(simulation::Machine& machine)
      : machine_(machine), current_(machine), kept_(machine.debugOutput.size()) {
    assert(ztl::g_ModuleLog.available == 0);
  }
  ~Inspection() { DropDebugOutput(); }
  Inspection(const Inspection&) = delete;
  Inspection& operator=(const Inspection&) = delete;

  void DropDebugOutput() { machine_.debugOutput.resize(kept_); }

 private:
  simulation::Machine& machine_;
  simulation::CurrentMachine current_;
  std::size_t kept_;
};

}  // namespace ztlsim
