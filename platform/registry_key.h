// Owning, reading and enumerating registry keys.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/multi_string.h"
#include "platform/registry.h"

namespace platform {

// An open key, closed when it goes out of scope.
class UniqueKey {
 public:
  UniqueKey() = default;
  ~UniqueKey() { Close(); }
  UniqueKey(UniqueKey&& other) noexcept : key_(std::exchange(other.key_, nullptr)) {}
  UniqueKey& operator=(UniqueKey&& other) noexcept {
    std::swap(key_, other.key_);
    return *this;
  }

  LSTATUS Open(HKEY parent, const char16_t* subKey, DWORD access) {
    return platform::RegOpenKeyExW(parent, subKey, 0, access, Receive());
  }
  void Close() {
    if (key_ != nullptr) platform::RegCloseKey(key_);
    key_ = nullptr;
  }
  HKEY Get() const { return key_; }
  HKEY* Receive() {  // for a call that hands out an open key
    Close();
    return &key_;
  }

 private:
  HKEY key_ = nullptr;
};

// A value of a fixed size, zeroed before it is read. A limit below the buffer's size leaves NULs after what was read.
template <std::size_t Capacity>
struct ValueBuffer {
  char16_t text[Capacity] = {};
  DWORD bytes = 0;  // read, or, once completed, to be written

  // Reads up to `limit` bytes of the value `name`. The registry's code when that fails, ERROR_GEN_FAILURE when the
  // value is of another type.
  LSTATUS Read(HKEY key, const char16_t* name, DWORD type, DWORD limit) {
    if (std::exchange(used_, true)) std::fill_n(text, Capacity, u'\0');
    DWORD storedType = REG_NONE;
    bytes = limit;
    const LSTATUS rc =
        platform::RegQueryValueExW(key, name, nullptr, &storedType, reinterpret_cast<BYTE*>(text), &bytes);
    if (rc != ERROR_SUCCESS) return rc;
    return storedType == type ? ERROR_SUCCESS : ERROR_GEN_FAILURE;
  }

  MultiStringView List() const { return MultiStringView(text); }

 private:
  bool used_ = false;  // an earlier read has left its data
};

// A string value of at most 63 characters.
struct StringValue : ValueBuffer<64> {
  // As above; ERROR_MORE_DATA for a text that has no terminator within the buffer.
  LSTATUS Read(HKEY key, const char16_t* name) {
    const LSTATUS rc = ValueBuffer::Read(key, name, REG_SZ, sizeof(text));
    if (rc != ERROR_SUCCESS || text[std::size(text) - 1] == u'\0') return rc;
    return std::find(text, std::end(text), u'\0') == std::end(text) ? ERROR_MORE_DATA : ERROR_SUCCESS;
  }
  std::u16string_view View() const { return text; }
  bool Equals(std::u16string_view other) const { return EqualNoCase(text, other); }
};

// Writes exactly `bytes` bytes, at most 1,024. Windows would store a NUL after unterminated text with it, so
// other bytes follow the data here.
inline LSTATUS SetExactValue(HKEY key, const char16_t* name, DWORD type, const void* data, DWORD bytes) {
  BYTE copy[1024 + sizeof(char16_t)];
  std::fill_n(std::copy_n(static_cast<const BYTE*>(data), bytes, copy), sizeof(char16_t), BYTE{0xFF});
  return platform::RegSetValueExW(key, name, 0, type, copy, bytes);
}

// The subkeys of a key, by index from 0 until the enumeration reports anything but success.
//
// `Capacity` is the size of the name buffer in characters, shared by the name and the suffix that turns it into a path.
// A name that does not fit together with the suffix ends the enumeration.
template <std::size_t Capacity>
class SubkeyEnumeration {
 public:
  explicit SubkeyEnumeration(HKEY key, std::u16string_view suffix = {}) : key_(key), suffix_(suffix) {}

  bool Next() {
    length_ = static_cast<DWORD>(Capacity - suffix_.size());
    code_ = platform::RegEnumKeyExW(key_, index_++, text_, &length_, nullptr, nullptr, nullptr, nullptr);
    return code_ == ERROR_SUCCESS;
  }
  LSTATUS Code() const { return code_; }  // of the last Next

  // After a successful Next. Both are the same buffer: each call invalidates what the other returned.
  const char16_t* Name() {
    text_[length_] = u'\0';
    return text_;
  }
  const char16_t* Path() {
    *std::copy(suffix_.begin(), suffix_.end(), text_ + length_) = u'\0';
    return text_;
  }

 private:
  HKEY key_;
  std::u16string_view suffix_;
  DWORD index_ = 0;
  LSTATUS code_ = ERROR_SUCCESS;
  DWORD length_ = 0;
  char16_t text_[Capacity] = {};
};

}  // namespace platform
