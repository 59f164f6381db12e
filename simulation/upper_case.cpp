// Upper case as the registry compares names: unit by unit, from a table that is built once.
#include "simulation/upper_case.h"

#include <array>
#include <cstddef>

#ifdef _WIN32
#include <windows.h>
#else
#include <locale.h>
#include <wctype.h>
#endif

namespace simulation {
namespace {

using Table = std::array<char16_t, 0x10000>;

#ifdef _WIN32

char16_t Mapped(char16_t character) {
  const wchar_t from = static_cast<wchar_t>(character);
  wchar_t to = from;
  ::LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, &from, 1, &to, 1);
  return static_cast<char16_t>(to);
}

Table MakeTable() {
  Table table;
  for (std::size_t unit = 0; unit < table.size(); ++unit) table[unit] = Mapped(static_cast<char16_t>(unit));
  return table;
}

#else

// Windows maps a character only when lower case leads back to it: neither the dotless i (to I) nor the micro sign (to
// the Greek letter) has an upper case there. With this rule the table is the one that LCMapStringW has.
char16_t Mapped(char16_t character, locale_t locale) {
  const wint_t upper = towupper_l(character, locale);
  const bool isUnit = upper <= 0xFFFF && (upper < 0xD800 || upper > 0xDFFF);
  return isUnit && towlower_l(upper, locale) == character ? static_cast<char16_t>(upper) : character;
}

Table MakeTable() {
  Table table;
  const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);  // without it, only ASCII has two cases
  for (std::size_t unit = 0; unit < table.size(); ++unit) {
    const char16_t character = static_cast<char16_t>(unit);
    table[unit] = locale ? Mapped(character, locale) : character;
  }
  if (locale) freelocale(locale);
  return table;
}

#endif

}  // namespace

char16_t UpperCaseBeyondAscii(char16_t character) {
  static const Table table = MakeTable();
  return table[character];
}

std::u16string UpperCase(std::u16string_view text) {
  std::u16string upper(text);
  for (char16_t& character : upper) character = UpperCase(character);
  return upper;
}

}  // namespace simulation
