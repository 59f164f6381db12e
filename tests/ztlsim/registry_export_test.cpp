#include "ztlsim/registry_export.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ztlsim/text_encoding.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/resource.h>
#endif

namespace ztlsim {
namespace {

namespace fs = std::filesystem;
using platform::BYTE;
using platform::DWORD;
using platform::simulated::Registry;
using platform::simulated::RegistryKey;

constexpr char kHeader[] = "Windows Registry Editor Version 5.00\r\n";

// A line for each key, and "name:type:bytes " for each of its values.
void Dump(const RegistryKey& key, const std::string& path, std::string& result) {
  result += path + " ";
  for (const auto& value : key.values) {
    result += Utf16ToUtf8(value.name) + ":" + std::to_string(value.type) + ":";
    for (const BYTE byte : value.data) result += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    result += " ";
  }
  result += "\n";
  for (const auto& subkey : key.subkeys) Dump(*subkey, path + "\\" + Utf16ToUtf8(subkey->name), result);
}
std::string Dump(const Registry& registry) {
  std::string result;
  for (const auto& hive : registry.Root().subkeys) Dump(*hive, Utf16ToUtf8(hive->name), result);
  return result;
}

std::string Utf16Bytes(std::u16string_view text, bool bigEndian = false) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += static_cast<char>(bigEndian ? unit >> 8 : unit & 0xFF);
    bytes += static_cast<char>(bigEndian ? unit & 0xFF : unit >> 8);
  }
  return bytes;
}

// What the export says, or what is wrong with it and then what had been read.
std::string Read(const std::string& bytes) {
  Registry registry;
  const auto error = ReadRegistryExport("t", bytes, registry);
  return (error ? error->Text() + "\n" : "") + Dump(registry);
}

TEST(RegistryExport, ReadsValues) {
  const std::pair<const char*, std::string> cases[] = {
      {R"("a"="x")", "a:1:78000000 "},
      {R"(@="x")", ":1:78000000 "},
      {R"(""="x")", ":1:78000000 "},
      {"  \"a\" \t= \"x\"  ; remark", "a:1:78000000 "},
      {R"("a\\\"b"="\\\"\n\r\0\q")", "a\\\"b:1:5c0022000a000d00000071000000 "},
      {"\"a\"=\"x\r\ny\nz\"\r\n\"b\"=hex:1", "a:1:78000d000a0079000a007a000000 b:3:01 "},
      {R"("a"=dword:1f)", "a:4:1f000000 "},
      {R"("a"=DWORD: 89ABcdef ;)", "a:4:efcdab89 "},
      {R"("a"=hex:)", "a:3: "},
      {R"("a"=hex(7): ; nothing)", "a:7: "},
      {R"("a"=hex:1,02 , aB,;)", "a:3:0102ab "},
      {R"("a"=Hex(fFFFffff):00)", "a:4294967295:00 "},
      {R"("a"=hex(b):01,00,00,00,00,00,00,00)", "a:11:0100000000000000 "},
      {R"("a"=hex( 1 ):41,00)", "a:1:4100 "},
      {R"("a"=hex(4):41)", "a:4:41 "},
      {"\"a\"=hex:01,\\\r\n  02,\\ ; remark\r\n\r\n ; remark\r\n\t03", "a:3:010203 "},
      {"\"a\"=hex:01\\\n,02\n\"b\"=hex:\\\n3", "a:3:0102 b:3:03 "},
      {"\"a\"=\"1\"\n\"b\"=\"\"\n\"A\"=hex:02", "a:3:02 b:1:0000 "},
      {"\"a\"=\"1\"\n\"b\"=\"\"\n\"A\"=- ; gone", "b:1:0000 "},
      {"\"a\"=-\n@=-", ""},
  };
  for (const auto& [text, values] : cases)
    EXPECT_EQ(Read(std::string(kHeader) + "[HKU]\n" + text), "HKEY_USERS " + values + "\n") << text;
}

