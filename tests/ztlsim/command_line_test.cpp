// The program as it is started: exit statuses, what it prints, and the files that it writes.
#include "tests/support/machine_fixture.h"
#include "tests/support/transcript.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using ztl_test::ReadFile;

const std::string kSamples = ZTL_SOURCE_DIR "/samples/";

// What a command is put into, and what its exit status is multiplied by.
#ifdef _WIN32
const std::string kQuote = "\"";
constexpr int kExitStatus = 1;
#else
const std::string kQuote;
constexpr int kExitStatus = 256;
#endif

class CommandLine : public ztl_test::MachineTest {
 protected:
  // Runs ztlsim in the test's directory, which stands for drive C: with "--root .".
  int Run(const std::string& arguments) {
    const fs::path before = fs::current_path();
    fs::current_path(root_);
    const int status =
        std::system((kQuote + "\"" ZTLSIM_BINARY "\" " + arguments + " >out.txt 2>err.txt" + kQuote).c_str());
    fs::current_path(before);
    out_ = Text("out.txt");
    err_ = Text("err.txt");
    return status / kExitStatus;
  }
  // With any system's line ends.
  std::string Text(const char* file) {
    std::string text = ReadFile(root_ / file);
    std::erase(text, '\r');
    return text;
  }

  std::string out_;
  std::string err_;
};

TEST_F(CommandLine, AnswersAsWritten) {
  std::ofstream(root_ / "empty.reg") << "";
  std::ofstream(root_ / "text.reg") << "A text.\n";
  ztl_test::ExpectTranscript("tests/ztlsim/command_lines.txt", [this](std::string line) {
    if (const std::size_t at = line.find("LAPTOP"); at != line.npos) line.replace(at, 6, kSamples + "laptop.reg");
    const int status = Run(line);
    return std::to_string(status) + (out_.empty() ? " " : " and output ") + err_.substr(0, err_.find('\n')) +
           (fs::exists(root_ / "made") ? " made" : "");
  });
}

TEST_F(CommandLine, RunsTheSamples) {
  for (const std::string sample : {"laptop.reg", "server.reg", "damaged.reg"}) {
    SCOPED_TRACE(sample);
    const std::string machine = " --json --machine " + kSamples + sample;
    ASSERT_EQ(Run("run upgrade --root . --out after.reg --changes changes.reg" + machine), 0) << err_;
    EXPECT_EQ(err_, "");
    const json run = json::parse(out_);
    EXPECT_EQ(run["scenario"], "upgrade");
    for (const std::string result : run["result"])
      EXPECT_TRUE(result.size() == 10 && result.starts_with("0x") &&
                  result.find_first_not_of("0123456789ABCDEF", 2) == std::string::npos)
          << result;
    EXPECT_EQ(run["result"]["ApplyPnpChanges"], "0x0004A020");
    EXPECT_EQ(run["reboot_required"], true);
    EXPECT_EQ(run["log"], LogMessages());
    EXPECT_TRUE(ReadFile(LogPath()).ends_with("\r\n"));
    fs::remove(LogPath());

    EXPECT_EQ(Run("run upgrade --changes ." + machine), 1);
    EXPECT_TRUE(err_.starts_with("ztlsim: .: ")) << err_;
    ASSERT_EQ(Run("show --json --machine after.reg"), 0) << err_;
    const std::string after = out_;
    ASSERT_EQ(Run("show" + machine + " --machine changes.reg"), 0) << err_;
    EXPECT_EQ(out_, after);
    ASSERT_EQ(Run("run upgrade --json --machine after.reg"), 0) << err_;
    EXPECT_EQ(json::parse(out_)["reboot_required"], false);
  }
}

}  // namespace
