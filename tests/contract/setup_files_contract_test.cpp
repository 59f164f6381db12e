// What every implementation of the setup-file, version and copy operations answers. Where Wine is known to differ from
// Windows, a test leaves the difference open and says so.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/setup_files.h"
#include "platform/system_info.h"
#include "platform/text.h"
#include "platform/version_info.h"
#include "tests/contract/contract_fixture.h"
#include "tests/support/built_file.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// Files below a directory of each test, which comes and goes with it.
class SetupFilesContract : public Contract {
 protected:
  SetupFilesContract() {
    const std::string name = "ztl-setup-" + std::to_string(std::random_device()());
#ifdef ZTL_CONTRACT_WINDOWS
    root_ = fs::path("C:\\") / name;
    path_ = u"C:\\" + fs::path(name).u16string();
#else
    machine_.files.root = fs::temp_directory_path() / name;
    root_ = machine_.files.root / "files";
    path_ = u"C:\\files";
#endif
    fs::create_directories(root_);
  }
  ~SetupFilesContract() override {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
#ifndef ZTL_CONTRACT_WINDOWS
    fs::remove_all(machine_.files.root, ignored);
    EXPECT_TRUE(machine_.openInfs.empty() && machine_.globalMemory.empty());
#endif
  }

  std::u16string Write(const std::u16string& name, const std::string& bytes) {
    std::ofstream(root_ / name, std::ios::binary) << bytes;
    return path_ + u"\\" + name;
  }
  static std::string Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  fs::path root_;        // on the host
  std::u16string path_;  // the same as the boundary knows it
};

const std::string kHead = "[Version]\nSignature=\"$Windows NT$\"\n";

std::u16string Wide(const std::string& text) { return {text.begin(), text.end()}; }

std::string Utf16(const std::string& text) {
  std::string bytes = "\xFF\xFE";
  for (const char c : text) (bytes += c) += '\0';
  return bytes;
}

// The fields of a line from 0 on, "-" for a key that it lacks.
std::vector<std::u16string> Fields(const INFCONTEXT& line) {
  std::vector<std::u16string> fields;
  for (DWORD field = 0;; ++field) {
    char16_t text[600];
    DWORD size = 0;
    if (SetupGetStringFieldW(&line, field, text, 600, &size)) {
      fields.emplace_back(text);
      EXPECT_EQ(size, fields.back().size() + 1);
    } else if (field == 0) {
      fields.emplace_back(u"-");
    } else {
      return fields;  // Windows says ERROR_INVALID_PARAMETER, Wine nothing
    }
  }
}

