// Characters of UTF-16 and UTF-8, one at a time and without memory of their own.
#pragma once

#include <cstddef>

namespace platform {

constexpr char32_t kReplacementCharacter = 0xFFFD;

// Decode reads the character at `text`, which is before `end`, and moves past it. For an invalid sequence it returns
// false with U+FFFD, past the longest beginning of a valid sequence, at least one unit: a lone surrogate, in UTF-16.
constexpr bool Decode(const char16_t*& text, const char16_t* end, char32_t& character) {
  character = *text++;
  if ((character & 0xF800) != 0xD800) return true;
  if ((character & 0xFC00) == 0xD800 && text != end && (*text & 0xFC00) == 0xDC00) {
    character = 0x10000 + ((character & 0x3FF) << 10 | (*text++ & 0x3FFu));
    return true;
  }
  character = kReplacementCharacter;
  return false;
}

constexpr bool Decode(const char*& text, const char* end, char32_t& character) {
  const auto lead = static_cast<unsigned char>(*text++);
  character = lead;
  if (lead < 0x80) return true;
  character = kReplacementCharacter;
  if (lead < 0xC2 || lead > 0xF4) return false;
  const int following = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  // The range of the second byte excludes overlong forms, surrogates and all above U+10FFFF.
  unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  char32_t decoded = lead & (0x3Fu >> following);
  for (int i = 0; i < following; ++i) {
    if (text == end) return false;
    const auto byte = static_cast<unsigned char>(*text);
    if (byte < low || byte > high) return false;
    ++text;
    decoded = decoded << 6 | (byte & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  character = decoded;
  return true;
}

// Encode writes the character, at most U+10FFFF, and returns the number of units.
constexpr std::size_t Encode(char32_t character, char16_t (&units)[2]) {
  if (character < 0x10000) {
    units[0] = static_cast<char16_t>(character);
    return 1;
  }
  units[0] = static_cast<char16_t>(0xD7C0 + (character >> 10));
  units[1] = static_cast<char16_t>(0xDC00 | (character & 0x3FF));
  return 2;
}

constexpr std::size_t Encode(char32_t character, char (&units)[4]) {
  if (character < 0x80) {
    units[0] = static_cast<char>(character);
    return 1;
  }
  const std::size_t length = character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
  for (std::size_t i = length - 1; i > 0; --i, character >>= 6) units[i] = static_cast<char>(0x80 | (character & 0x3F));
  units[0] = static_cast<char>((0xF00u >> length) | character);
  return length;
}

}  // namespace platform