TEST(RegistryExport, ReadsKeys) {
  const std::pair<const char*, const char*> cases[] = {
      {"[hkey_Users]\n", "HKEY_USERS \n"},
      {"[hkcc\\a b\\C]", "HKEY_CURRENT_CONFIG \nHKEY_CURRENT_CONFIG\\a b \nHKEY_CURRENT_CONFIG\\a b\\C \n"},
      {"\t[HKU\\\\a]b\\] ; remark", "HKEY_USERS \nHKEY_USERS\\a]b \n"},
      {"[HKCU\\b]\n@=hex:\n[HKCU\\a]\n[HKCU\\B]\n\"x\"=hex:",
       "HKEY_CURRENT_USER \nHKEY_CURRENT_USER\\a \nHKEY_CURRENT_USER\\b :3: x:3: \n"},
      {"[HKCU\\a\\b]\n[HKCU\\c]\n[-HKCU\\A]\n[-HKCU\\d\\e]", "HKEY_CURRENT_USER \nHKEY_CURRENT_USER\\c \n"},
      {"[HKCU\\a]\n[-HKEY_CURRENT_USER]", ""},
      {"[HKCR\\a]\n[HKCR\\b]\n[-HKCR\\a]",
       "HKEY_LOCAL_MACHINE \nHKEY_LOCAL_MACHINE\\SOFTWARE \nHKEY_LOCAL_MACHINE\\SOFTWARE\\Classes \n"
       "HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\b \n"},
  };
  for (const auto& [text, tree] : cases) EXPECT_EQ(Read(kHeader + std::string(text)), tree) << text;
}

TEST(RegistryExport, SaysWhereAndWhatIsWrong) {
  const std::string header = kHeader;
  const std::string key = header + "[HKU]\r\n\"good\"=hex:\r\n";
  const std::string notExport =
      "t:1: not a registry export: the first line is neither \"Windows Registry Editor Version 5.00\" nor "
      "\"REGEDIT4\", found ";
  std::string deep = "HKCR";  // two levels down already
  for (int i = 0; i < 511; ++i) deep += "\\a";
  const std::pair<std::string, std::string> cases[] = {
      {"", "t: expected a registry export, found an empty file"},
      {std::string("regf\1\0\0\0", 8),
       "t: expected a registry export, found a binary hive: export it as text with the registry editor"},
      {"\r\n" + header, notExport + "the end of the line"},
      {"MZ\x07\x1B[31m", notExport + "'MZ\\x07\\x1B[31m'"},
      {header + "\"a\"=hex:", "t:2: expected a key in brackets in front of the first value, found '\"a\"=hex:'"},
      {header + "[-HKLM\\a]\n@=\"\"", "t:3: expected a key in brackets in front of the first value, found '@=\"\"'"},
      {header + "[HKLM\\a\n", "t:2: expected a key's name that ends with ], found '[HKLM\\a'"},
      {header + "[HKXX\\a]", "t:2: expected a hive such as HKEY_LOCAL_MACHINE, found 'HKXX\\a'"},
      {header + "[HKLM\\a] b", "t:2: expected the end of the line, found 'b'"},
      {header + "[HKLM\\" + std::string(256, 'n') + "]",
       "t:2: expected a key's name of at most 255 characters, found 'nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn...'"},
      {header + "[" + deep + "]",
       "t:2: expected a key at most 512 levels below its hive, found "
       "'HKCR\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\...'"},
      {key + "a=1", "t:4: expected a key in brackets, a value or a comment, found 'a=1'"},
      {key + "\"a\" \"x\"", "t:4: expected = behind the value's name, found '\"x\"'"},
      {key + "\"a\\0\"=\"x\"", "t:4: expected a value's name without NUL, found 'a\\x00'"},
      {key + "@=\r\n", "t:4: expected a text in quotes, dword:, hex: or -, found the end of the line"},
      {key + "@=-1", "t:4: expected the end of the line, found '1'"},
      {key + "\n\n@=\"x\ny", "t:6: expected a text in quotes that is closed before the end of the file, found '\"x'"},
      {key + "@=\"\\", "t:4: expected a text in quotes that is closed before the end of the file, found '\"\\'"},
      {key + "@=\"x\ny\" z", "t:5: expected the end of the line, found 'z'"},
      {key + "@=\"x" + '\0' + "\"", "t:4: expected a text without NUL characters, found a NUL character"},
      {key + "; x" + '\0', "t:4: expected a key in brackets, a value or a comment, found a NUL character"},
      {key + "@=dword:123456789", "t:4: expected one to eight hexadecimal digits, found '123456789'"},
      {key + "@=dword:1 2", "t:4: expected the end of the line, found '2'"},
      {key + "@=hex(1:", "t:4: expected ) behind the number of the type, found ':'"},
      {key + "@=hex 1", "t:4: expected : in front of the bytes, found ' 1'"},
      {key + "@=hex:1,\\\r\n 2,\\\r\n 3,x\t4",
       "t:6: expected a byte of one or two hexadecimal digits, found 'x\\x094'"},
      {key + "@=hex:001", "t:4: expected a comma or the end of the line, found '1'"},
      {key + "@=hex:1\\ 2", "t:4: expected the end of the line behind \\, found '2'"},
      {key + "@=hex:1,\\\n\n", "t:6: expected the value's next byte, found the end of the file"},
      {key + "@=hex:1,\\\n[HKLM\\U]", "t:5: expected a byte of one or two hexadecimal digits, found '[HKLM\\U]'"},
      {"\xFF\xFE" + Utf16Bytes(u"REGEDIT4\n") + ";", "t: expected UTF-16 text, found half a character at the end"},
  };
  for (const auto& [text, error] : cases)
    EXPECT_EQ(Read(text), error + "\n" + (text.starts_with(key) ? "HKEY_USERS good:3: \n" : "")) << text;
}

