#include "module/install/miniport_inf.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <random>

#include "module/install/versions.h"
#include "module/names.h"
#include "module/notify/module_log.h"
#include "simulation/text_encoding.h"
#include "tests/support/machine_test.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Operation;
using simulation::Utf16ToUtf8;

namespace fs = std::filesystem;

constexpr char16_t kInfDirectory[] = u"C:\\Windows\\Inf\\";

class MiniportInfTest : public MachineTest {
 protected:
  void SetUp() override {
    fs::create_directories(inf_);
    fs::create_directories(root_ / "Windows/System32/drivers");
    ztl::OpenModuleLog();
  }
  static void Write(const fs::path& file, std::string_view bytes) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  // An INF of a component; the rest of its text comes behind.
  void Inf(const std::string& name, const std::string& driverVer, const std::string& id = "qro_ztl",
           const std::string& rest = "") {
    Write(inf_ / name, "[version]\r\nSignature=\"$Windows NT$\"\r\nDriverVer=" + driverVer +
                           "\r\n[Manufacturer]\r\n%Q%=Models\r\n[Models]\r\n%Q%=Install," + id +
                           "\r\n[Strings]\r\nQ=\"Quillmark, Ltd\"\r\n" + rest);
  }
  // The sample's driver file in another version. Bytes may be changed at offsets from its fixed file information.
  void Driver(std::array<WORD, 4> version, const std::map<std::ptrdiff_t, char>& changes = {}) {
    std::string bytes = ReadFile(ZTL_SOURCE_DIR "/samples/package-4.17/ztl2000.sys");
    const auto info = static_cast<std::ptrdiff_t>(bytes.find("\xBD\x04\xEF\xFE"));
    const std::array<WORD, 4> stored = {version[1], version[0], version[3], version[2]};
    std::memcpy(bytes.data() + info + 8, stored.data(), sizeof stored);
    for (const auto& [offset, byte] : changes) bytes[static_cast<std::size_t>(info + offset)] = byte;
    Write(root_ / "Windows/System32/drivers/ZTL2000.SYS", bytes);
  }
  // The name of the INF that is found, or the failure's code.
  std::string Find() {
    char16_t* path = nullptr;
    const HRESULT hr = ztl::HrGetProtocolInf(kInfDirectory, &path);
    const std::string name = path == nullptr ? "" : Utf16ToUtf8(path + std::size(kInfDirectory) - 1);
    CoTaskMemFree(path);
    char code[16];
    std::snprintf(code, sizeof code, "%x", static_cast<unsigned>(hr));
    return hr == S_OK ? name : name + code;
  }

  const fs::path inf_ = root_ / "Windows" / "Inf";
};

TEST_F(MiniportInfTest, VersionsAreReadAsNumbers) {
  constexpr DWORD kNone = 77;
  const struct {
    std::u16string_view text;
    DWORD packed, build;
  } cases[] = {{u"4.17.0.18806", 0x04110000, 18806},
               {u"5", 0x05000000, kNone},
               {u" 4. 17.300.1.9", 0x04112C00, 1},
               {u"-1.+2.x.-1", 0xFF020000, 0xFFFFFFFF},
               {u"\x00A0\xFF14.\x3000\x0661\x0667.\x200B", 0x04110000, kNone},
               {u"..7.", 0x00000700, 0},
               {u"4,5.6", 0x04060000, kNone},
               {u"99999999999.0.99999999999999999999.-99999999999", 0xFF00FF00, 0x80000000},
               {u"2147483648.2147483647", 0xFFFF0000, kNone},
               {u"", 0, kNone}};
  for (const auto& c : cases) {
    DWORD build = kNone;
    EXPECT_EQ(ztl::ParseVersion(c.text, &build), c.packed) << Utf16ToUtf8(c.text);
    EXPECT_EQ(build, c.build) << Utf16ToUtf8(c.text);
    EXPECT_EQ(ztl::ParseVersion(c.text, nullptr), c.packed);
  }
}

TEST_F(MiniportInfTest, ListsKeepStoredAndOwnFilesInThisOrder) {
  // A bar stands for a NUL.
  const struct {
    std::u16string list, expected;
  } cases[] = {
      {u"OEM12.INF|netabc.inf|ZTL2000.INF|oem3.inf||", u"OEM12.INF|oem3.inf|ZTL2000.INF||"},
      {u"|", u"|"},
      {u"zt|oe|oem|z||", u"oem|zt||"},
      {u"net.inf||", u"|"},
      {u"zt", u"|"},  // a list without an end
      {u"", u""},
  };
  for (auto [list, expected] : cases) {
    for (std::u16string* const text : {&list, &expected}) std::replace(text->begin(), text->end(), u'|', u'\0');
    const auto capacity = static_cast<DWORD>(list.size());
    EXPECT_EQ(ztl::OptFileSearch(list.data(), capacity), list.data());
    EXPECT_EQ(list.substr(0, expected.size()), expected);
  }
  machine_.faults = {{.operation = Operation::CoTaskMemAlloc}};
  std::u16string list(u"oem\0net\0\0", 9);
  const std::u16string before = list;
  ztl::OptFileSearch(list.data(), 9);
  EXPECT_EQ(list, before);
  EXPECT_EQ(TakeLog(), Strings{"OptFileSearch alloc err"});
}

