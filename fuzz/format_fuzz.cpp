// A format and its arguments are made from the input. What it gives is what the C library's formatting gives, as 8-bit
// and as wide text; what does not fit is cut at a character's boundary and keeps its line feed.
#include <cstdarg>

#include "fuzz/fuzz.h"
#include "module/log/format.h"
#include "simulation/text_encoding.h"

namespace {

using simulation::Utf16ToUtf8;
using simulation::Utf8ToUtf16;

// Valid UTF-8 without a NUL: widths count its bytes.
std::string Text(ztl_fuzz::Input& input) {
  const std::string_view bytes = input.Bytes(input.Below(64));
  return Utf16ToUtf8(Utf8ToUtf16(bytes.substr(0, bytes.find('\0'))));
}

// By the C library. `text` is for %s.
std::string Reference(const std::string& conversion, const char* text, std::uint32_t number) {
  char formatted[2048];
  const bool isText = conversion.back() == 's';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = isText ? std::snprintf(formatted, sizeof formatted, conversion.c_str(), text)
                            : std::snprintf(formatted, sizeof formatted, conversion.c_str(), number);
#pragma GCC diagnostic pop
  ZTL_HOLDS(length >= 0 && static_cast<std::size_t>(length) < sizeof formatted);
  return {formatted, static_cast<std::size_t>(length)};
}

template <class Char>
void Check(const std::basic_string<Char>& format, const std::vector<ztl::FormatArgument>& arguments,
           const std::basic_string<Char>& whole, std::size_t capacity) {
  std::vector<Char> buffer(capacity, Char('?'));
  const std::size_t length = ztl::FormatText(buffer.data(), capacity, format.c_str(), arguments.data());
  const std::basic_string<Char> text(buffer.data(), length);
  ZTL_HOLDS(length < capacity && buffer[length] == 0);
  const std::size_t lineFeed = format.ends_with(Char('\n')) ? 1 : 0;
  if (whole.size() < capacity) return ZTL_HOLDS(text == whole);
  const std::size_t kept = length - lineFeed;
  ZTL_HOLDS(whole.starts_with(text.substr(0, kept)) && text.substr(kept) == whole.substr(whole.size() - lineFeed));
  // As much as fits, but for the beginning of a character.
  if constexpr (sizeof(Char) == 1) {
    ZTL_HOLDS(simulation::IsUtf8(text) && length + 4 >= capacity);
  } else {
    ZTL_HOLDS(length + 2 >= capacity);
  }
}

}  // namespace

std::vector<std::string> ztl_fuzz::Seeds() {
  using namespace std::string_literals;
  return {"\x40\x01s\x08\0\x05hello\x02x\x08\x01\xFF\xFF\xFF\xFF"s,
          "\x10\x03\x04"
          "d\x05\x02\0\0\0\x80"s,
          "\x06\x08S\0\0\x06\xE2\x82\xAC\xF0\x9F\x98\x80"s, "\x09\x01%u\x03\0\x01\x02\x03\x04n"s};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ztl_fuzz::Input input(data, size);
  const std::size_t capacity = input.Below(256) + 2;
  std::string format, whole;
  std::u16string wideFormat, wideWhole;
  std::vector<std::string> texts;
  std::vector<std::u16string> wideTexts;
  texts.reserve(16);
  wideTexts.reserve(16);
  std::vector<ztl::FormatArgument> arguments, wideArguments;
  const auto plain = [&](const std::string& text, const std::string& written) {
    format += written;
    wideFormat += Utf8ToUtf16(written);
    whole += text;
    wideWhole += Utf8ToUtf16(text);
  };
  for (int parts = 0; parts < 12 && !input.Empty(); ++parts) {
    const std::size_t kind = input.Below(8);
    if (kind == 0) plain("%", "%%");
    if (kind == 1) plain("\n", "\n");
    if (kind == 2) {
      std::string text = Text(input);
      std::erase(text, '%');
      plain(text, text);
    }
    if (kind < 3) continue;
    const char* const flags[] = {"", "-", "0", "-0"};
    const bool isText = kind < 6;
    std::string conversion = "%" + std::string(flags[input.Below(isText ? 2 : 4)]);
    const std::size_t width = input.Below(256);
    // A text that is converted has another length: no width, no precision.
    const bool isConverted = kind == 5;
    if (!isConverted && width % 2 != 0) conversion += std::to_string(width / 2 + 1);
    if (!isText) {
      conversion += "udxX"[input.Below(4)];
      std::uint32_t number = 0;
      for (int i = 0; i < 4; ++i) number = number << 8 | static_cast<std::uint32_t>(input.Byte());
      const std::string text = Reference(conversion, nullptr, number);
      plain(text, conversion);
      arguments.emplace_back(number);
      wideArguments.emplace_back(number);
      continue;
    }
    texts.push_back(Text(input));
    wideTexts.push_back(Utf8ToUtf16(texts.back()));
    if (isConverted) {
      plain(texts.back(), "%S");
      arguments.emplace_back(wideTexts.back().c_str());
      wideArguments.emplace_back(texts.back().c_str());
      continue;
    }
    // In units of the text: the same in both forms for ASCII alone.
    const bool isAscii = wideTexts.back().size() == texts.back().size();
    if (!isAscii) conversion = "%";
    if (isAscii && kind == 4) conversion += "." + std::to_string(width / 4);
    conversion += 's';
    plain(Reference(conversion, texts.back().c_str(), 0), conversion);
    arguments.emplace_back(texts.back().c_str());
    wideArguments.emplace_back(wideTexts.back().c_str());
  }
  arguments.emplace_back(0);
  wideArguments.emplace_back(0);
  Check(format, arguments, whole, capacity);
  Check(wideFormat, wideArguments, wideWhole, capacity);
  return 0;
}