TEST(RegistryExport, ReadsEveryEncodingAndLineEnd) {
  const std::string lines = "[HKCU\\k\xE9]\n\"\x80\"=\"\xE9\"\n\"m\"=hex(7):e9,00,\\\n00,00\n";  // Windows-1252
  for (const std::string lineEnd : {"\n", "\r", "\r\n"}) {
    std::string body;
    for (const char character : lines) body += character == '\n' ? lineEnd : std::string(1, character);
    const std::u16string text = Utf8ToUtf16(kHeader) + Windows1252ToUtf16(body);
    for (const std::string& bytes : {
             "\xFF\xFE" + Utf16Bytes(text),
             Utf16Bytes(text),
             "\xFE\xFF" + Utf16Bytes(text, true),
             "\xEF\xBB\xBF" + Utf16ToUtf8(text),
             Utf16ToUtf8(text),
             kHeader + body,
             "REGEDIT4" + lineEnd + body,
         }) {
      // Version 4 holds 8-bit text in its hexadecimal data, too.
      const std::string data = bytes.starts_with("REGEDIT4") ? "e900000000000000" : "e9000000";
      EXPECT_EQ(Read(bytes), "HKEY_CURRENT_USER \nHKEY_CURRENT_USER\\k\u00E9 \u20AC:1:e9000000 m:7:" + data + " \n");
    }
  }
}

