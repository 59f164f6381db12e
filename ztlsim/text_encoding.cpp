#include "ztlsim/text_encoding.h"

#include "module/log/format.h"

namespace ztlsim {

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text)
    if (const auto byte = static_cast<unsigned char>(c); byte < 0x20 || byte == 0x7F) {
      char shown[8];
      ztl::Format(shown, "\\x%02x", byte);
      printable += shown;
    } else {
      printable += c;
    }
  return printable;
}

std::string Printable(std::u16string_view text) { return Printable(Utf16ToUtf8(text)); }

}  // namespace ztlsim
