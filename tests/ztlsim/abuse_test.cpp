// The program on drives, files and pipes that turn against it, and stopped half-way: nothing is lost, nothing is left.
#include "tests/support/machine_fixture.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using ztl_test::ReadFile;

const std::string kLaptop = " --machine " ZTL_SOURCE_DIR "/samples/laptop.reg";
const std::string kPackage = ZTL_SOURCE_DIR "/samples/package-4.17/";

class Abuse : public ztl_test::MachineTest {
 protected:
  // Starts ztlsim in the test's directory, after the shell commands. Its standard output goes into a pipe.
  void Start(const std::string& arguments, const std::string& commands = "", bool isRead = true) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const std::string line = commands + "exec " ZTLSIM_BINARY " " + arguments + " 2>err.txt";
    process_ = ::fork();
    if (process_ == 0) {
      ::dup2(ends[1], STDOUT_FILENO);
      ::close(ends[0]);
      ::close(ends[1]);
      ::_exit(::chdir(root_.c_str()) != 0 || ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr) != 0);
    }
    ::close(ends[1]);
    output_ = ends[0];
    if (!isRead) ::close(output_);
  }
  // How it ended: its exit status, or below zero the signal.
  int End() {
    int status = 0;
    ::waitpid(process_, &status, 0);
    err_ = ReadFile(root_ / "err.txt");
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }
  int Run(const std::string& arguments, const std::string& commands = "") {
    Start(arguments, commands);
    out_.clear();
    char block[4096];
    for (ssize_t count; (count = ::read(output_, block, sizeof block)) > 0;)
      out_.append(block, static_cast<std::size_t>(count));
    ::close(output_);
    return End();
  }
  void Write(const fs::path& file, const std::string& text) {
    fs::create_directories((root_ / file).parent_path());
    std::ofstream(root_ / file, std::ios::binary) << text;
  }

  pid_t process_ = 0;
  int output_ = -1;
  std::string out_;
  std::string err_;
};

TEST_F(Abuse, NothingLeavesTheDrive) {
  const std::string media = "install --media " + kPackage, inf = "install --inf " + kPackage + "ztl2000.inf";
  const struct {
    std::string link, target, arguments;
    int status;
  } cases[] = {
      {"Windows", "../outside", "upgrade", 2},
      {"Windows/temp", "../../outside", "upgrade", 1},
      {"Windows/temp", root_ / "outside", "upgrade", 1},
      {"Windows/temp", "../inside/../../outside", "upgrade", 1},
      {"Windows/temp", "temp", "upgrade", 1},
      {"Windows/temp/ztlinst.log", "../../../outside/ztl2000.inf", "upgrade", 1},
      {"Windows/temp/ztlinst.log", "../../../outside/new", "upgrade", 1},
      {"Media", "../outside", media, 2},
      {"Media/ztl2000.inf", "../../outside/ztl2000.inf", media, 2},
      {"WINDOWS/INF", "../../outside", inf, 2},
      {"Windows/Inf/oem0.PNF", "../../../outside/ztl2000.inf", media, 2},
      {"Windows/Inf/ztl2000.inf", "../../../outside/ztl2000.inf", inf, 2},
      {"Windows/temp", "../inside", "upgrade", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.link + " -> " + c.target);
    fs::remove_all(root_ / "drive");
    fs::create_directories(root_ / "drive/inside");
    Write("outside/ztl2000.inf", "theirs");
    const fs::path link = root_ / "drive" / c.link;
    fs::create_directories(link.parent_path());
    fs::create_symlink(c.target, link);
    EXPECT_EQ(Run("run " + c.arguments + " --root drive" + kLaptop), c.status);
    EXPECT_EQ(err_.find("drive/" + c.link + ": a link that leads out of the drive\n") != err_.npos, c.status != 0)
        << err_;
    EXPECT_EQ(ReadFile(root_ / "outside/ztl2000.inf"), "theirs");
    EXPECT_EQ(std::distance(fs::directory_iterator(root_ / "outside"), {}), 1);
  }
  EXPECT_TRUE(fs::exists(root_ / "drive/inside/ztlinst.log"));
}

