#include "module/log/format.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/unicode.h"

namespace ztl {

using namespace platform;

namespace {

// Appends to a buffer and takes nothing more after the first character that does not fit whole.
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

// Reads one character before `end` and moves past it; anything malformed is U+FFFD. A unit that starts no character
// counts by itself.
template <class Char>
char32_t NextCharacter(const Char*& text, const Char* end) {
  const Char* const start = text;
  char32_t character;
  if (!Decode(text, end, character)) text = start + 1;
  return character;
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
      Char encoded[4 / sizeof(Char)];
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