TEST_F(SetupFilesContract, LinesAreReadAsTheirWriterMeant) {
  using List = std::vector<std::u16string>;
  struct Case {
    std::string text;
    const char16_t* key;                // in section A; null for its first line
    List fields;                        // empty: there is no such line
    const char16_t* profile = nullptr;  // the value that GetPrivateProfileStringW gives for the key
  };
  const Case cases[] = {
      {"[A]\na=1,,3,\n", u"A", {u"a", u"1", u"", u"3", u""}, u"1,,3,"},
      {"[A]\nk,1,2\n", nullptr, {u"-", u"k", u"1", u"2"}},
      {"[A]\nk,1,2\n", u"k", {}},
      {"[A]\n a \n", u"a", {u"a", u"a"}},
      {"[A]\n\"a\"=\"x\"\"y\"z,\"\"\"\",\"b\" c \n", u"a", {u"a", u"x\"yz", u"\"", u"b c"}},
      {"[A]\na=\"x, y \"\n", u"a", {u"a", u"x, y "}, u"x, y "},
      {"[A]\na='x'\n", u"a", {u"a", u"'x'"}, u"x"},
      {"[A]\na=b=c ; no\nb=2\n", u"a", {u"a", u"b=c"}, u"b=c ; no"},
      {"[A]\na=\";\",x;y\n", u"a", {u"a", u";", u"x"}},
      {"[A]\na=1,\\\n 2,\\ \n 3 \\;c\n4\nb=1", u"a", {u"a", u"1", u"2", u"34"}, u"1,\\"},
      {"[A]\na=1,\\\n 2,\\ \n 3 \\;c\n4\nb=1", u"b", {u"b", u"1"}, u"1"},
      {"[A]\na=c:\\x\\,1 \\ 2\n", u"a", {u"a", u"c:\\x\\", u"1 \\ 2"}},
      {"[A]\na=1\n[B]\nb=0\n[a]\nb=2\n", u"b", {u"b", u"2"}, u"~"},
      {"[A]\na=%s%,%S%,%zz%,%%,%s,x%s%y\n[Strings]\ns=\" v %t%\"\nt=1\n",
       u"a",
       {u"a", u" v %t%", u" v %t%", u"%zz%", u"%", u"%s", u"x v %t%y"},
       u"%s%,%S%,%zz%,%%,%s,x%s%y"},
      {"[Strings]\ns=a\ns=b\n[A]\n%s%=1\n", u"a", {u"a", u"1"}},
      {"[A]\na=\t1\t\r\nb=2\r\n", u"a", {u"a", u"1"}, u"1"},
      {"[A]\na=1\x1A\nb=2\n", u"b", {}},
      {"[A]\na=\xE9\x80\n", u"a", {u"a", u"\u00E9\u20AC"}, u"\u00E9\u20AC"},
      // White space beside quotes counts.
      {"[A]\na= \"\" x \"\" ,x \"\",\"\" \"\" x,\"\" \n", u"a", {u"a", u" x ", u"x ", u"  x", u""}},
      {"[A]\na= \"\" \\\n x\n", u"a", {u"a", u"x"}},
      // Numbers of directories; a string of the name comes first.
      {"[A]\na=%10 %,%0x10%,%10x%,%10%,%32768%\n[Strings]\n10=x\n",
       u"a",
       {u"a", u"%10 %", u"%0x10%", u"%10x%", u"x", u"%32768%"}},
      {"[A]\n;a=1\n", nullptr, {}},
      {"[ A ]\na=1\n", nullptr, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    // In every encoding that can hold it; initialization files know no UTF-8, though Wine reads it, and UTF-16 by its
    // mark alone.
    std::vector<std::string> files = {kHead + c.text};
    if (c.text.find("[Strings]") != std::string::npos) files[0].insert(0, "text before, \\\nthe first section\n");
    if (c.text.find('\x80') == std::string::npos) {
      files.push_back(Utf16(kHead + c.text));
      files.push_back("\xEF\xBB\xBF" + kHead + c.text);
      files.push_back(Utf16(kHead + c.text).substr(2));
    }
    for (const std::string& bytes : files) {
      const auto number = static_cast<std::size_t>(std::distance(std::begin(cases), &c));
      const std::u16string path =
          Write(Wide(std::to_string(number * 4 + static_cast<std::size_t>(&bytes - &files[0]))), bytes);
      const HINF inf = SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
      ASSERT_NE(inf, INVALID_HINF);
      INFCONTEXT line;
      const bool found = SetupFindFirstLineW(inf, u"A", c.key, &line) != 0;
      if (!found) EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LINE_NOT_FOUND));
      EXPECT_EQ(found ? Fields(line) : List(), c.fields);
      SetupCloseInfFile(inf);
      if (c.profile == nullptr || &bytes - &files[0] >= 2) continue;
      char16_t value[100];
      EXPECT_EQ(GetPrivateProfileStringW(u"A", c.key, u"~ ", value, 100, path.c_str()),
                std::u16string_view(c.profile).size());
      EXPECT_EQ(std::u16string(value), c.profile);
    }
  }
}

TEST_F(SetupFilesContract, NumbersStandForDirectories) {
  const std::u16string path =
      Write(u"numbers.inf", kHead + "[A]\n%10%\\x=%11%,%012%\\,%+17%,% 18%,%20%x,%25%,%50%,%24%,%30%\\x,%01%\\y,%1%\n");
  const HINF inf = SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
  INFCONTEXT line;
  ASSERT_TRUE(SetupFindFirstLineW(inf, u"A", nullptr, &line));
  std::vector<std::u16string> fields = Fields(line);
  SetupCloseInfFile(inf);
  char16_t windows[260];
  ASSERT_NE(GetSystemWindowsDirectoryW(windows, 260), 0u);
  std::vector<std::u16string> expected;
  for (const char16_t* const below :
       {u"\\x", u"\\System32", u"\\System32\\drivers\\", u"\\Inf", u"\\Help", u"\\Fontsx", u"", u"\\System"})
    expected.push_back(windows + std::u16string(below));
  for (const std::u16string& other : {u"C:\\"s, u"C:\\x"s, path_ + u"\\y", path_ + u"\\"}) expected.push_back(other);
  ASSERT_EQ(fields.size(), expected.size());
  // The letter case of the system's directories is its own.
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_TRUE(EqualNoCase(fields[i], expected[i])) << i << " " << ::testing::PrintToString(fields[i]);
}

