#include "simulation/text_encoding.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace simulation {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kInvalid = 0xFFFFFFFF;

// Takes one character from the front of `text`, which is not empty. From an invalid sequence it takes the longest
// beginning of a valid one, at least a byte, and gives kInvalid.
char32_t TakeUtf8(std::string_view& text) {
  const auto lead = static_cast<unsigned char>(text.front());
  text.remove_prefix(1);
  if (lead < 0x80) return lead;
  if (lead < 0xC2 || lead > 0xF4) return kInvalid;
  const int following = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  // The range of the second byte shuts out overlong forms, surrogates and what lies beyond U+10FFFF.
  unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  char32_t character = lead & (0x3Fu >> following);
  for (int i = 0; i < following; ++i) {
    if (text.empty()) return kInvalid;
    const auto byte = static_cast<unsigned char>(text.front());
    if (byte < low || byte > high) return kInvalid;
    text.remove_prefix(1);
    character = character << 6 | (byte & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return character;
}

bool IsHighSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
bool IsLowSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

void AppendUtf8(std::string& result, char32_t character) {
  const auto put = [&](char32_t byte) { result.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
  if (character < 0x80) {
    put(character);
    return;
  }
  if (character < 0x800) {
    put(0xC0 | character >> 6);
  } else {
    if (character < 0x10000) {
      put(0xE0 | character >> 12);
    } else {
      put(0xF0 | character >> 18);
      put(0x80 | (character >> 12 & 0x3F));
    }
    put(0x80 | (character >> 6 & 0x3F));
  }
  put(0x80 | (character & 0x3F));
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view text) {
  std::u16string result;
  result.reserve(text.size());
  while (!text.empty()) {
    char32_t character = TakeUtf8(text);
    if (character == kInvalid) character = kReplacement;
    if (character >= 0x10000) {
      result.push_back(static_cast<char16_t>(0xD7C0 + (character >> 10)));
      character = 0xDC00 | (character & 0x3FF);
    }
    result.push_back(static_cast<char16_t>(character));
  }
  return result;
}

std::string Utf16ToUtf8(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t character = text[i];
    if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      character = 0x10000 + ((character & 0x3FF) << 10 | (text[++i] & 0x3FFu));
    } else if (IsHighSurrogate(text[i]) || IsLowSurrogate(text[i])) {
      character = kReplacement;
    }
    AppendUtf8(result, character);
  }
  return result;
}

std::u16string Windows1252ToUtf16(std::string_view text) {
  static constexpr char16_t kFrom80[32] = {
      0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
      0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
      0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
  };
  std::u16string result;
  result.reserve(text.size());
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    result.push_back(byte >= 0x80 && byte < 0xA0 ? kFrom80[byte - 0x80] : byte);
  }
  return result;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    std::uint64_t eight = 0;
    while (text.size() >= sizeof eight) {  // ASCII, eight bytes at a time
      std::memcpy(&eight, text.data(), sizeof eight);
      if ((eight & 0x8080808080808080u) != 0) break;
      text.remove_prefix(sizeof eight);
    }
    if (!text.empty() && TakeUtf8(text) == kInvalid) return false;
  }
  return true;
}

}  // namespace simulation
