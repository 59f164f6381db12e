// Text for people, and between the encodings of files.
#pragma once

#include <string>
#include <string_view>

#include "platform/simulated/text_encoding.h"

namespace ztlsim {

using platform::simulated::IsUtf8;
using platform::simulated::Utf16ToUtf8;
using platform::simulated::Utf8ToUtf16;
using platform::simulated::Windows1252ToUtf16;

// Text as it may go to a terminal, in UTF-8: control characters are shown by their numbers.
std::string Printable(std::string_view text);
std::string Printable(std::u16string_view text);

}  // namespace ztlsim
