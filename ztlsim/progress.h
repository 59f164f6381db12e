// What a long command is at, on a terminal.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "simulation/machine.h"

namespace ztlsim {

// For as long as the object lives, a line on standard error says each second what is being done, for how long, and how
// many platform calls the machine has had so far, if any. It comes after two seconds, on a terminal alone, and is gone
// at the end.
class Progress {
 public:
  Progress(std::string what, const simulation::Machine& machine);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void Show();

  const std::string what_;
  const simulation::Machine& machine_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool ended_ = false;
  std::thread thread_;  // none without a terminal
};

}  // namespace ztlsim
