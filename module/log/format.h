// Bounded printf-style formatting, the same on every system.
//
// Understood: %s and %S (text), %u %d %x %X with an optional l or h (numbers of up to 32 bits, signed as their argument
// is), %%; flags 0 and -, width and precision (of text in the text's own units). A null text is "(null)". In an 8-bit
// format %s takes 8-bit text and %S UTF-16 text; in a wide format it is the other way round. 8-bit text is UTF-8: what
// is converted never loses a character, but for lone surrogates, which become U+FFFD.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace ztl {

// One argument: text by pointer (it must outlive the call), or a 32-bit number.
struct FormatArgument {
  enum class Kind : std::uint8_t { Number, Text8, Text16 };

  constexpr FormatArgument(const char* text) : kind(Kind::Text8), text8(text) {}
  constexpr FormatArgument(const char16_t* text) : kind(Kind::Text16), text16(text) {}
  template <class T>
  requires((std::integral<T> || std::is_enum_v<T>)&&sizeof(T) <= 4) constexpr FormatArgument(T value)
      : kind(Kind::Number), number(static_cast<std::uint32_t>(value)) {}

  Kind kind;
  union {
    const char* text8;
    const char16_t* text16;
    std::uint32_t number;
  };
};

// One conversion of a format, as both the check and the formatting read it.
struct Conversion {
  bool leftAlign = false;
  bool zeroPad = false;
  std::size_t width = 0;
  std::size_t precision = static_cast<std::size_t>(-1);
  char type = 0;  // 0: not understood
};

// Reads the conversion that follows a '%' and moves `format` past it.
template <class Char>
constexpr Conversion ReadConversion(const Char*& format) {
  Conversion conversion;
  for (; *format == Char('-') || *format == Char('0'); ++format)
    (*format == Char('-') ? conversion.leftAlign : conversion.zeroPad) = true;
  auto digits = [&format] {
    std::size_t value = 0;
    for (; *format >= Char('0') && *format <= Char('9'); ++format)
      value = value * 10 + static_cast<std::size_t>(*format - Char('0'));
    return value;
  };
  conversion.width = digits();
  if (*format == Char('.')) {
    ++format;
    conversion.precision = digits();
  }
  if (*format == Char('l') || *format == Char('h')) ++format;
  for (const char* type = "sSudxX%"; *type != 0; ++type)
    if (*format == Char(*type)) conversion.type = *type;
  if (conversion.type != 0) ++format;
  return conversion;
}

void FormatDoesNotMatchItsArguments();  // never defined: a call during compilation is the compiler's error message

// A format that was checked against its arguments when the code was compiled.
template <class Char, class... Arguments>
class CheckedFormat {
 public:
  template <std::size_t Size>
  consteval CheckedFormat(const Char (&text)[Size]) : text_(text) {
    using Kind = FormatArgument::Kind;
    constexpr std::size_t count = sizeof...(Arguments);
    const Kind kinds[count + 1] = {KindOf<Arguments>()..., Kind::Number};
    std::size_t used = 0;
    for (const Char* at = text; *at != 0;) {
      if (*at++ != Char('%')) continue;
      const Conversion conversion = ReadConversion(at);
      if (conversion.type == '%') continue;
      const bool native = conversion.type == 's';
      const bool isText = native || conversion.type == 'S';
      const Kind wanted = !isText ? Kind::Number : native == (sizeof(Char) == 1) ? Kind::Text8 : Kind::Text16;
      if (conversion.type == 0 || used >= count || kinds[used] != wanted) FormatDoesNotMatchItsArguments();
      ++used;
    }
    if (used != count) FormatDoesNotMatchItsArguments();
  }

  const Char* Text() const { return text_; }

 private:
  template <class T>
  static consteval FormatArgument::Kind KindOf() {
    if constexpr (std::is_convertible_v<T, const char*>) return FormatArgument::Kind::Text8;
    if constexpr (std::is_convertible_v<T, const char16_t*>) return FormatArgument::Kind::Text16;
    return FormatArgument::Kind::Number;
  }

  const Char* text_;
};

// Formats into `buffer` of `capacity` characters, at least 2, and ends it with a NUL. Returns the length without it.
// Text that does not fit is cut at a character's boundary, and still ends in its line feed when the format ends in one.
// `arguments` has an entry for each conversion of the format, in its order; CheckedFormat holds callers to that.
std::size_t FormatText(char* buffer, std::size_t capacity, const char* format, const FormatArgument* arguments);
std::size_t FormatText(char16_t* buffer, std::size_t capacity, const char16_t* format, const FormatArgument* arguments);

template <std::size_t Capacity, class Char, class... Arguments>
std::size_t Format(Char (&buffer)[Capacity], std::type_identity_t<CheckedFormat<Char, Arguments...>> format,
                   Arguments... arguments) {
  const FormatArgument list[] = {FormatArgument(arguments)..., FormatArgument(0)};
  return FormatText(buffer, Capacity, format.Text(), list);
}

}  // namespace ztl
