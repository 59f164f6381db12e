// Several processes on one log file: what a host with fork can show.
#include <sys/wait.h>
#include <unistd.h>

#include "module/log/log_facility.h"
#include "module/notify/module_log.h"
#include "tests/support/machine_test.h"

namespace {

using namespace ztl_test;

using LogProcessesTest = MachineTest;

TEST_F(LogProcessesTest, EightProcessesLoseNoLineAndMixNone) {
  constexpr int kProcesses = 8;
  constexpr int kLines = 5000;
  for (int process = 0; process < kProcesses; ++process) {
    if (::fork() != 0) continue;
    machine_.files.lockRetryMilliseconds = 100;  // a holder may lose its processor for longer than ten milliseconds
    ztl::OpenModuleLog();
    ztl::g_ModuleLog.sizeLimit = 0xFFFFFFFF;
    const std::string filler(static_cast<std::size_t>(process * 30), static_cast<char>('a' + process));
    for (int line = 0; line < kLines; ++line) {
      ztl::LogMessage(ztl::g_ModuleLog, ztl::SEV_INFO, "%d:%d:%s", process, line, filler.c_str());
      machine_.debugOutput.clear();
    }
    ::_exit(0);
  }
  for (int status = -1; ::wait(&status) > 0;) EXPECT_EQ(status, 0);
  std::vector<int> next(kProcesses, 0);
  for (const std::string& message : LogMessages()) {
    const int process = message.empty() ? -1 : message[0] - '0';
    ASSERT_TRUE(process >= 0 && process < kProcesses) << message;
    const std::string filler(static_cast<std::size_t>(process * 30), static_cast<char>('a' + process));
    ASSERT_EQ(message,
              std::to_string(process) + ":" + std::to_string(next[static_cast<std::size_t>(process)]++) + ":" + filler);
  }
  EXPECT_EQ(next, std::vector<int>(kProcesses, kLines));
}

}  // namespace
