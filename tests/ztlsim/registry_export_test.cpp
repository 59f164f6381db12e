#include "ztlsim/input/registry_export.h"

#include "tests/support/machine_fixture.h"
#include "tests/support/random_registry.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/text_encoding.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace ztlsim {
namespace {

using simulation::Registry;
using ztl_test::Dump;

const std::string kHeader = "Windows Registry Editor Version 5.00\r\n";

std::string Utf16Bytes(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

// What the export says, or what is wrong with it and then what had been read.
std::string Read(const std::string& bytes) {
  Registry registry;
  const auto error = ReadRegistryExport("t", bytes, registry);
  return (error ? error->Text() + "\n" : "") + Dump(registry.Root());
}

TEST(RegistryExport, ReadsKeysAndValues) {
  const std::pair<std::string, std::string> values[] = {
      {"  \"\" \t= \"x\"  ; remark", ":1:78000000 "},
      {R"("a\\\"b"="\\\"\n\r\0\q")", "a\\\"b:1:5c0022000a000d00000071000000 "},
      {"\"a\"=\"x\r\ny\nz\"\r\n@=hex:1", ":3:01 a:1:78000d000a0079000a007a000000 "},
      {R"("a"=DWORD: 9ABcdef ;)", "a:4:efcdab09 "},
      {"\"a\"=hex(7): ; nothing\n\"b\"=Hex( fFFFffff ):00", "a:7: b:4294967295:00 "},
      {R"("a"=hex:1,02 , aB,;)", "a:3:0102ab "},
      {"\"a\"=hex:01,\\\r\n  02,\\ ; remark\r\n\r\n ; remark\r\n\t03", "a:3:010203 "},
      {"\"a\"=hex:01\\\n,02\n\"b\"=hex:\\\n3", "a:3:0102 b:3:03 "},
      {"\"a\"=\"1\"\n\"b\"=\"\"\n\"A\"=hex:02\n\"B\"=- ; gone\n@=-", "a:3:02 "},
  };
  for (const auto& [text, dump] : values)
    EXPECT_EQ(Read(kHeader + "[hkey_Users]\n" + text), "HKEY_USERS " + dump + "\n") << text;
  const std::pair<std::string, std::string> keys[] = {
      {"[hkcc\\a b\\C]", "HKEY_CURRENT_CONFIG \nHKEY_CURRENT_CONFIG\\a b \nHKEY_CURRENT_CONFIG\\a b\\C \n"},
      {"\t[HKU\\\\a]b\\] ; remark", "HKEY_USERS \nHKEY_USERS\\a]b \n"},
      {"[HKU\\b]\n@=hex:\n[HKU\\a]\n[HKU\\B]\n\"x\"=hex:", "HKEY_USERS \nHKEY_USERS\\a \nHKEY_USERS\\b :3: x:3: \n"},
      {"[HKU\\a\\b]\n[HKU\\c]\n[-HKU\\A]\n[-HKU\\d\\e]\n[HKCC\\a]\n[-HKCC]", "HKEY_USERS \nHKEY_USERS\\c \n"},
      {"[HKCR\\a]\n[HKU\\b]\n[-HKLM\\Software\\Classes\\a]\n[-HKCR]",
       "HKEY_LOCAL_MACHINE \nHKEY_LOCAL_MACHINE\\SOFTWARE \nHKEY_USERS \nHKEY_USERS\\b \n"},
      {"[hkey_Dyn_Data\\a]\n[HKU\\a] ; see [1]\n[HKU\\b;]c] ;]",
       "HKEY_DYN_DATA \nHKEY_DYN_DATA\\a \nHKEY_USERS \nHKEY_USERS\\a \nHKEY_USERS\\b;]c \n"},
  };
  for (const auto& [text, dump] : keys) EXPECT_EQ(Read(kHeader + text), dump) << text;
}

TEST(RegistryExport, SaysWhereAndWhatIsWrong) {
  const std::string good = kHeader + "[HKU]\r\n\"good\"=hex:\r\n";
  const std::string notExport =
      "not a registry export: the first line is neither \"Windows Registry Editor Version 5.00\" nor \"REGEDIT4\", ";
  std::string deep = "HKCR";  // two levels down already
  for (int i = 0; i < 511; ++i) deep += "\\a";
  const std::pair<std::string, std::string> cases[] = {
      {"", " expected a registry export, found an empty file"},
      {"regf\1", " expected a registry export, found a binary hive: export it as text with the registry editor"},
      {"\xFF\xFE" + Utf16Bytes(u"REGEDIT4\n") + ";", " expected UTF-16 text, found half a character at the end"},
      {"MZ\x07\x1B[31m", "1: " + notExport + "found 'MZ\\x07\\x1B[31m'"},
      {kHeader + "[HKU]\n[-HKU]\n@=\"\"", "4: expected a key in brackets in front of the first value, found '@=\"\"'"},
      {kHeader + "[HKU\\a\n]", "2: expected a key's name that ends with ], found '[HKU\\a'"},
      {kHeader + "[HKU\\a]b] x", "2: expected the end of the line, found 'x'"},
      {kHeader + "[HKXX\\a]", "2: expected a hive such as HKEY_LOCAL_MACHINE, found 'HKXX\\a'"},
      {kHeader + "[HKU\\" + std::string(256, 'n') + "]",
       "2: expected a key's name of at most 255 characters, found '" + std::string(37, 'n') + "...'"},
      {kHeader + "[" + deep + "]",
       "2: expected a key at most 512 levels below its hive, found '" + deep.substr(0, 37) + "...'"},
      {good + "a=1", "4: expected a key in brackets, a value or a comment, found 'a=1'"},
      {good + "\"a\" \"x\"", "4: expected = behind the value's name, found '\"x\"'"},
      {good + "\"a\\0\"=\"x\"", "4: expected a value's name without NUL, found 'a\\x00'"},
      {good + "@=\r\n", "4: expected a text in quotes, dword:, hex: or -, found the end of the line"},
      {good + "@=-1", "4: expected the end of the line, found '1'"},
      {good + "\n\n@=\"x\ny", "6: expected a text in quotes that is closed before the end of the file, found '\"x'"},
      {good + "@=\"x\ny\" z", "5: expected the end of the line, found 'z'"},
      {good + "@=\"x" + '\0' + "\"", "4: expected a text without NUL characters, found a NUL character"},
      {good + "; x" + '\0', "4: expected a key in brackets, a value or a comment, found a NUL character"},
      {good + "@=dword:123456789", "4: expected one to eight hexadecimal digits, found '123456789'"},
      {good + "@=hex(1:", "4: expected ) behind the number of the type, found ':'"},
      {good + "@=hex 1", "4: expected : in front of the bytes, found ' 1'"},
      {good + "@=hex:1,\\\r\n 2,\\\r\n 3,[\t4", "6: expected a byte of one or two hexadecimal digits, found '[\\x094'"},
      {good + "@=hex:001", "4: expected a comma or the end of the line, found '1'"},
      {good + "@=hex:1\\ 2", "4: expected the end of the line behind \\, found '2'"},
      {good + "@=hex:1,\\\n\n", "6: expected the value's next byte, found the end of the file"},
  };
  for (const auto& [text, error] : cases)
    EXPECT_EQ(Read(text), "t:" + error + "\n" + (text.starts_with(good) ? "HKEY_USERS good:3: \n" : "")) << text;
}

// What is at a limit of the registry is written and read again; what is above it is refused.
TEST(RegistryExport, HasTheRegistrysLimits) {
  const auto key = [](std::size_t size) { return "[HKU\\" + std::string(size, 'k') + "]"; };
  const auto value = [](std::size_t size) { return "[HKU]\n\"" + std::string(size, 'v') + "\"=\"\""; };
  const auto levels = [](std::size_t size) {
    std::string path = "[HKU";
    for (; size != 0; --size) path += "\\l";
    return path + "]";
  };
  const struct {
    std::string text;
    bool isRead;
  } cases[] = {
      {key(254), true},      {key(255), true},    {key(256), false},   {value(16382), true}, {value(16383), true},
      {value(16384), false}, {levels(511), true}, {levels(512), true}, {levels(513), false},
  };
  for (const auto& c : cases) {
    Registry registry, again;
    EXPECT_EQ(!ReadRegistryExport("t", kHeader + c.text, registry), c.isRead) << &c - cases;
    EXPECT_FALSE(ReadRegistryExport("t", FormatRegistryExport(registry), again)) << &c - cases;
    EXPECT_EQ(Dump(again.Root()), Dump(registry.Root()));
  }
}

TEST(RegistryExport, ReadsEveryEncodingAndLineEnd) {
  const std::string lines = "[HKU\\k\xE9]\n\"\x80\"=\"\xE9\"\n\"m\"=hex(7):e9,00,\\\n00,00\n";  // Windows-1252
  // Version 4 holds 8-bit text in its hexadecimal data, too.
  const std::string dump = "HKEY_USERS \nHKEY_USERS\\k\u00E9 m:7:e9000000", dumpOf4 = dump + "00000000",
                    rest = " \u20AC:1:e9000000 \n";
  for (const std::string lineEnd : {"\n", "\r", "\r\n"}) {
    std::string body;
    for (const char character : lines) body += character == '\n' ? lineEnd : std::string(1, character);
    const std::u16string text = Utf8ToUtf16(kHeader) + Windows1252ToUtf16(body);
    std::u16string bigEndian = u"\xFFFE";
    for (const char16_t unit : text) bigEndian += static_cast<char16_t>(unit << 8 | unit >> 8);
    for (const std::string& bytes : {Utf16Bytes(u"\xFEFF" + text), Utf16Bytes(text), Utf16Bytes(bigEndian),
                                     "\uFEFF" + Utf16ToUtf8(text), Utf16ToUtf8(text), kHeader + body})
      EXPECT_EQ(Read(bytes), dump + rest);
    EXPECT_EQ(Read("REGEDIT4" + lineEnd + body), dumpOf4 + rest);
  }
  EXPECT_EQ(Read("REGEDIT4\n[HKU\\\u00E9]"), "HKEY_USERS \nHKEY_USERS\\\u00C3\u00A9 \n");
}

// The wrapped lines are those that Wine's registry editor writes for the same values.
TEST(RegistryExport, WritesAsTheRegistryEditor) {
  std::u16string lines =
      uR"(Windows Registry Editor Version 5.00

[HKEY_CURRENT_USER]

[HKEY_CURRENT_USER\Zt]
"c24"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,\
  17
"esc\\\"nnnnnnnnn"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,\
  12
"nn\r\nx"="\\\"$"
@=""
"d"=dword:a1020304
"d3"=hex(4):01,02,03
"t"=hex(ffffffff):41,00
"t0"=hex(0):
"none"=hex(1):
"not ended"=hex(1):41,00
"half"=hex(1):41,00,00
"two ends"=hex(1):00,00,00,00
"line break"=hex(1):0d,00,00,00

)";
  lines[lines.find(u'$')] = 0xDCDC;
  std::u16string text = u"\xFEFF";
  for (const char16_t unit : lines) text += unit == u'\n' ? u"\r\n" : std::u16string(1, unit);
  Registry registry;
  EXPECT_FALSE(ReadRegistryExport("t", Utf16Bytes(text), registry));
  registry.Link(u"HKEY_CURRENT_USER\\link", u"HKEY_CURRENT_USER\\Zt");
  EXPECT_EQ(FormatRegistryExport(registry), Utf16Bytes(text));
}

TEST(RegistryExport, ReadsWhatItWrites) {
  for (unsigned round = 0; round < 60; ++round) {
    Registry registry, copy;
    ztl_test::RandomChanges(round, 100).Make(registry, round == 0 ? 2000 : round);
    const std::string bytes = FormatRegistryExport(registry);
    ASSERT_FALSE(ReadRegistryExport("t", bytes, copy));
    ASSERT_EQ(Dump(copy.Root()), Dump(registry.Root()));
    ASSERT_EQ(FormatRegistryExport(copy), bytes);
  }
}

}  // namespace
}  // namespace ztlsim
