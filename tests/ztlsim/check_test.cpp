#include "ztlsim/inspect/check.h"

#include "tests/support/machine_fixture.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/random_registry.h"
#include "tests/support/transcript.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/report/report.h"
#include "ztlsim/scenario/scenarios.h"
#include "ztlsim/text_encoding.h"

namespace {

using namespace ztlsim;
using namespace ztl_test;
using namespace platform;

using Check = MachineTest;

// An import of the transcript, with the short names and lists written out.
std::string Import(std::string text) {
  const std::string system = R"(HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\)", network = system + R"(Control\Network)";
  const std::pair<std::string, std::string> names[] = {
      {"net", system + R"(Control\Class\{4D36E972-E325-11CE-BFC1-08002bE10318})"},
      {"service", network + R"(\{4D36E974-E325-11CE-BFC1-08002BE10318})"},
      {"network", network},
      {"parameters", system + R"(Services\ZTL\Parameters)"}};
  for (const auto& [name, path] : names)
    text = std::regex_replace(text, std::regex("(\\[-?)" + name + "(?=[\\\\\\]])"), "$1" + path);
  for (std::smatch list; std::regex_search(text, list, std::regex("list:(.*)"));) {
    std::u16string entries = Utf8ToUtf16(list.str(1)) + u",,";
    std::replace(entries.begin(), entries.end(), u',', u'\0');
    std::string bytes = "hex(7):";
    for (const BYTE byte : Bytes(entries))
      bytes += std::string(1, "0123456789abcdef"[byte >> 4]) + "0123456789abcdef"[byte & 15] + ",";
    text.replace(static_cast<std::size_t>(list.position()), static_cast<std::size_t>(list.length()), bytes);
  }
  return "Windows Registry Editor Version 5.00\n" + text;
}

TEST_F(Check, FindsEachFaultOnceAndChangesNothing) {
  ExpectTranscript("tests/ztlsim/findings.txt", [this](const std::string& changes) {
    machine_.registry.CopyFrom(simulation::Registry());
    EXPECT_FALSE(ReadRegistryExport(ZTL_SOURCE_DIR "/tests/ztlsim/sound.reg", machine_.registry));
    EXPECT_FALSE(ReadRegistryExport("changes", Import(changes), machine_.registry)) << changes;
    const std::string before = Dump(machine_.registry.Root());
    std::string findings = FormatFindings(CheckMachine(machine_.registry));
    EXPECT_EQ(Dump(machine_.registry.Root()), before);
    return findings;
  });
}

TEST_F(Check, PrintsALineAFinding) {
  const std::vector<Finding> findings = {{FindingKind::BindLoop, u"K\\\u00e9\n", u"v", "T", "C \x1b"},
                                         {FindingKind::MissingKey, u"k", std::nullopt, "T", "C"}};
  EXPECT_EQ(FormatFindings(findings),
            "K\\\u00e9\\x0a, v: T. C \\x1b. [bind-loop]\nk: T. C. [missing-key]\n2 findings\n");
  EXPECT_EQ(FormatFindings({}), "No findings.\n");
  const auto json = nlohmann::json::parse(FormatFindingsAsJson(findings))["findings"];
  EXPECT_EQ(json[1].dump(), R"({"consequence":"C","key":"k","kind":"missing-key","text":"T","value":null})");
}

TEST_F(Check, EveryKindAndScenarioStandsInTheGuide) {
  const std::string guide = ReadFile(ZTL_SOURCE_DIR "/docs/ztlsim.md");
  std::string rows = "| kind | severity | what is wrong | what follows |\n|---|---|---|---|\n";
  for (const FindingRow& row : kFindingKinds)
    rows += "| `" + std::string(row.name) + "` | " + SeverityName(row.severity) + " | " + row.what + " | " +
            row.consequence + " |\n";
  EXPECT_NE(guide.find(rows + "\n"), std::string::npos) << rows;
  for (const Scenario& scenario : kScenarios) {
    const std::string begin = "\n| `" + std::string(scenario.name) + "` | ";
    const std::size_t row = guide.find(begin);
    ASSERT_NE(row, std::string::npos) << begin;
    const std::size_t passes = guide.find(" | ", row + begin.size());
    EXPECT_EQ(guide.compare(passes + 3, std::string(scenario.passes).size(), scenario.passes), 0) << begin;
    for (const CallOption& option : scenario.options)
      EXPECT_NE(guide.find("`" + std::string(option.name)), std::string::npos) << option.name;
  }
}

TEST_F(Check, EveryTestThatTheSecurityPageNamesIsThere) {
  std::string sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(ZTL_SOURCE_DIR "/tests"))
    if (entry.path().extension() == ".cpp" || entry.path().filename() == "CMakeLists.txt")
      sources += ReadFile(entry.path());
  const std::string page = ReadFile(ZTL_SOURCE_DIR "/docs/security.md");
  const std::regex name("`(?:(\\w+)\\.([A-Z]\\w+)|([a-z]+(?:_[a-z]+){3,}))`");  // of GoogleTest's, or of a program's
  int found = 0;
  for (std::sregex_iterator at(page.begin(), page.end(), name), end; at != end; ++at, ++found) {
    const std::string test =
        at->str(3).empty() ? "(" + at->str(1) + ", " + at->str(2) + ")" : "add_test(NAME " + at->str(3);
    EXPECT_TRUE(sources.find(test) != sources.npos) << at->str();
  }
  EXPECT_GT(found, 10);
}

}  // namespace
