#include "ztlsim/input/registry_export.h"

#include "tests/support/machine_fixture.h"
#include "tests/support/random_registry.h"
#include "tests/support/transcript.h"
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

TEST(RegistryExport, IsReadOrRefusedAsWritten) {
  ztl_test::ExpectTranscript("tests/ztlsim/registry_exports.txt", [](const std::string& text) {
    return Read(text[0] == '~' ? kHeader + text.substr(1) : text);
  });
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
    const auto error = ReadRegistryExport("t", kHeader + c.text, registry);
    EXPECT_EQ(!error, c.isRead) << &c - cases;

    if (error) EXPECT_TRUE(error->line >= 2 && error->message.find("at most ") != std::string::npos) << error->Text();
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

}  // namespace
}  // namespace ztlsim
