// The program as it is started: exit statuses, what it prints, and the files that it writes.
#include "tests/support/machine_fixture.h"
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

TEST_F(CommandLine, RefusesWhatItCannotUse) {
  std::ofstream(root_ / "empty.reg") << "";
  std::ofstream(root_ / "text.reg") << "A text.\n";
  const std::string laptop = " --machine " + kSamples + "laptop.reg";
  const struct {
    std::string arguments;
    int status;
    std::string error;  // how it begins
  } cases[] = {
      {"", 2, "ztlsim: "},
      {"run upgrade", 2, "ztlsim: --machine"},
      {"run downgrade --root made" + laptop, 2, "ztlsim: SCENARIO"},
      {"run upgrade --root made --os ten" + laptop, 2, "ztlsim: --os ten: "},
      {"run upgrade --root made --os 10.0.0.0" + laptop, 2, "ztlsim: --os 10.0.0.0: "},
      {"run unregister --root made --driver-version 3.10.0" + laptop, 2, "ztlsim: --driver-version 3.10.0: "},
      {"run upgrade --root made --second-lock maybe" + laptop, 2, "ztlsim: --second-lock"},
      {"run upgrade --root made --param1 x" + laptop, 2, "ztlsim: --param1: only the scenario properties takes it"},
      {"run properties --root made --adapter {1}" + laptop, 2, "ztlsim: --adapter {1}: expected {8-4-4-4-12} "},
      {"run properties --root made --page close" + laptop, 2, "ztlsim: --page close: expected ok, apply or cancel"},
      {"run notify --root made --path a=b=on --path x" + laptop, 2, "ztlsim: --path x: expected TOKEN=on, "},
      {"run notify --root made --change 0x100000000" + laptop, 2, "ztlsim: --change 0x100000000: expected a number"},
      {"run install --media none" + laptop, 2, "ztlsim: none: No such file or directory"},
      {"run install --inf Windows" + laptop, 2, "ztlsim: Windows: expected a file, found a directory"},
      {"show --machine \"\"", 2, "ztlsim: --machine: an empty name\n"},
      {"run upgrade --root made --out a.reg --changes ./a.reg" + laptop, 2,
       "ztlsim: --out a.reg and --changes ./a.reg:"},
      {"run install --media ." + laptop + " --root .", 2, "ztlsim: .: holds the machine's drive"},
      {"check" + laptop, 3, ""},
      {"run upgrade --root made --machine none.reg", 2,
       "ztlsim: none.reg: cannot be opened: No such file or directory\n"},
      {"run upgrade --root made --machine Windows", 2,
       "ztlsim: Windows: expected a registry export, found a directory\n"},
      {"run upgrade --root made --machine empty.reg", 2,
       "ztlsim: empty.reg: expected a registry export, found an empty"},
      {"run upgrade --root made --machine text.reg" + laptop, 2, "ztlsim: text.reg:1: not a registry export: "},
      {"run upgrade --out none/out.reg" + laptop, 1, "ztlsim: none/out.reg: No such file or directory\n"},
      {"run upgrade --changes ." + laptop, 1, "ztlsim: .: "},
      {"--help", 0, ""},
      {"run --help", 0, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Run(c.arguments), c.status) << c.arguments;
    EXPECT_EQ(out_.empty(), c.status == 2) << c.arguments;
    EXPECT_TRUE(err_.starts_with(c.error) && err_.empty() == c.error.empty()) << c.arguments << "\n" << err_;
    EXPECT_FALSE(fs::exists(root_ / "made")) << c.arguments;
  }
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

    ASSERT_EQ(Run("show --json --machine after.reg"), 0) << err_;
    const std::string after = out_;
    ASSERT_EQ(Run("show" + machine + " --machine changes.reg"), 0) << err_;
    EXPECT_EQ(out_, after);
    ASSERT_EQ(Run("run upgrade --json --machine after.reg"), 0) << err_;
    EXPECT_EQ(json::parse(out_)["reboot_required"], false);
  }
}

}  // namespace