TEST(RegistryExport, ConvertsText) {
  const std::pair<const char*, std::u16string_view> invalid[] = {
      {"a\xC0\x80z", u"a\xFFFD\xFFFDz"},
      {"\xE2\x82", u"\xFFFD"},
      {"\xE2\x82z", u"\xFFFDz"},
      {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},
      {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
      {"\x80", u"\xFFFD"},
      {"\xF0\x9F\x98", u"\xFFFD"},
      {"12345678\xFF", u"12345678\xFFFD"},
  };
  for (const auto& [utf8, utf16] : invalid) {
    EXPECT_EQ(Utf8ToUtf16(utf8), utf16);
    EXPECT_FALSE(IsUtf8(utf8));
  }
  const std::string valid = "a\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF";
  EXPECT_TRUE(IsUtf8(valid));
  EXPECT_EQ(Utf8ToUtf16(valid), u"a\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF");
  EXPECT_EQ(Utf16ToUtf8(Utf8ToUtf16(valid)), valid);
  const char16_t lone[] = {u'a', 0xDC00, 0xD800, u'b', 0xD801};
  EXPECT_EQ(Utf16ToUtf8({lone, 5}), "a\uFFFD\uFFFDb\uFFFD");
  EXPECT_EQ(Windows1252ToUtf16("\x7F\x80\x81\x9F\xA0\xFF"), u"\u007F\u20AC\u0081\u0178\u00A0\u00FF");
}

// The wrapped lines are those that Wine's registry editor writes for the same values.
TEST(RegistryExport, WritesAsTheRegistryEditor) {
  std::vector<BYTE> bytes(60);
  std::iota(bytes.begin(), bytes.end(), BYTE{0});
  const auto first = [&](int count) { return std::vector<BYTE>(bytes.begin(), bytes.begin() + count); };
  Registry registry;
  registry.Create(u"HKEY_CURRENT_USER\\Zt").values = {
      {u"c23", platform::REG_BINARY, first(23)},
      {u"c24", platform::REG_BINARY, first(24)},
      {u"esc\\\"nnnnnnnnnn", platform::REG_BINARY, bytes},
      {std::u16string(70, u'n'), platform::REG_MULTI_SZ, first(2)},
      {u"nn\r\nx", platform::REG_SZ, {0x5C, 0, 0x22, 0, 0xDC, 0xDC, 0, 0}},
      {u"", platform::REG_SZ, {0, 0}},
      {u"d", platform::REG_DWORD, {4, 3, 2, 0xA1}},
      {u"t", 0xFFFFFFFF, {0x41, 0}},
      {u"t12", 0x12, {}},
      {u"d3", platform::REG_DWORD, {1, 2, 3}},
      {u"s0", platform::REG_SZ, {}},
      {u"s1", platform::REG_SZ, {0}},
      {u"s2", platform::REG_SZ, {65, 0}},
      {u"s3", platform::REG_SZ, {65, 0, 0}},
      {u"s4", platform::REG_SZ, {0, 0, 0, 0}},
      {u"s5", platform::REG_SZ, {13, 0, 0, 0}},
  };
  registry.Create(u"HKEY_CURRENT_USER\\a\\b");
  registry.Create(u"HKEY_CURRENT_USER\\v").isVolatile = true;
  registry.Link(u"HKEY_CURRENT_USER\\a\\link", u"HKEY_CURRENT_USER\\v");

  const std::u16string expected =
      uR"([HKEY_CURRENT_USER]

[HKEY_CURRENT_USER\a]

[HKEY_CURRENT_USER\a\b]

[HKEY_CURRENT_USER\v]

[HKEY_CURRENT_USER\Zt]
"c23"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16
"c24"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,\
  17
"esc\\\"nnnnnnnnnn"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,\
  12,13,14,15,16,17,18,19,1a,1b,1c,1d,1e,1f,20,21,22,23,24,25,26,27,28,29,2a,\
  2b,2c,2d,2e,2f,30,31,32,33,34,35,36,37,38,39,3a,3b
")" + std::u16string(70, u'n') +
      uR"("=hex(7):00,\
  01
"nn\r\nx"="\\\")" +
      std::u16string(1, 0xDCDC) +
      uR"("
@=""
"d"=dword:a1020304
"t"=hex(ffffffff):41,00
"t12"=hex(12):
"d3"=hex(4):01,02,03
"s0"=hex(1):
"s1"=hex(1):00
"s2"=hex(1):41,00
"s3"=hex(1):41,00,00
"s4"=hex(1):00,00,00,00
"s5"=hex(1):0d,00,00,00

)";
  std::u16string windowsLines = u"\xFEFFWindows Registry Editor Version 5.00\r\n\r\n";
  for (const char16_t unit : expected) windowsLines += unit == u'\n' ? u"\r\n" : std::u16string(1, unit);
  EXPECT_EQ(FormatRegistryExport(registry), Utf16Bytes(windowsLines));
}

