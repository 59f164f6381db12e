// The command line that scripts rely on: statuses, messages, the files and the object that a run leaves.
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/machine_test.h"

namespace {

using Json = nlohmann::json;

class CommandLineTest : public ztl_test::MachineTest {
 protected:
  // Runs ztlsim; "@" in the arguments stands for the test's own directory, "%" for that of the samples.
  int Run(std::string arguments) {
    for (std::size_t at; (at = arguments.find_first_of("@%")) != arguments.npos;)
      arguments.replace(at, 1, arguments[at] == '@' ? root_.string() : std::string(ZTL_SOURCE_DIR) + "/samples");
    const std::string errors = (root_ / "errors").string();
    FILE* const pipe = ::popen((std::string(ZTLSIM_BINARY) + " " + arguments + " 2>" + errors).c_str(), "r");
    char block[4096];
    output_.clear();
    for (std::size_t size; (size = std::fread(block, 1, sizeof block, pipe)) > 0;) output_.append(block, size);
    const int status = ::pclose(pipe);
    errors_ = ztl_test::ReadFile(errors);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string output_;
  std::string errors_;
};

TEST_F(CommandLineTest, RefusesWhatItCannotRunAndRunsNothing) {
  std::filesystem::create_directory(root_ / "dir");
  std::ofstream(root_ / "empty.reg");
  std::ofstream(root_ / "hive") << "regf";
  std::ofstream(root_ / "bad.reg") << "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\A]\n\"x\"=nonsense\n";
  const std::pair<const char*, const char*> cases[] = {
      {"", "subcommand"},
      {"run nothing --machine %/laptop.reg", "nothing"},
      {"run upgrade", "--machine"},
      {"run upgrade --machine %/laptop.reg --os 10", "--os 10"},
      {"run upgrade --machine %/laptop.reg --out ''", "--out"},
      {"run upgrade --machine @/none.reg", "/none.reg: "},
      {"run upgrade --machine @/dir", "/dir: "},
      {"run upgrade --machine @/hive", "/hive: "},
      {"run upgrade --machine /dev/zero", "/dev/zero: "},
      {"run upgrade --machine @/empty.reg", "/empty.reg:"},
      {"run upgrade --machine %/laptop.reg --machine @/bad.reg", "/bad.reg:4: "},
  };
  for (const auto& [arguments, message] : cases) {
    EXPECT_EQ(Run(std::string(arguments) + (*arguments == 'r' ? " --root @/drive" : "")), 2) << arguments;
    EXPECT_TRUE(errors_.starts_with("ztlsim: ") && errors_.find(message) != errors_.npos) << errors_;
    EXPECT_EQ(output_, "");
    EXPECT_FALSE(std::filesystem::exists(root_ / "drive"));
  }
  EXPECT_EQ(Run("--help"), 0);
  EXPECT_EQ(Run("run upgrade --machine %/laptop.reg --out @/none/out.reg"), 1);
}

TEST_F(CommandLineTest, ARunLeavesTheSameInItsObjectItsFilesAndItsLog) {
  for (const std::string name : {"laptop", "server", "damaged"}) {
    const std::string machine = "%/" + name + ".reg";
    ASSERT_EQ(Run("run upgrade --json --root @ --out @/out.reg --changes @/changes.reg --machine " + machine), 0);
    const Json run = Json::parse(output_);
    EXPECT_EQ(run["result"], (Json{{"ApplyRegistryChanges", "0x00000000"}, {"ApplyPnpChanges", "0x0004A020"}}));
    EXPECT_EQ(run["pnp_reconfig"]["upper"], "ztl2000");
    EXPECT_EQ(run["log"], Json(LogMessages()));
    std::filesystem::remove(LogPath());
    ASSERT_EQ(Run("show --json --machine @/out.reg"), 0);
    const std::string after = output_;
    ASSERT_EQ(Run("show --json --machine " + machine + " --machine @/changes.reg"), 0);
    EXPECT_EQ(output_, after);
    ASSERT_EQ(Run("run notify --json --machine @/out.reg"), 0);
    EXPECT_FALSE(Json::parse(output_)["result"].contains("ApplyPnpChanges"));
  }
}

}  // namespace
