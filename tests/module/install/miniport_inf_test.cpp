#include "module/install/miniport_inf.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <optional>

#include "module/install/versions.h"
#include "module/names.h"
#include "module/notify/module_log.h"
#include "simulation/text_encoding.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace platform;
using namespace ztl_test;
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
  // An INF of a component; the rest of its text comes after it.
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
      {{{4, 17, 0, 18806}}, {{"OEM1.inf", "d,4.16.0.1", "4th"}, {"oem2.inf", "d,5.0.0.1", "4th"}}, "oem2.inf"},
      {{{4, 17, 0, 18806}}, {{"OEM1.inf", "d, 4. 17.0.18806.1", "1st"}, {"Zt.inf", "d,4.17.0.18806", ""}}, "OEM1.inf"},
      {{{4, 17, 0, 18806}}, {{"oem1.inf", "d,4.17.2.1", "3rd"}, {"oem2.inf", "d,4.17.3.1", "3rd"}}, "oem2.inf"},
      {{{4, 17, 0, 0}}, {{"oem1.inf", "4.17.0", "4th"}, {"oem2.inf", "d,4.17", "1st"}}, "oem2.inf"},  // no comma
      {{{300, 17, 0, 5}}, {{"oem1.inf", "d,44.17.0.5", "1st"}}, "oem1.inf"},
      {{{255, 17, 0, 5}}, {{"oem1.inf", "d,2147483648.17.0.5", "1st"}}, "oem1.inf"},  // the largest there is
      {{{4, 17, 0, 65535}}, {{"oem1.inf", "d,4.17.0.-1", "2st"}}, "oem1.inf"},
      {{{0, 0, 1, 0}}, {{"oem1.inf", "", "3rd"}}, "oem1.inf"},
      {{{0, 0, 0, 9}}, {{"oem1.inf", "d,4.17", ""}}, "oem1.inf"},  // all zero counts as none
      {{{4, 17, 0, 12}}, {{"oem1.inf", std::string(249, 'x') + ",4.17.0.12", "1st"}}, "oem1.inf"},
      {{{4, 17, 0, 12}}, {{"oem1.inf", std::string(250, 'x') + ",4.17.0.12", "2st"}}, "oem1.inf"},  // cut after 259
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

