// Upper case as the registry compares names.
#pragma once

#include <string>
#include <string_view>

namespace simulation {

char16_t UpperCaseBeyondAscii(char16_t character);

inline char16_t UpperCase(char16_t character) {
  if (character >= 0x80) return UpperCaseBeyondAscii(character);
  return character >= u'a' && character <= u'z' ? static_cast<char16_t>(character - 0x20) : character;
}
std::u16string UpperCase(std::u16string_view text);

}  // namespace simulation
