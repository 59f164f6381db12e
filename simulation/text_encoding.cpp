#include "simulation/text_encoding.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/unicode.h"

namespace simulation {
namespace {

template <class To, std::size_t Units, class From>
std::basic_string<To> Convert(std::basic_string_view<From> text) {
  std::basic_string<To> result;
  result.reserve(text.size());
  for (const From *at = text.data(), *const end = at + text.size(); at != end;) {
    char32_t character;
    platform::Decode(at, end, character);
    To units[Units];
    result.append(units, platform::Encode(character, units));
  }
  return result;
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view text) { return Convert<char16_t, 2>(text); }
std::string Utf16ToUtf8(std::u16string_view text) { return Convert<char, 4>(text); }

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
    if (text.empty()) break;
    const char* at = text.data();
    char32_t character;
    if (!platform::Decode(at, at + text.size(), character)) return false;
    text.remove_prefix(static_cast<std::size_t>(at - text.data()));
  }
  return true;
}

}  // namespace simulation
