#include "module/log/format.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace ztl {
namespace {

// Appends to a buffer and stops for good at the first character that does not fit whole.
template <class Char>
class Output {
 public:
  Output(Char* buffer, std::size_t capacity) : buffer_(buffer), capacity_(capacity) {}

  std::size_t Length() const { return length_; }
  bool Full() const { return full_; }

  void Append(const Char* text, std::size_t length) {
    const std::size_t fits = capacity_ - length_;
    if (full_) return;
    if (length > fits) {
      full_ = true;
      length = CharacterBoundary(text, fits);
    }
    std::memcpy(buffer_ + length_, text, length * sizeof(Char));
    length_ += length;
  }

  void Pad(std::size_t length, std::size_t width, char fill) {
    const Char unit = static_cast<Char>(fill);
    for (; length < width && !full_; ++length) Append(&unit, 1);
  }

 private:
  // The last start of a character up to `length`; `length` itself where the text is no proper UTF-8 or UTF-16.
  static std::size_t CharacterBoundary(const Char* text, std::size_t length) {
    constexpr std::size_t kLongest = sizeof(Char) == 1 ? 3 : 1;  // units that continue a character
    for (std::size_t back = 0; back <= std::min(kLongest, length); ++back)
      if (!ContinuesCharacter(text[length - back])) return length - back;
    return length;
  }
  static bool ContinuesCharacter(Char unit) {
    if constexpr (sizeof(Char) == 1) return (static_cast<unsigned char>(unit) & 0xC0) == 0x80;
    return (unit & 0xFC00) == 0xDC00;
  }

  Char* buffer_;
  std::size_t capacity_;
  std::size_t length_ = 0;
  bool full_ = false;
};

// Reads one character before `end` and moves past it; anything malformed is U+FFFD. An 8-bit unit that starts no
// character of UTF-8 counts by itself.
char32_t NextCharacter(const char16_t*& text, const char16_t* end) {
  const char16_t first = *text++;
  if ((first & 0xF800) != 0xD800) return first;
  if ((first & 0xFC00) == 0xDC00 || text == end || (*text & 0xFC00) != 0xDC00) return 0xFFFD;
  return 0x10000 + ((char32_t{first} & 0x3FF) << 10) + (*text++ & 0x3FF);
}

char32_t NextCharacter(const char*& text, const char* end) {
  const auto first = static_cast<unsigned char>(*text++);
  if (first < 0x80) return first;
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (first < 0xC2 || first > 0xF4) return 0xFFFD;
  char32_t character = first & (0x3Fu >> more);
  const char* at = text;
  for (int i = 0; i < more; ++i, ++at) {
    if (at == end || (static_cast<unsigned char>(*at) & 0xC0) != 0x80) return 0xFFFD;
    character = (character << 6) | (static_cast<unsigned char>(*at) & 0x3F);
  }
  const char32_t smallest[] = {0, 0x80, 0x800, 0x10000};
  if (character < smallest[more] || character > 0x10FFFF || (character & 0xFFFFF800) == 0xD800) return 0xFFFD;
  text = at;
  return character;
}

std::size_t Encode(char32_t character, char16_t* out) {
  if (character < 0x10000) {
    out[0] = static_cast<char16_t>(character);
    return 1;
  }
  out[0] = static_cast<char16_t>(0xD7C0 + (character >> 10));
  out[1] = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
  return 2;
}

std::size_t Encode(char32_t character, char* out) {
  if (character < 0x80) {
    out[0] = static_cast<char>(character);
    return 1;
  }
  const std::size_t length = character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
  for (std::size_t i = length - 1; i > 0; --i, character >>= 6) out[i] = static_cast<char>(0x80 | (character & 0x3F));
  out[0] = static_cast<char>((0xF00u >> length) | character);
  return length;
}

template <class Char, class Source>
void AppendText(Output<Char>& output, const Conversion& conversion, const Source* text) {
  static constexpr Source kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
  if (text == nullptr) text = kNull;
  std::size_t length = 0;
  while (length < conversion.precision && text[length] != 0) ++length;
  if (!conversion.leftAlign) output.Pad(length, conversion.width, ' ');
  if constexpr (sizeof(Char) == sizeof(Source)) {
    output.Append(text, length);
  } else {
    for (const Source* const end = text + length; text != end && !output.Full();) {
      Char encoded[4];
      output.Append(encoded, Encode(NextCharacter(text, end), encoded));
    }
  }
  if (conversion.leftAlign) output.Pad(length, conversion.width, ' ');
}

template <class Char>
void AppendNumber(Output<Char>& output, const Conversion& conversion, std::uint32_t number) {
  const bool negative = conversion.type == 'd' && static_cast<std::int32_t>(number) < 0;
  if (negative) number = 0u - number;
  const std::uint32_t base = conversion.type == 'x' || conversion.type == 'X' ? 16 : 10;
  const char* const digits = conversion.type == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  Char text[11];
  Char* first = text + 11;
  do {
    *--first = static_cast<Char>(digits[number % base]);
    number /= base;
  } while (number != 0);
  const bool zeros = conversion.zeroPad && !conversion.leftAlign;
  const Char minus = '-';
  if (negative && zeros) output.Append(&minus, 1);
  const auto length = static_cast<std::size_t>(text + 11 - first) + (negative ? 1 : 0);
  if (!conversion.leftAlign) output.Pad(length, conversion.width, zeros ? '0' : ' ');
  if (negative && !zeros) output.Append(&minus, 1);
  output.Append(first, static_cast<std::size_t>(text + 11 - first));
  if (conversion.leftAlign) output.Pad(length, conversion.width, ' ');
}

template <class Char>
std::size_t FormatAny(Char* buffer, std::size_t capacity, const Char* format, const FormatArgument* argument) {
  std::size_t formatLength = std::char_traits<Char>::length(format);
  // The line feed at a format's end has room of its own, so that a text that is cut still ends its line.
  const bool lineFeed = formatLength > 0 && format[formatLength - 1] == Char('\n');
  const Char* const end = format + formatLength - (lineFeed ? 1 : 0);
  Output<Char> output(buffer, capacity - (lineFeed ? 2 : 1));
  while (format != end && !output.Full()) {
    const Char* plain = format;
    while (plain != end && *plain != Char('%')) ++plain;
    output.Append(format, static_cast<std::size_t>(plain - format));
    format = plain;
    if (format == end) break;
    ++format;
    const Conversion conversion = ReadConversion(format);
    if (conversion.type == '%') {
      output.Append(plain, 1);
      continue;
    }
    switch (argument->kind) {
      case FormatArgument::Kind::Number:
        AppendNumber(output, conversion, argument->number);
        break;
      case FormatArgument::Kind::Text8:
        AppendText(output, conversion, argument->text8);
        break;
      case FormatArgument::Kind::Text16:
        AppendText(output, conversion, argument->text16);
        break;
    }
    ++argument;
  }
  std::size_t length = output.Length();
  if (lineFeed) buffer[length++] = Char('\n');
  buffer[length] = 0;
  return length;
}

}  // namespace

std::size_t FormatText(char* buffer, std::size_t capacity, const char* format, const FormatArgument* arguments) {
  return FormatAny(buffer, capacity, format, arguments);
}

std::size_t FormatText(char16_t* buffer, std::size_t capacity, const char16_t* format,
                       const FormatArgument* arguments) {
  return FormatAny(buffer, capacity, format, arguments);
}

}  // namespace ztl
