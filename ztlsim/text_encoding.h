// Text for people, and between the encodings of files.
#pragma once

#include <string>
#include <string_view>

#include "simulation/text_encoding.h"

namespace ztlsim {

using simulation::IsUtf8;
using simulation::Utf16ToUtf8;
using simulation::Utf8ToUtf16;
using simulation::Windows1252ToUtf16;

// Text as it may go to a terminal, in UTF-8: control characters are shown by their numbers.
std::string Printable(std::string_view text);
std::string Printable(std::u16string_view text);

}  // namespace ztlsim