TEST_F(MiniportInfTest, TheBestFitIsFound) {
  struct File {
    std::string name, driverVer, choice;  // what the log calls it; empty: no line
  };
  const struct {
    std::optional<std::array<WORD, 4>> driver;
    std::vector<File> files;  // in list order
    std::string chosen;
  } cases[] = {
      {{}, {{"oem1.inf", "1/1/2020,1.0", ""}, {"oem2.inf", "1/1/2020,4.17.0.18806", ""}}, "oem1.inf"},
      {{{4, 17, 0, 18806}}, {{"oem1.inf", "d, 4.17.0.18806", "1st"}, {"oem2.inf", "d,4.17.0.18000", ""}}, "oem1.inf"},
      {{{4, 17, 0, 18806}},
       {{"oem1.inf", "d,4.17.0.18000", "2st"}, {"oem2.inf", "d,4.17.1.1", ""}, {"ztl.inf", "d,4.16.0.1", ""}},
       "oem1.inf"},
      {{{4, 17, 0, 18806}}, {{"oem1.inf", "d,4.16.0.1", "4th"}, {"oem2.inf", "d,5.0.0.1", "4th"}}, "oem2.inf"},
      {{{4, 17, 0, 18806}}, {{"oem1.inf", "d,4.17.2.1", "3rd"}, {"oem2.inf", "d,4.17.3.1", "3rd"}}, "oem2.inf"},
      {{{4, 17, 0, 0}}, {{"oem1.inf", "4.17.0", "4th"}, {"oem2.inf", "d,4.17", "1st"}}, "oem2.inf"},  // no comma
      {{{300, 17, 0, 5}}, {{"oem1.inf", "d,44.17.0.5", "1st"}}, "oem1.inf"},
      {{{4, 17, 0, 65535}}, {{"oem1.inf", "d,4.17.0.-1", "2st"}}, "oem1.inf"},
      {{{0, 0, 1, 0}}, {{"oem1.inf", "", "3rd"}}, "oem1.inf"},
      {{{0, 0, 0, 9}}, {{"oem1.inf", "d,4.17", ""}}, "oem1.inf"},  // all zero counts as none
      {{{4, 17, 0, 1}}, {{"oem1.inf", std::string(259, 'x') + ",4.17.0.1", "4th"}}, "oem1.inf"},
      {{{4, 17, 0, 1}}, {}, "80070002"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(&c - cases));
    fs::remove_all(inf_);
    fs::remove(root_ / "Windows/System32/drivers/ZTL2000.SYS");
    if (c.driver) Driver(*c.driver);
    Inf("netabc.inf", "d,4.17.0.18806");            // not looked at
    Inf("oem0.inf", "d,4.17.0.18806", "qro_ztlm");  // another component's
    Strings choices;
    for (const File& file : c.files) {
      Inf(file.name, file.driverVer, "QRO_ztl");
      if (!file.choice.empty())
        choices.push_back("HrGetProtocolInf: " + file.choice + " choice INF C:\\Windows\\Inf\\" + file.name);
    }
    EXPECT_EQ(Find(), c.chosen);
    Strings log = TakeLog();
    std::erase_if(log, [](const std::string& line) { return line.find("choice") == line.npos; });
    EXPECT_EQ(log, choices);
  }
}

// Of all with the best rank the last in the list, but the first when it fits wholly.
TEST_F(MiniportInfTest, GeneratedDirectoriesGiveTheBestFit) {
  ztl::CloseModuleLog();
  std::mt19937 random(11);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    fs::remove_all(inf_);
    const auto version = [&random] {
      std::array<WORD, 4> parts;
      for (WORD& part : parts) part = static_cast<WORD>(1 + random() % 2);
      return parts;
    };
    const auto driver = version();
    Driver(driver);
    const char* const names[] = {"OEM1.inf", "oem10.inf", "oem2.INF", "zt.inf", "ZTL2000.inf", "ztl2000m.inf"};
    std::string best = "80070002";
    int bestFit = -1;
    for (const char* const name : names) {
      if (random() % 4 == 0) continue;
      const auto parts = version();
      const bool isFilter = random() % 4 != 0;
      std::string text = "10/02/2025,";
      for (const WORD part : parts) text += std::to_string(part) + ".";
      Inf(name, text, isFilter ? "qro_ztl" : "qro_ztlm");
      if (!isFilter || bestFit == 4) continue;
      const auto same = std::mismatch(parts.begin(), parts.end(), driver.begin()).first - parts.begin();
      const int fit = same < 2 ? 1 : static_cast<int>(same);
      if (fit < bestFit) continue;
      bestFit = fit;
      best = name;
    }
    EXPECT_EQ(Find(), best);
  }
  ztl::OpenModuleLog();
}

