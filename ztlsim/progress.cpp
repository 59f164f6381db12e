#include "ztlsim/progress.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "ztlsim/terminal.h"

namespace ztlsim {

Progress::Progress(std::string what, const simulation::Machine& machine) : what_(std::move(what)), machine_(machine) {
  if (ErrorIsTerminal()) thread_ = std::thread([this] { Show(); });
}

Progress::~Progress() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Progress::Show() {
  constexpr int kFirstSecond = 2;
  std::unique_lock lock(mutex_);
  int width = 0;
  for (int seconds = 1; !changed_.wait_for(lock, std::chrono::seconds(1), [this] { return ended_; }); ++seconds) {
    if (seconds < kFirstSecond) continue;
    width = std::fprintf(stderr, "\r%s: %d s", what_.c_str(), seconds);
    if (const std::uint64_t calls = machine_.Calls(); calls != 0)
      width += std::fprintf(stderr, ", %.1f million calls", static_cast<double>(calls) / 1e6);
  }
  if (width > 0) std::fprintf(stderr, "\r%*s\r", width, "");
}

}  // namespace ztlsim
