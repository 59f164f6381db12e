// Text between UTF-16, UTF-8 and the 8-bit encoding of older files.
#pragma once

#include <string>
#include <string_view>

namespace simulation {

// Invalid sequences and lone surrogates become U+FFFD.
std::u16string Utf8ToUtf16(std::string_view text);
std::string Utf16ToUtf8(std::u16string_view text);

// Windows-1252. The five bytes without a character of their own keep their number, as on Windows.
std::u16string Windows1252ToUtf16(std::string_view text);

bool IsUtf8(std::string_view text);  // whether it holds no invalid sequence

}  // namespace simulation