TEST_F(MiniportInfTest, TheMiniportInfIsInstalledFromTheMedia) {
  Driver({4, 17, 0, 18806});
  Write(root_ / "Package/ztl2000m.inf", "[Version]\nSignature=$CHICAGO$\n");
  Inf("oem0.inf", "d,4.17.0.18000", "other");
  Write(inf_ / "oem1.inf", "broken [");
  Inf("oem2.inf", "10/02/2025, 4.17.0.18806", "qro_ztl",
      "[InfSourcePathInfo]\nOriginalInfSourcePath = %1%\n[Strings]\n1=C:\\Package\n");
  EXPECT_EQ(ztl::HrCopyMiniportInf(), S_OK);
  EXPECT_EQ(
      TakeLog(),
      (Strings{"File Version <4.17.0.18806> Build# 4976 Path <C:\\Windows\\System32\\drivers\\ztl2000.sys>",
               "Calling HrGetPnpID C:\\Windows\\Inf\\oem0.inf", "Calling HrGetPnpID C:\\Windows\\Inf\\oem2.inf",
               "INF Version <10/02/2025, 4.17.0.18806> Build# 4976 Path <C:\\Windows\\Inf\\oem2.inf>",
               "HrGetProtocolInf: 1st choice INF C:\\Windows\\Inf\\oem2.inf", "HrGetProtocolInf: rc=0",
               "Media root directory is C:\\Package.", "Calling SetupCopyOEMInf for C:\\Package\\ztl2000m.inf."}));
  const std::string miniport = ReadFile(root_ / "Package/ztl2000m.inf");
  EXPECT_EQ(ReadFile(inf_ / "oem3.inf"), miniport);
  EXPECT_FALSE(fs::exists(inf_ / "ztl2000m.inf"));

  const struct {
    simulation::WindowsVersion version;
    bool isCopied;
  } versions[] = {{{5, 0, 1, 2}, true}, {{5, 0, 2, 2}, false}, {{5, 1, 0, 2}, false}, {{5, 0, 1, 1}, false}};
  for (const auto& [version, isCopied] : versions) {
    machine_.version = version;
    Write(inf_ / "ZTL2000M.INF", "older");
    EXPECT_EQ(ztl::HrCopyMiniportInf(), S_OK);
    EXPECT_EQ(ReadFile(inf_ / "ZTL2000M.INF"), isCopied ? miniport : "older");
  }
  EXPECT_FALSE(fs::exists(inf_ / "oem4.inf"));  // the same file is there already
}

// Nobody knows why, or the list has become longer: what is not there is not read.
TEST_F(MiniportInfTest, AListThatCannotBeHadEndsTheSearch) {
  Inf("oem0.inf", "d,1");
  const auto lengthen = [this](Operation operation, const simulation::Arguments&) {
    if (operation == Operation::CoTaskMemAlloc) Inf("oem1.inf", "d,1");
    return false;
  };
  for (const std::uint64_t call : {1, 2}) {
    machine_.faults = {{.operation = Operation::SetupGetInfFileListW, .first = call, .code = 0}};
    char16_t* path = nullptr;
    EXPECT_EQ(ztl::HrGetProtocolInf(kInfDirectory, &path), 0);
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(TakeLog(), Strings{call == 1 ? "HrGetProtocolInf: SetupGetInfFileListW rc=0"
                                           : "HrGetProtocolInf: SetupGetInfFileListW 2 rc=0"});
  }
  machine_.faults = {{.matches = lengthen}};
  EXPECT_EQ(Find(), "8007007a");
  EXPECT_EQ(TakeLog(), Strings{"HrGetProtocolInf: SetupGetInfFileListW 2 rc=8007007a"});
}