TEST_F(MiniportInfTest, TheMiniportInfIsInstalledFromTheMedia) {
  Driver({4, 17, 0, 18806});
  Write(root_ / "Package/ztl2000m.inf", "[Version]\nSignature=$CHICAGO$\n");
  Inf("oem0.inf", "d,4.17.0.18000", "other");
  Write(inf_ / "oem1.inf", "broken [");
  Inf("oem2.inf", "10/02/2025, 4.17.0.18806", "qro_ztl",
      "[InfSourcePathInfo]\nOriginalInfSourcePath = %1%\n[Strings]\n1=C:\\Package\n");
  std::int64_t mediaType = 0;
  machine_.observer = [&](simulation::Operation operation, const simulation::Arguments& a) {
    if (operation == simulation::Operation::SetupCopyOEMInfW) mediaType = a.flags;
  };
  EXPECT_EQ(ztl::HrCopyMiniportInf(), S_OK);
  machine_.observer = nullptr;
  EXPECT_EQ(
      TakeLog(),
      (Strings{"File Version <4.17.0.18806> Build# 4976 Path <C:\\Windows\\System32\\drivers\\ztl2000.sys>",
               "Calling HrGetPnpID C:\\Windows\\Inf\\oem0.inf", "Calling HrGetPnpID C:\\Windows\\Inf\\oem2.inf",
               "INF Version <10/02/2025, 4.17.0.18806> Build# 4976 Path <C:\\Windows\\Inf\\oem2.inf>",
               "HrGetProtocolInf: 1st choice INF C:\\Windows\\Inf\\oem2.inf", "HrGetProtocolInf: rc=0",
               "Media root directory is C:\\Package.", "Calling SetupCopyOEMInf for C:\\Package\\ztl2000m.inf."}));
  const std::string miniport = ReadFile(root_ / "Package/ztl2000m.inf");
  EXPECT_EQ(mediaType, DWORD{SPOST_PATH});
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

TEST_F(MiniportInfTest, APathOf259CharactersIsTheLongestThatIsKept) {
  if (fs::path::preferred_separator == '\\') return;  // below the drive's directory, that host has no paths so long
  Driver({4, 17, 0, 1});
  for (const std::size_t length : {258u, 259u, 260u}) {
    const std::string folder(length - std::size(kInfDirectory) - 8, 'd');  // a backslash for a NUL, and oem1.inf
    const std::string text = folder.substr(0, 120) + "/" + folder.substr(121);
    Inf(text + "/oem1.inf", "d,4.17.0.2");
    Inf(text + "/zt.inf", "d,4.16");  // fits worse, but always
    std::u16string directory = kInfDirectory + std::u16string(text.begin(), text.end());
    directory[std::size(kInfDirectory) - 1 + 120] = u'\\';
    char16_t* path = nullptr;
    EXPECT_EQ(ztl::HrGetProtocolInf(directory.c_str(), &path), S_OK);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(std::u16string_view(path).size(), length < 260 ? length : 258);
    CoTaskMemFree(path);
    fs::remove_all(inf_ / folder.substr(0, 120));
  }
}

// What the system says may have changed when it is asked again, and a failure may come without a code.
TEST_F(MiniportInfTest, AnAnswerThatChangesEndsTheSearch) {
  using simulation::Operation;
  Inf("oem1.inf", "d,4.17");
  const struct {
    Operation operation;
    std::uint64_t call;
    std::function<void()> change;
    HRESULT result;
    Strings log;
  } cases[] = {
      {Operation::GetSystemWindowsDirectoryW,
       2,
       [&] { machine_.files.windowsDirectory += "x"; },
       HresultFromError(ERROR_INSUFFICIENT_BUFFER),
       {}},
      {Operation::SetupGetInfFileListW,
       2,
       [&] { Inf("oem2.inf", "d,4.17"); },
       HresultFromError(ERROR_INSUFFICIENT_BUFFER),
       {"HrGetProtocolInf: SetupGetInfFileListW 2 rc=8007007a"}},
      {Operation::SetupGetInfFileListW,
       1,
       [&] { machine_.faults = {{.operation = Operation::SetupGetInfFileListW, .code = 0}}; },
       S_OK,
       {"HrGetProtocolInf: SetupGetInfFileListW rc=0"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    std::uint64_t calls = 0;
    machine_.observer = [&](Operation operation, const simulation::Arguments&) {
      if (operation == c.operation && ++calls == c.call) c.change();
    };
    EXPECT_EQ(ztl::HrCopyMiniportInf(), c.result);
    machine_.observer = nullptr;
    machine_.faults.clear();
    machine_.files.windowsDirectory = "C:\\Windows";
    EXPECT_EQ(LogErrors(), c.log);
    TakeLog();
    EXPECT_EQ(machine_.Calls(Operation::SetupCopyOEMInfW), 0u);
  }
}

TEST_F(MiniportInfTest, AFieldThatCannotBeReadIsLogged) {
  Inf("oem1.inf", "d,4.17");
  const HINF inf = SetupOpenInfFileW(u"C:\\Windows\\Inf\\oem1.inf", nullptr, INF_STYLE_WIN4, nullptr);
  const struct {
    const char16_t* section;
    const char16_t* key;
    bool noMemory;
    HRESULT result;
    std::string line;
  } cases[] = {
      {u"Models", nullptr, false, S_OK, ""},
      {u"Models", u"None", false, ERROR_LINE_NOT_FOUND,
       "   INFO: HrGetKeyValue: SetupFindFirstLineW section <Models> key <None> rc=e0000102\r\n"},
      {u"Version", nullptr, false, HresultFromError(ERROR_INVALID_PARAMETER),
       "   INFO: HrGetKeyValue: SetupGetStringFieldW index 2 rc=80070057\r\n"},
      {u"Models", nullptr, true, HresultFromError(ERROR_NOT_ENOUGH_MEMORY),
       "  ERROR: HrGetKeyValue: CoTaskMemAlloc not enough memory\r\n"},
  };
  for (const auto& c : cases) {
    if (c.noMemory) machine_.faults = {{.operation = simulation::Operation::CoTaskMemAlloc, .code = 1}};
    char16_t* value = nullptr;
    EXPECT_EQ(ztl::HrGetKeyValue(inf, c.section, c.key, 2, &value), c.result);
    EXPECT_EQ(value == nullptr ? u"" : std::u16string(value), c.result == S_OK ? u"qro_ztl" : u"");
    CoTaskMemFree(value);
    machine_.faults.clear();
    const std::string log = ReadFile(LogPath());
    EXPECT_EQ(log.substr(log.size() - c.line.size()), c.line);
    EXPECT_EQ(TakeLog().size(), c.line.empty() ? 0u : 1u);
  }
  SetupCloseInfFile(inf);
}

// Whatever a file says of the lengths of its version block and of the value in it, nothing beyond the block is read.
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
  EXPECT_EQ(ztl::ParseVersion(u"\t\r 4. 17", nullptr), 0x04110000u);
  const std::u16string longPath = u"C:\\Windows\\" + std::u16string(300, u'x');
  EXPECT_EQ(ztl::GetFileVersion(longPath.c_str(), ztl::kDriverFile, nullptr), 0u);
}

}  // namespace
