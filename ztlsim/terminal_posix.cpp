#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "simulation/whole_file.h"
#include "ztlsim/terminal.h"

namespace ztlsim {
namespace {

bool g_closedPipeEnds = false;

bool IsIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

[[noreturn]] void EndBy(int signal) {
  ::signal(signal, SIG_DFL);
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  ::raise(signal);
  std::_Exit(128 + signal);
}

}  // namespace

bool OutputIsTerminal() {
  const char* const terminal = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0 &&
         std::getenv("NO_COLOR") == nullptr;
}

bool ErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

void WriteOutputAsUtf8() {}

// A thread of its own takes the signals, for a handler may not remove files.
void CleanUpWhenStopped() {
  g_closedPipeEnds = !IsIgnored(SIGPIPE);
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
  sigset_t stops;
  ::sigemptyset(&stops);
  for (const int signal : {SIGTERM, SIGHUP, SIGINT})
    if (!IsIgnored(signal)) ::sigaddset(&stops, signal);
  ::pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  std::thread([stops] {
    int signal = 0;
    if (::sigwait(&stops, &signal) != 0) return;
    simulation::RemoveTemporaries();
    EndBy(signal);
  }).detach();
}

void EndOnClosedPipe() {
  if (errno == EPIPE && g_closedPipeEnds) EndBy(SIGPIPE);
}

}  // namespace ztlsim