TEST_F(SetupFilesContract, AnInfThatIsNoneSaysWhy) {
  const struct {
    std::string bytes;
    LSTATUS code;
    UINT line;
  } cases[] = {
      {kHead + "[A\na=1\n", ERROR_BAD_SECTION_NAME_LINE, 3},
      {";x\nxx\n" + kHead, ERROR_EXPECTED_SECTION_NAME, 2},
      {"x\n;[Strings]\n" + kHead, ERROR_EXPECTED_SECTION_NAME, 1},
      {"x\n[Strings]\n", ERROR_WRONG_INF_STYLE, 0},
      {"x\n[Strings]\n[A\n" + kHead, ERROR_BAD_SECTION_NAME_LINE, 3},
      {kHead + "a=1,\\\n2\n[" + std::string(256, 'y') + "]\n", ERROR_SECTION_NAME_TOO_LONG, 5},
      {"[Version]\nSignature=other\n", ERROR_WRONG_INF_STYLE, 0},
      {"[Version]\n", ERROR_WRONG_INF_STYLE, 0},
      {"\n", ERROR_WRONG_INF_STYLE, 0},
  };
  UINT line = 99;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes);
    const std::u16string path = Write(u"x" + Wide(std::to_string(&c - cases)) + u".inf", c.bytes);
    EXPECT_EQ(SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, &line), INVALID_HINF);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(c.code));
    EXPECT_EQ(line, c.line);
  }
  const std::pair<std::u16string, LSTATUS> missing[] = {{Write(u"empty.inf", ""), ERROR_FILE_INVALID},
                                                        {path_ + u"\\none.inf", ERROR_FILE_NOT_FOUND},
                                                        {path_ + u"\\none\\x.inf", ERROR_PATH_NOT_FOUND}};
  for (const auto& [path, code] : missing) {
    EXPECT_EQ(SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr), INVALID_HINF);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(code));
  }
}

TEST_F(SetupFilesContract, ADirectoryListsItsInfsInUpperCaseOrder) {
  for (const char16_t* const name : {u"b.inf", u"A.inf", u"a_.inf", u"aB.INF", u"a-b.inf", u"_.inf", u"\u00E9.inf",
                                     u"\u00C8.inf", u"x.txt", u"y.inf.bak"})
    Write(name, kHead);
  // A signature is all that counts, whatever stands around it.
  Write(u"behind.inf", kHead + "[x");
  Write(u"before.inf", "x\n[x\n" + kHead);
  Write(u"bare16.inf", Utf16(kHead).substr(2));  // can be opened, but is not listed, under Wine at least
  Write(u"empty.inf", "");
  Write(u"none.inf", "[Version]\nSignature=other\n");
  fs::create_directory(root_ / "dir.inf");
  DWORD size = 0;
  ASSERT_TRUE(SetupGetInfFileListW(path_.c_str(), INF_STYLE_WIN4, nullptr, 0, &size));
  std::u16string list(size, u'#');
  ASSERT_TRUE(SetupGetInfFileListW(path_.c_str(), INF_STYLE_WIN4, list.data(), size, &size));
  EXPECT_EQ(list, u"a-b.inf\0A.inf\0aB.INF\0a_.inf\0b.inf\0before.inf\0behind.inf\0_.inf\0\u00C8.inf\0\u00E9.inf\0\0"s);
}