TEST_F(MiniportInfTest, WhatIsMissingEndsTheCopyWithItsCode) {
  EXPECT_EQ(ztl::HrCopyMiniportInf(), HresultFromError(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(TakeLog(), (Strings{"HrGetProtocolInf: HrGetPnpID file not found", "HrGetProtocolInf: rc=80070002"}));
  Inf("oem7.inf", "d,1");
  EXPECT_EQ(ztl::HrCopyMiniportInf(), ERROR_LINE_NOT_FOUND);
  EXPECT_EQ(TakeLog().back(),
            "HrGetKeyValue: SetupFindFirstLineW section <InfSourcePathInfo> key <OriginalInfSourcePath> rc=e0000102");
  Inf("oem7.inf", "d,1", "qro_ztl", "[InfSourcePathInfo]\nOriginalInfSourcePath=C:\\Gone\\\n");
  machine_.version = {5, 0, 0, 2};
  EXPECT_EQ(ztl::HrCopyMiniportInf(), HresultFromError(ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(TakeLog().back(), "Calling SetupCopyOEMInf for C:\\Gone\\ztl2000m.inf.");
  machine_.files.windowsDirectory.clear();
  EXPECT_LT(ztl::HrCopyMiniportInf(), 0);
}

// What a file says of the lengths of its version block and of the value in it is not believed beyond the block.
TEST_F(MiniportInfTest, DamagedVersionBlocksAreReadAsFarAsTheyGo) {
  constexpr DWORD kWhole = 0x04110000;
  const struct {
    std::map<std::ptrdiff_t, char> changes;  // the block begins 40 bytes before its fixed information
    DWORD version;
  } cases[] = {{{{-38, 51}}, 0},
               {{{-38, 0}}, 0},
               {{{-37, '\x7F'}}, kWhole},
               {{{-40, 60}, {-39, 0}}, kWhole},
               {{{-34, 'X'}}, kWhole}};
  for (const auto& c : cases) {
    Driver({4, 17, 0, 1}, c.changes);
    DWORD build = 0;
    EXPECT_EQ(ztl::GetFileVersion(u"C:\\Windows\\System32\\", ztl::kDriverFile, &build), c.version) << &c - cases;
    EXPECT_EQ(build, c.version == 0 ? 0u : 1u);
    EXPECT_EQ(TakeLog().size(), 1u);
  }
  Driver({4, 17, 0, 1});
  EXPECT_EQ(ztl::GetFileVersion(u"C:\\Windows\\System32", ztl::kDriverFile, nullptr), 0x04110000u);
  EXPECT_EQ(TakeLog().back(), "File Version <4.17.0.1> Build# 0 Path <C:\\Windows\\System32\\drivers\\ztl2000.sys>");
  const std::u16string longPath = u"C:\\Windows\\" + std::u16string(300, u'x');
  EXPECT_EQ(ztl::GetFileVersion(longPath.c_str(), ztl::kDriverFile, nullptr), 0u);
}

// Every call of the search fails once: nothing is left, and what had been found before memory ran out is found.
TEST_F(MiniportInfTest, EveryCallMayFail) {
  Driver({4, 17, 0, 18806});
  Write(root_ / "Package/ztl2000m.inf", "[Version]\nSignature=$CHICAGO$\n");
  for (const char* const name : {"oem1.inf", "oem2.inf"})
    Inf(name, "d,4.17.0.18000", "qro_ztl", "[InfSourcePathInfo]\nOriginalInfSourcePath=C:\\Package\n");
  const auto isLogging = [](Operation operation, const simulation::Arguments&) {
    return operation >= Operation::RegOpenKeyExW && operation <= Operation::WriteStandardOutput;
  };
  const std::uint64_t calls = [&] {
    machine_.faults = {{.first = UINT64_MAX, .matches = std::not_fn(isLogging)}};
    EXPECT_EQ(ztl::HrCopyMiniportInf(), S_OK);
    return machine_.faults.front().seen;
  }();
  ASSERT_GT(calls, 40u);
  std::map<HRESULT, int> results;
  for (std::uint64_t call = 1; call <= calls; ++call) {
    machine_.faults = {{.first = call, .code = ERROR_ACCESS_DENIED, .matches = std::not_fn(isLogging)}};
    ++results[ztl::HrCopyMiniportInf()];
    ExpectNothingLeft();
  }
  EXPECT_GT(results[HresultFromError(ERROR_ACCESS_DENIED)], 3);

  const struct {
    std::uint64_t allocation;
    std::string line, found;
  } steps[] = {{1, "HrGetProtocolInf: CoTaskMemAlloc not enough memory", "80070008"},
               {3, "HrGetProtocolInf: CoTaskMemAlloc 2 not enough memory", "80070002"},
               {7, "HrGetProtocolInf: CoTaskMemAlloc 2 not enough memory", "oem1.inf80070008"},
               {10, "HrGetProtocolInf: CoTaskMemAlloc 3 not enough memory", "80070008"}};
  TakeLog();
  ASSERT_TRUE(fs::exists(inf_ / "oem0.inf"));  // the miniport's: its path is the third
  for (const auto& step : steps) {
    machine_.faults = {{.operation = Operation::CoTaskMemAlloc, .first = step.allocation}};
    EXPECT_EQ(Find(), step.found);
    const Strings errors = LogErrors();
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors.front(), step.line);
    TakeLog();
  }
}

}  // namespace
