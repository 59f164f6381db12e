// Any bytes are text in each encoding: what is valid survives, everything else becomes valid once and for all, and what
// is shown to people holds no control characters.
#include "fuzz/fuzz.h"
#include "ztlsim/text_encoding.h"

using namespace ztlsim;

std::vector<std::string> ztl_fuzz::Seeds() {
  using namespace std::string_literals;
  return {"a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x7F"s, "\xED\xA0\x80\xF4\x90\x80\x80\xC0\xAF\xE2\x82"s,
          "a\0\xE9\0\x3D\xD8\0\xDE\x3D\xD8"s, "12345678\x80\x9F\t\r\n"s};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::u16string decoded = Utf8ToUtf16(bytes);
  const std::string encoded = Utf16ToUtf8(decoded);
  ZTL_HOLDS(IsUtf8(encoded) && (encoded == bytes) == IsUtf8(bytes) && Utf8ToUtf16(encoded) == decoded);

  const std::u16string text = ztl_fuzz::Text16(bytes);
  const std::string utf8 = Utf16ToUtf8(text);
  const std::u16string again = Utf8ToUtf16(utf8);
  ZTL_HOLDS(IsUtf8(utf8) && again.size() == text.size() && Utf16ToUtf8(again) == utf8);
  for (std::size_t i = 0; i < text.size(); ++i)
    ZTL_HOLDS(again[i] == text[i] || (again[i] == 0xFFFD && (text[i] & 0xF800) == 0xD800));

  const std::u16string old = Windows1252ToUtf16(bytes);
  ZTL_HOLDS(old.size() == size);
  for (std::size_t i = 0; i < size; ++i) ZTL_HOLDS(old[i] == data[i] || (data[i] >= 0x80 && data[i] < 0xA0));
  for (const char c : Printable(bytes)) ZTL_HOLDS(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
  return 0;
}
