// What the fuzz targets share. A target is LLVMFuzzerTestOneInput and the inputs to start from; libFuzzer drives it, or
// run_seeds.cpp where there is none. Both give it a copy of exactly its bytes, so that a sanitizer sees a read beyond.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace ztl_fuzz {

// The target's inputs to start from.
std::vector<std::string> Seeds();

// The bytes of a file of the sources, at most `limit` of them.
std::string Sample(const std::string& path, std::size_t limit = 500);

// The property that a target holds of every input.
#define ZTL_HOLDS(condition) \
  ((condition) ? void() : (std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition), std::abort()))

// Reads an input from its front, and zeros after its end.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

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
inline std::string BytesOf(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

}  // namespace ztl_fuzz
