// Any bytes are text in each encoding: what is valid survives, everything else becomes valid once and for all, and what
// is shown to people holds no control characters.
#include "fuzz/fuzz.h"
#include "ztlsim/text_encoding.h"

using namespace ztlsim;

void ztl_fuzz::Check(std::string_view bytes) {
  const std::u16string decoded = Utf8ToUtf16(bytes);
  const std::string encoded = Utf16ToUtf8(decoded);
  ZTL_HOLDS(IsUtf8(encoded) && (encoded == bytes) == IsUtf8(bytes) && Utf8ToUtf16(encoded) == decoded);

  const std::u16string text = Text16(bytes);
  const std::string utf8 = Utf16ToUtf8(text);
  const std::u16string again = Utf8ToUtf16(utf8);
  ZTL_HOLDS(IsUtf8(utf8) && again.size() == text.size() && Utf16ToUtf8(again) == utf8);
  for (std::size_t i = 0; i < text.size(); ++i)
    ZTL_HOLDS(again[i] == text[i] || (again[i] == 0xFFFD && (text[i] & 0xF800) == 0xD800));

  const std::u16string old = Windows1252ToUtf16(bytes);
  ZTL_HOLDS(std::equal(old.begin(), old.end(), bytes.begin(), bytes.end(), [](char16_t unit, char byte) {
    return unit == static_cast<unsigned char>(byte) || (byte & 0xE0) == 0x80;
  }));
  for (const char c : Printable(bytes)) ZTL_HOLDS(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}