TEST(RegistryExport, ReadsWhatItWrites) {
  std::mt19937 random(20240607);
  const auto below = [&](std::size_t end) { return static_cast<std::size_t>(random() % end); };
  const auto name = [&](std::u16string_view letters, std::size_t longest) {
    std::u16string text(below(longest + 1), u'\0');
    for (char16_t& unit : text) unit = letters[below(letters.size())];
    return text;
  };
  const std::u16string keyLetters = u"aAb][-;=@\" \t\x00E9\x20AC\xD800\xDC00\xFEFF";
  for (int round = 0; round < 60; ++round) {
    Registry registry;
    std::vector<RegistryKey*> keys{&registry.Create(u"HKEY_USERS"), &registry.Create(u"HKEY_LOCAL_MACHINE")};
    for (std::size_t i = below(40); i > 0; --i) {
      keys.push_back(&keys[below(keys.size())]->CreateSubkey(u"k" + name(keyLetters, 6)));
      for (std::size_t values = below(round == 0 ? 400 : 8); values > 0; --values) {
        const DWORD types[] = {1, 1, 1, 2, 3, 4, 7, 11, 0x1F, 0xFFFF0000};
        std::vector<BYTE> data(below(2) != 0 ? 4 : below(200));
        for (BYTE& byte : data) byte = static_cast<BYTE>(below(4) != 0 ? 0 : random());
        keys.back()->SetValue(name(keyLetters + u"\\\r\n", 90), types[below(std::size(types))], data);
      }
    }
    Registry copy;
    const std::string bytes = FormatRegistryExport(registry);
    const auto error = ReadRegistryExport("t", bytes, copy);
    ASSERT_FALSE(error) << error->Text();
    ASSERT_EQ(Dump(copy), Dump(registry));
    ASSERT_EQ(FormatRegistryExport(copy), bytes);
  }
}

class RegistryExportFile : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(directory_);
    fs::create_directories(directory_);
  }
  void TearDown() override { fs::remove_all(directory_); }
  std::string At(const char* name) const { return (directory_ / name).string(); }

  const fs::path directory_ = fs::path(::testing::TempDir()) / "ztlsim_registry_export_test";
};

TEST_F(RegistryExportFile, IsWrittenAndReadWhole) {
  Registry registry;
  registry.Create(u"HKEY_USERS\\big").SetValue(u"b", platform::REG_BINARY, std::vector<BYTE>(700000, 0xAB));
  for (int twice = 0; twice < 2; ++twice) {  // the second time there is an earlier file
    EXPECT_EQ(WriteFileWhole(At("a.reg"), FormatRegistryExport(registry)), std::nullopt);
    Registry copy;
    EXPECT_FALSE(ReadRegistryExport(At("a.reg"), copy));
    EXPECT_EQ(Dump(copy), Dump(registry));
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(directory_), {}), 1);

  EXPECT_EQ(ReadRegistryExport(At(""), registry)->message, "expected a registry export, found a directory");
  EXPECT_EQ(ReadRegistryExport(At("none"), registry)->Text(),
            At("none") + ": cannot be opened: No such file or directory");
  EXPECT_EQ(WriteFileWhole(At("none/a"), "x"), At("none/a") + ": No such file or directory");
  EXPECT_TRUE(WriteFileWhole(At("."), "x"));
}

#ifndef _WIN32
std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(RegistryExportFile, LeavesTheEarlierFileWhenItFails) {
  ASSERT_EQ(WriteFileWhole(At("a"), "earlier"), std::nullopt);
  const auto earlierAction = signal(SIGXFSZ, SIG_IGN);
  rlimit earlierLimit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &earlierLimit), 0);
  const rlimit limit{4096, earlierLimit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const auto error = WriteFileWhole(At("a"), std::string(10000, 'x'));
  setrlimit(RLIMIT_FSIZE, &earlierLimit);
  signal(SIGXFSZ, earlierAction);
  EXPECT_EQ(error, At("a") + ": File too large");
  EXPECT_EQ(ReadFile(At("a")), "earlier");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory_), {}), 1);
}

TEST_F(RegistryExportFile, KeepsDevicesLinksAndPermissions) {
  EXPECT_EQ(WriteFileWhole("/dev/full", "x"), "/dev/full: No space left on device");
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  ASSERT_EQ(WriteFileWhole(At("target"), "earlier"), std::nullopt);
  fs::permissions(At("target"), fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink(At("target"), At("link"));
  EXPECT_EQ(WriteFileWhole(At("link"), "linked"), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(At("link")));
  EXPECT_EQ(ReadFile(At("target")), "linked");
  EXPECT_EQ(WriteFileWhole(At("target"), "x"), std::nullopt);
  EXPECT_EQ(fs::status(At("target")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}
#endif

}  // namespace
}  // namespace ztlsim
