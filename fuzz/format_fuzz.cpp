// A format and its arguments are made from the input. What it gives is what the C library's formatting gives, as 8-bit
// and as wide text; what does not fit is cut at a character's boundary and keeps its line feed.
#include <deque>

#include "fuzz/fuzz.h"
#include "module/log/format.h"
#include "simulation/text_encoding.h"

namespace {

using simulation::Utf16ToUtf8;
using simulation::Utf8ToUtf16;

// By the C library.
template <class Argument>
std::string Reference(const std::string& conversion, Argument argument) {
  char formatted[2048];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(formatted, sizeof formatted, conversion.c_str(), argument);
#pragma GCC diagnostic pop
  ZTL_HOLDS(length >= 0 && static_cast<std::size_t>(length) < sizeof formatted);
  return {formatted, static_cast<std::size_t>(length)};
}

// A format, its arguments and what becomes of them.
template <class Char>
struct Case {
  std::basic_string<Char> format, whole;
  std::vector<ztl::FormatArgument> arguments;

  void Check(std::size_t capacity) {
    arguments.emplace_back(0);
    std::vector<Char> buffer(capacity, Char('?'));
    const std::size_t length = ztl::FormatText(buffer.data(), capacity, format.c_str(), arguments.data());
    const std::basic_string<Char> text(buffer.data(), length);
    ZTL_HOLDS(length < capacity && buffer[length] == 0);
    if (whole.size() < capacity) return ZTL_HOLDS(text == whole);
    const std::size_t lineFeed = format.ends_with(Char('\n')) ? 1 : 0, kept = length - lineFeed;
    ZTL_HOLDS(whole.starts_with(text.substr(0, kept)) && text.substr(kept) == whole.substr(whole.size() - lineFeed));
    // As much as fits, but for the beginning of a character.
    ZTL_HOLDS(length + 4 / sizeof(Char) >= capacity);
    if constexpr (sizeof(Char) == 1) ZTL_HOLDS(simulation::IsUtf8(text));
  }
};

}  // namespace

void ztl_fuzz::Check(std::string_view bytes) {
  Input input(bytes);
  const std::size_t capacity = input.Below(256) + 2;
  Case<char> narrow;
  Case<char16_t> wide;
  std::deque<std::string> texts;
  std::deque<std::u16string> wideTexts;
  const auto add = [&](const std::string& conversion, const std::string& whole) {
    narrow.format += conversion, narrow.whole += whole;
    wide.format += Utf8ToUtf16(conversion), wide.whole += Utf8ToUtf16(whole);
  };
  for (int parts = 0; parts < 12 && !input.Empty(); ++parts) {
    const std::size_t kind = input.Below(8), flags = input.Below(4), width = input.Below(256);
    std::string conversion = flags == 3 ? "%-0" : flags == 2 ? "%0" : flags == 1 ? "%-" : "%";
    if (width % 2 != 0) conversion += std::to_string(width / 2 + 1);
    if (kind == 0) {
      flags < 2 ? add("%%", "%") : add("\n", "\n");
    } else if (kind < 3) {
      std::uint32_t number = 0;
      for (int i = 0; i < 4; ++i) number = number << 8 | static_cast<std::uint32_t>(input.Byte());
      conversion += "udxX"[input.Below(4)];
      add(conversion, Reference(conversion, number));
      narrow.arguments.emplace_back(number);
      wide.arguments.emplace_back(number);
    } else {
      // Valid UTF-8 without a NUL.
      const std::string_view taken = input.Bytes(input.Below(64));
      const std::u16string& text16 = wideTexts.emplace_back(Utf8ToUtf16(taken.substr(0, taken.find('\0'))));
      const std::string& text = texts.emplace_back(Utf16ToUtf8(text16));
      // Widths and precisions count units: the same in both forms for ASCII alone.
      const bool isAscii = text16.size() == text.size();
      if (kind == 3 && text.find('%') == text.npos) {
        add(text, text);
      } else if (kind < 6) {
        add("%S", text);
        narrow.arguments.emplace_back(text16.c_str());
        wide.arguments.emplace_back(text.c_str());
      } else {
        if (!isAscii || flags > 1) conversion = "%";
        if (isAscii && kind == 7) conversion += "." + std::to_string(width / 4);
        conversion += 's';
        add(conversion, Reference(conversion, text.c_str()));
        narrow.arguments.emplace_back(text.c_str());
        wide.arguments.emplace_back(text16.c_str());
      }
    }
  }
  narrow.Check(capacity);
  wide.Check(capacity);
}