TEST_F(SetupFilesContract, AnInstalledInfIsThereOnceUnderANameOfItsOwn) {
  char16_t windows[260];
  ASSERT_NE(GetSystemWindowsDirectoryW(windows, 260), 0u);
  const std::string bytes = kHead + "[A]\na=" + root_.string() + "\n";
  const std::u16string source = Write(u"ztl-contract.inf", bytes), same = Write(u"ztl-again.inf", bytes);
  std::u16string first;
  for (const std::u16string& path : {source, same}) {
    char16_t destination[260];
    char16_t* component = nullptr;
    DWORD size = 0;
    ASSERT_TRUE(SetupCopyOEMInfW(path.c_str(), u"D:\\media", SPOST_PATH, 0, destination, 260, &size, &component));
    if (first.empty()) first = destination;
    EXPECT_EQ(std::u16string(destination), first);
    EXPECT_EQ(size, first.size() + 1);
    EXPECT_EQ(std::u16string(component), first.substr(first.rfind(u'\\') + 1));
  }
  EXPECT_FALSE(SetupCopyOEMInfW(Write(u"bad.inf", "x").c_str(), nullptr, 0, 0, nullptr, 0, nullptr, nullptr));
  // Wine gives the first; by what is known of opening such a file, Windows may give the second.
  EXPECT_TRUE(GetLastError() == static_cast<DWORD>(ERROR_EXPECTED_SECTION_NAME) ||
              GetLastError() == static_cast<DWORD>(ERROR_WRONG_INF_STYLE));
#ifdef ZTL_CONTRACT_WINDOWS
  EXPECT_EQ(Read(first), bytes);
  fs::remove(first);
  fs::remove(fs::path(first).replace_extension(".pnf"));
#else
  EXPECT_EQ(first, std::u16string(windows) + u"\\Inf\\oem0.inf");
  EXPECT_EQ(Read(machine_.files.RealPath(first.c_str())), bytes);
  const HINF inf = SetupOpenInfFileW(first.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
  INFCONTEXT line;
  ASSERT_TRUE(SetupFindFirstLineW(inf, u"InfSourcePathInfo", u"OriginalInfSourcePath", &line));
  EXPECT_EQ(Fields(line)[1], u"D:\\media");
  SetupCloseInfFile(inf);
  // A stored form of the system's own is passed over.
  std::ofstream(machine_.files.RealPath(u"C:\\Windows\\Inf\\oem0.PNF"), std::ios::binary) << "\x01\x03\0\0"s;
  const HINF plain = SetupOpenInfFileW(first.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
  EXPECT_FALSE(SetupFindFirstLineW(plain, u"InfSourcePathInfo", nullptr, &line));
  SetupCloseInfFile(plain);
#endif
}

TEST_F(SetupFilesContract, AFileIsCopiedOverAnotherOrNot) {
  const std::u16string one = Write(u"one", "1"), two = Write(u"two", "2");
  EXPECT_FALSE(CopyFileW(one.c_str(), two.c_str(), 1));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_EXISTS});
  EXPECT_EQ(Read(root_ / "two"), "2");
  EXPECT_TRUE(CopyFileW(one.c_str(), two.c_str(), 0));
  EXPECT_EQ(Read(root_ / "two"), "1");
  EXPECT_FALSE(CopyFileW((path_ + u"\\none").c_str(), two.c_str(), 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_FALSE(CopyFileW(one.c_str(), (path_ + u"\\none\\x").c_str(), 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(SetupFilesContract, AVersionIsTheRootEntryOfItsBlock) {
  const std::string driver = Read(ztl_test::SourceFile("samples/package-4.17/ztl2000.sys"));
  // With a word of it changed; its resources begin at 0x800.
  const auto changed = [&driver](std::size_t at, WORD number) {
    std::string file = driver;
    return file.replace(at, 2, {static_cast<char>(number), static_cast<char>(number >> 8)});
  };
  constexpr std::size_t kType = 0x810, kPlace = 0x848, kSize = kPlace + 4, kBlock = 0x858;
  const struct {
    std::string file;
    bool hasVersion;
    UINT length = 0;
  } cases[] = {
      {driver, true, 52},
      {changed(kBlock, 0xFFFF), true, 52},
      {changed(kBlock, 20), true, 52},
      {changed(kBlock + 2, 0xFFFF), true, 0xFFFF},
      {changed(kBlock + 2, 0), true, 0},
      {changed(kSize, 60), true, 52},
      {changed(kType, 15), false},
      {driver.substr(0, 0x90), false},
      {"MZ", false},
      {"", false},
#ifndef ZTL_CONTRACT_WINDOWS
      // Wine reads on where such a file ends or leads in circles.
      {changed(kPlace, 0), false},
      {changed(kType + 0x1C, 24), false},
      {driver.substr(0, 0x870), false},
#endif
  };
  for (const auto& c : cases) {
    const std::u16string path = Write(u"v" + Wide(std::to_string(&c - cases)), c.file);
    SCOPED_TRACE(&c - cases);
    DWORD unused = 1;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &unused);
    ASSERT_EQ(size != 0, c.hasVersion);
    if (size == 0) {
      EXPECT_EQ(GetLastError(), DWORD{ERROR_RESOURCE_DATA_NOT_FOUND});
      continue;
    }
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
    void* const block = GlobalLock(memory);
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, size, block));
    void* value = nullptr;
    UINT length = 1;
    EXPECT_TRUE(VerQueryValueW(block, u"\\", &value, &length));
    EXPECT_EQ(length, c.length);
    if (length >= 52) EXPECT_EQ(static_cast<const VS_FIXEDFILEINFO*>(value)->dwFileVersionMS, 0x00040011u);
    EXPECT_FALSE(VerQueryValueW(block, u"\\VarFileInfo\\Nothing", &value, &length));
    EXPECT_EQ(GlobalUnlock(memory), 0);
    EXPECT_EQ(GlobalFree(memory), nullptr);
  }
  EXPECT_EQ(GetFileVersionInfoSizeW((path_ + u"\\none").c_str(), nullptr), 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

}  // namespace
}  // namespace platform
