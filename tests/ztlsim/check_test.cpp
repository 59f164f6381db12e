#include "ztlsim/inspect/check.h"

#include "tests/support/machine_fixture.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/random_registry.h"
#include "ztlsim/report/report.h"
#include "ztlsim/scenario/scenarios.h"
#include "ztlsim/text_encoding.h"

namespace {

using namespace ztlsim;
using namespace ztl_test;
using namespace platform;

const std::u16string kParametersPath(kParameters);
const std::u16string kNetworkPath(kNetwork);
const std::u16string kZtl = kNetworkPath + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\{1}\\Ndi";

template <class... Entries>
std::vector<BYTE> List(const Entries&... entries) {
  return MultiSz({std::u16string_view(entries)...});
}

class Check : public MachineTest {
 protected:
  // A machine without faults: the filter below A in the configured order, over one adapter that has its record.
  void AddMachine() {
    AddWrongStack();
    Key(kNetworkPath).SetValue(u"FilterClasses", REG_MULTI_SZ, List(u"spare", u"compression"));
    AddAdapter(u"0001", u"{A}", u"a_mp", u"", {u"{A}", u"{P}"}, {u"ZTL"});
    AddAdapter(u"0002", u"{Z}", u"qro_ztlm", u"", {u"{Z}", u"{A}", u"{P}"}, {u"Tcpip"});
    Link(u"0000", u"UpperBind", List(u"A"));
    Instance(u"0000").SetValue(u"DeviceInstanceID", REG_SZ, Sz(u"PCI\\1"));
    Adapters().CreateSubkey(u"{P}").SetValue(u"IMOrder", REG_MULTI_SZ, List(u"ZTL", u"A", u"E1000"));
  }
  simulation::RegistryKey& Key(const std::u16string& path) { return machine_.registry.Create(path); }
  simulation::RegistryKey& Instance(const std::u16string& path) {
    return Key(std::u16string(kNetClass) + u'\\' + path);
  }
  simulation::RegistryKey& Adapters() { return Key(kParametersPath + u"\\Adapters"); }
  simulation::RegistryValue& UpperBind() { return Instance(u"0002\\Linkage").values.Edit()[1]; }
  void Link(const std::u16string& subkey, const char16_t* name, std::vector<BYTE> data) {
    Instance(subkey + u"\\Linkage").SetValue(name, REG_MULTI_SZ, std::move(data));
  }
  template <class... Entries>
  void Order(const Entries&... entries) {
    Key(kParametersPath).SetValue(u"IMOrder", REG_MULTI_SZ, List(entries...));
  }
  void AddDrivers(std::u16string_view subkeys) {  // with names of 62 characters
    for (const char16_t subkey : subkeys)
      AddService({&subkey, 1}, std::u16string(61, u'x') + subkey, u"compression", u"id");
  }
  void AddLoop() {
    Instance(u"0002").SetValue(u"FilterInfId", REG_SZ, Sz(u"qro_ztl"));
    Key(kZtl).parent->SetValue(u"ComponentId", REG_SZ, Sz(u"qro_ztl"));
    Link(u"0002", u"UpperBind", List(u"ZTL", u"Tcpip"));
  }
};

TEST_F(Check, FindsEachFaultOnceAndChangesNothing) {
  const struct {
    std::function<void()> damage;
    std::string found;  // of each: the kind, and the value or else the key's last name
    std::string part;   // of the first one's text and consequence
  } cases[] = {
      {[] {}, "", ""},
      {[&] { AddWrongStack(); }, "stack-out-of-order RootDevice", "to ZTL > A > E1000"},
      {[&] { AddWrongStack(), Link(u"0002", u"RootDevice", List(u"{P}")); }, "stack-not-stored RootDevice", "store"},
      {[&] { Key(kNetworkPath).parent->DeleteSubkey(u"Network"); }, "missing-key Network", "ends at once"},
      {[&] { Key(kParametersPath).DeleteSubkey(u"Adapters"); }, "missing-key Adapters", "No adapter record"},
      {[&] { Key(kZtl).DeleteValue(u"FilterClass"); }, "no-filter-class {4D36E974-E325-11CE-BFC1-08002BE10318}", ""},
      {[&] { Instance(u"0001 set aside\\Linkage"); }, "long-key-name 0001 set aside", "11 characters"},
      {[&] { Instance(u"Configuration"); }, "", ""},  // too long a name where it does no harm
      {[&] { UpperBind().data.resize(10); }, "malformed-multi-string UpperBind", "lacks 2 of the NULs"},
      {[&] { UpperBind().data.push_back(0); }, "malformed-multi-string UpperBind", "odd"},
      {[&] { UpperBind().data = List(u"Tcpip", u"", u"B"); }, "malformed-multi-string UpperBind", "behind"},
      {[&] { Order(u"ZTL", u"A", std::u16string(257, u'x')); }, "unreadable-value IMOrder", "530 bytes"},
      {[&] { Instance(u"0000\\Ndi").SetValue(u"Service", REG_SZ, Bytes(std::u16string(64, u'x'))); },
       "unreadable-value Service; stale-record IMOrder", "not ended within its 128 bytes"},
      {[&] { Instance(u"0002\\Linkage").SetValue(u"RootDevice", REG_BINARY, {1}); },
       "unreadable-value RootDevice; stale-record IMOrder", "REG_BINARY, and read as REG_MULTI_SZ"},
      {[&] { Instance(u"0002\\Linkage").DeleteValue(u"RootDevice"); },
       "missing-root-device RootDevice; stale-record IMOrder", ""},
      {[&] { Order(u"ztl", u"B", u"compression"); }, "order-entry-unknown IMOrder", "\"B\" names no filter"},
      {[&] { Order(u"ztl", u"B", u"A"), AddService(u"3", u"B", u"", u""); }, "order-entry-unknown IMOrder", "InfId"},
      {[&] { Order(u"ztl", u"A", u"c2"), AddService(u"{3}", u"B", u"c2", u"b"); }, "order-entry-unknown IMOrder",
       "FilterClasses does not list"},
      {[&] { Order(u"ztl", u"spare", u"Others"); }, "class-without-drivers IMOrder", "\"spare\""},
      {[&] { AddDrivers(u"3456"); }, "order-entry-does-not-fit IMOrder", "no room"},
      {[&] { AddDrivers(u"34567"); }, "order-entry-does-not-fit IMOrder", "more than 259 characters"},
      {[&] { Link(u"0002", u"RootDevice", List(u"{Z}", u"{X}", u"{A}", u"{P}")); },
       "missing-instance RootDevice; stale-record IMOrder", "\"{X}\""},
      {[&] { Instance(u"0001").DeleteValue(u"MatchingDeviceId"); }, "unowned-instance 0001", "MatchingDeviceId"},
      {[&] { AddLoop(); }, "bind-loop UpperBind", "\"ZTL\" is bound directly above"},
      {[&] { Key(kParametersPath).SetValue(u"ExcludedMacs", REG_MULTI_SZ, List(u"pci\\", u"USB\\V")); },
       "excluded-entry-unmatched ExcludedMacs", "\"USB\\V\""},
      {[&] {
         Key(kParametersPath).SetValue(u"ExcludedMacs", REG_MULTI_SZ, List(u"pci\\"));
         machine_.registry.Find(kNetClass)->parent->DeleteSubkey(u"{4D36E972-E325-11CE-BFC1-08002BE10318}");
       },
       "missing-key {4D36E972-E325-11CE-BFC1-08002BE10318}; excluded-entry-unmatched ExcludedMacs; "
       "stale-record IMOrder",
       ""},
      {[&] { Adapters().DeleteSubkey(u"{P}"); }, "record-without-key {P}", "create the key"},
      {[&] { Adapters().CreateSubkey(u"{P}").DeleteValue(u"IMOrder"); }, "missing-record IMOrder", "ZTL > A > E1000"},
      {[&] { Adapters().CreateSubkey(u"{Q}").SetValue(u"IMOrder", REG_MULTI_SZ, {}); }, "stale-record IMOrder", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.found + c.part);
    machine_.registry.CopyFrom(simulation::Registry());
    AddMachine();
    c.damage();
    const std::string before = Dump(machine_.registry.Root());
    const std::vector<Finding> findings = CheckMachine(machine_.registry);
    EXPECT_EQ(Dump(machine_.registry.Root()), before);
    std::string found;
    for (const Finding& finding : findings)
      found += (found.empty() ? "" : "; ") + std::string(FindingName(finding.kind)) + " " +
               Utf16ToUtf8(finding.value.value_or(finding.key.substr(finding.key.rfind(u'\\') + 1)));
    EXPECT_EQ(found, c.found) << FormatFindings(findings);
    if (!findings.empty())
      EXPECT_NE((findings[0].text + findings[0].consequence).find(c.part), std::string::npos) << findings[0].text;
  }
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