TEST_F(Abuse, AFullDriveIsSaidAndLosesNoFile) {
  const std::string full = "ulimit -f 4; ";
  EXPECT_EQ(Run("run upgrade --json --root ." + kLaptop, full), 1);
  EXPECT_EQ(err_, "ztlsim: drive C: C:\\Windows\\temp\\ztlinst.log: No space left on device\n");
  json run = json::parse(out_, nullptr, false);
  EXPECT_EQ(run["drive_troubles"].dump(), R"(["C:\\Windows\\temp\\ztlinst.log: No space left on device"])");
  std::vector<std::string> lines = LogMessages();
  lines.resize(run["log"].size());  // the rest is a part of a line
  EXPECT_EQ(run["log"], lines);
  EXPECT_GT(lines.size(), 0u);

  Write("plain.reg", "earlier");
  fs::create_symlink("plain.reg", root_ / "link.reg");
  for (const std::string file : {"plain.reg", "link.reg"}) {
    EXPECT_EQ(Run("run register --out " + file + kLaptop, full), 1);
    EXPECT_TRUE(err_.find("ztlsim: " + file + ": File too large\n") != err_.npos) << err_;
    EXPECT_EQ(ReadFile(root_ / "plain.reg"), "earlier");
  }
  EXPECT_EQ(Run("run upgrade --out link.reg" + kLaptop), 0);
  EXPECT_TRUE(fs::is_symlink(root_ / "link.reg") && ReadFile(root_ / "plain.reg").size() > 10000);
  fs::create_symlink("later.reg", root_ / "dangling.reg");
  EXPECT_EQ(Run("run upgrade --out later.reg --changes dangling.reg" + kLaptop), 2);
  for (const auto& entry : fs::directory_iterator(root_)) EXPECT_NE(entry.path().extension(), ".tmp");
}

TEST_F(Abuse, WhoStopsItFindsNothingLeft) {
  fs::create_directory(root_ / "tmp");
  ASSERT_EQ(::mkfifo((root_ / "pipe.inf").c_str(), 0600), 0);
  for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
    Start("run install --inf pipe.inf" + kLaptop, "TMPDIR=tmp ", false);  // waits for what comes from the pipe
    for (int tries = 0; tries < 10'000 && fs::is_empty(root_ / "tmp"); ++tries)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_FALSE(fs::is_empty(root_ / "tmp"));
    ::kill(process_, signal);
    EXPECT_EQ(End(), -signal);
    EXPECT_TRUE(fs::is_empty(root_ / "tmp"));
  }
  Start("run upgrade --out /dev/stdout --changes changes.reg" + kLaptop, "", false);
  EXPECT_EQ(End(), -SIGPIPE);
  EXPECT_EQ(err_, "ztlsim: /dev/stdout: Broken pipe\n");
  EXPECT_EQ(Run("show --machine changes.reg"), 0) << err_;
}

TEST_F(Abuse, SaysWhatAnInputIs) {
  EXPECT_EQ(Run("run install --inf /dev/zero" + kLaptop), 2);
  EXPECT_EQ(err_, "ztlsim: /dev/zero: expected a file, found a device or a socket\n");
  EXPECT_EQ(Run("run upgrade" + kLaptop, "TMPDIR=none "), 2);
  EXPECT_EQ(err_, "ztlsim: no directory for temporary files: TMPDIR=none: No such file or directory\n");
  EXPECT_EQ(Run("check --machine '\x1B[31m'"), 2);
  EXPECT_EQ(err_.find('\x1B'), err_.npos) << err_;
  Write("media/\xE9.inf", ReadFile(kPackage + "ztl2000.inf"));  // no UTF-8
  EXPECT_EQ(Run("run install --root drive --media media" + kLaptop), 0) << err_;
  EXPECT_TRUE(fs::exists(root_ / "drive/Media/\xE9.inf") && fs::exists(root_ / "drive/Windows/Inf/oem0.inf"));
}

}  // namespace
