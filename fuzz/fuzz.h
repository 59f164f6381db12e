// What the fuzz targets share. A target is Check; libFuzzer drives it, or driver.cpp itself where there is none. Both
// give it exactly the bytes of a copy, so that a sanitizer sees a read beyond.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace ztl_fuzz {

// Looks whether the target's property holds of this input.
void Check(std::string_view bytes);
#define ZTL_HOLDS(condition) \
  ((condition) ? void() : (std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition), std::abort()))

// Reads an input from its front, and zeros after its end.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}

  bool Empty() const { return rest_.empty(); }
  std::size_t Byte() {
    const std::string_view byte = Bytes(1);
    return byte.empty() ? 0 : static_cast<unsigned char>(byte[0]);
  }
  std::size_t Below(std::size_t end) { return (Byte() | (end > 256 ? Byte() << 8 : 0)) % end; }
  std::string_view Bytes(std::size_t count) {
    const std::string_view bytes = rest_.substr(0, count);
    rest_.remove_prefix(bytes.size());
    return bytes;
  }
  std::string_view Rest() { return Bytes(rest_.size()); }

 private:
  std::string_view rest_;
};

// The bytes as UTF-16 text; an odd one at the end is left out.
inline std::u16string Text16(std::string_view bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  std::copy_n(bytes.data(), text.size() * 2, reinterpret_cast<char*>(text.data()));
  return text;
}

}  // namespace ztl_fuzz
