// Comparing and joining UTF-16 text, the same on every system.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace platform {

// How the runtime's _wcsicmp compares in its default locale: by the whole string, A to Z without case, every other
// character by its code.
constexpr char16_t FoldCase(char16_t character) {
  return character >= u'A' && character <= u'Z' ? static_cast<char16_t>(character + 32) : character;
}

constexpr bool EqualNoCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (FoldCase(a[i]) != FoldCase(b[i])) return false;
  return true;
}

// The same for text that ends at its NUL; looks no further than the first difference.
constexpr bool EqualNoCase(const char16_t* a, std::u16string_view b) {
  for (const char16_t character : b) {
    if (*a == u'\0' || FoldCase(*a) != FoldCase(character)) return false;
    ++a;
  }
  return *a == u'\0';
}

// Writes the parts, one after the other, and a NUL. False, with an empty buffer, when they don't fit: a name is never
// cut into another name.
template <std::size_t Capacity, class... Parts>
bool Join(char16_t (&buffer)[Capacity], const Parts&... parts) {
  buffer[0] = u'\0';
  const std::u16string_view views[] = {std::u16string_view(parts)...};
  std::size_t length = 0;
  for (const std::u16string_view part : views) length += part.size();
  if (length >= Capacity) return false;
  char16_t* end = buffer;
  for (const std::u16string_view part : views) end = std::copy(part.begin(), part.end(), end);
  *end = u'\0';
  return true;
}

}  // namespace platform
