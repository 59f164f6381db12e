#include "module/log/format.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using ztl::Format;

template <std::size_t Capacity, class... Arguments>
std::string Text(std::type_identity_t<ztl::CheckedFormat<char, Arguments...>> format, Arguments... arguments) {
  char buffer[Capacity];
  const std::size_t length = Format(buffer, format, arguments...);
  EXPECT_EQ(length, std::string(buffer).size());
  return buffer;
}

TEST(Format, ConvertsNumbersAndTexts) {
  EXPECT_EQ(Text<64>("%u %d %x %X %lX", 4294967295u, -17, 0xBEEFu, 0xBEEFu, 0x80004005u),
            "4294967295 -17 beef BEEF 80004005");
  EXPECT_EQ(Text<64>("%x %u", -1, 0), "ffffffff 0");
  EXPECT_EQ(Text<64>("0x%08x|%5d|%-5d|%05d", 0x20001u, -42, -42, -42), "0x00020001|  -42|-42  |-0042");
  EXPECT_EQ(Text<64>("%d", static_cast<std::int32_t>(0x80000000u)), "-2147483648");
  EXPECT_EQ(Text<64>("%8.8s:%8.8s:%-6s|%.2s 100%%", "ztli64x", "CRITICALLY", "ab", "xyz"),
            " ztli64x:CRITICAL:ab    |xy 100%");
  EXPECT_EQ(Text<64>("%s %S", static_cast<const char*>(nullptr), static_cast<const char16_t*>(nullptr)),
            "(null) (null)");
}

TEST(Format, WideTextBecomesUtf8) {
  const char16_t lone[] = {u'a', 0xD800, u'b', 0xDC00, 0};
  EXPECT_EQ(Text<64>("<%S>", u"Größe 网卡 \U0001F600"), "<Größe 网卡 \U0001F600>");
  EXPECT_EQ(Text<64>("%S", static_cast<const char16_t*>(lone)), "a\uFFFDb\uFFFD");
  EXPECT_EQ(Text<64>("%.2S|", u"a\U0001F600bc"), "a\uFFFD|");
  char16_t wide[64];
  Format(wide, u"%s|%S|%d", u"网", "Größe \xFF\xED\xA0\x80\xC3", 7);
  EXPECT_EQ(std::u16string(wide), u"网|Größe \uFFFD\uFFFD\uFFFD\uFFFD\uFFFD|7");
}

TEST(Format, WhatDoesNotFitIsCutAtACharacterAndKeepsItsLineFeed) {
  EXPECT_EQ(Text<5>("%s", "abcdef"), "abcd");
  EXPECT_EQ(Text<5>("abcdef %u", 1u), "abcd");
  EXPECT_EQ(Text<5>("%s\n", "abcdef"), "abc\n");
  EXPECT_EQ(Text<5>("%s\n", "abc"), "abc\n");
  EXPECT_EQ(Text<5>("%u\n", 123456u), "123\n");
  EXPECT_EQ(Text<5>("%S", u"ab网"), "ab");           // three bytes in two places
  EXPECT_EQ(Text<5>("%s", "ab\xE7\xBD\x91"), "ab");  // the same as 8-bit text
  EXPECT_EQ(Text<5>("%s", "a\U00010000"), "a");
  EXPECT_EQ(Text<5>("%S%s", u"ab网", "c"), "ab");                            // nothing follows what was cut
  EXPECT_EQ(Text<5>("%s", "\x85\x85\x85\x85\x85\x85"), "\x85\x85\x85\x85");  // no UTF-8, so cut anywhere
  for (const auto& [text, bytes] : {std::pair(u"abc\u00E9", 2u), {u"abc\uFFFF", 3u}, {u"abc\U00010000", 4u}}) {
    EXPECT_EQ(Text<5>("%S", text), "abc");
    EXPECT_EQ(Text<6>("%S", text).size(), bytes > 2 ? 3u : 5u);
    EXPECT_EQ(Text<7>("%S", text).size(), bytes > 3 ? 3u : 3 + bytes);
    EXPECT_EQ(Text<8>("%S", text).size(), 3 + bytes);
  }
  char16_t wide[4];
  EXPECT_EQ(Format(wide, u"ab%s", u"\U0001F600"), 2u);
  EXPECT_EQ(Format(wide, u"ab%s", u"\uFFFF"), 3u);
  EXPECT_EQ(Format(wide, u"ab%S", "\xEF\xBF\xBF"), 3u);
  EXPECT_EQ(Format(wide, u"ab%S", "\xF0\x90\x80\x80"), 2u);
}

}  // namespace
