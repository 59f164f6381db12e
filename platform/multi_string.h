// Multi-strings: UTF-16 entries, each ended by a NUL, the list ended by one further NUL. An empty list is a lone NUL.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "platform/text.h"

namespace platform {

// The entries of a multi-string in a bounded span, without ever reading past it: the list ends at its empty entry, or
// where the span ends. When the span's last character is a NUL, every entry is followed by one.
class MultiStringView {
 public:
  constexpr MultiStringView(const char16_t* text, std::size_t capacity) : text_(text), end_(text + capacity) {}
  template <std::size_t Capacity>
  constexpr MultiStringView(const char16_t (&buffer)[Capacity]) : MultiStringView(buffer, Capacity) {}

  class Iterator {
   public:
    constexpr Iterator(const char16_t* at, const char16_t* end) : at_(at), end_(end) { Measure(); }
    constexpr std::u16string_view operator*() const { return {at_, length_}; }
    constexpr Iterator& operator++() {
      at_ += length_;
      if (at_ != end_) ++at_;
      Measure();
      return *this;
    }
    constexpr bool operator!=(const Iterator& other) const { return length_ != other.length_ || at_ != other.at_; }

   private:
    // Every end, by an empty entry or by the span, is the same iterator.
    constexpr void Measure() {
      length_ = static_cast<std::size_t>(std::find(at_, end_, u'\0') - at_);
      if (length_ == 0) at_ = end_;
    }

    const char16_t* at_;
    const char16_t* end_;
    std::size_t length_ = 0;
  };

  constexpr Iterator begin() const { return {text_, end_}; }
  constexpr Iterator end() const { return {end_, end_}; }
  constexpr bool Empty() const { return text_ == end_ || *text_ == u'\0'; }

  constexpr std::size_t Count() const {
    std::size_t count = 0;
    for (Iterator entry = begin(); entry != end(); ++entry) ++count;
    return count;
  }

  constexpr bool Contains(std::u16string_view name) const {
    for (const std::u16string_view entry : *this)
      if (EqualNoCase(entry, name)) return true;
    return false;
  }

 private:
  const char16_t* text_;
  const char16_t* end_;
};

// Appends entries to a caller's buffer of at least one character. One character is always kept for the final NUL, and
// the list is properly ended after every step.
//
// An empty entry takes its character like any other: readers end at it, and what is appended after it stays unseen.
class MultiStringBuilder {
 public:
  MultiStringBuilder(char16_t* buffer, std::size_t capacity) : cursor_(buffer), remaining_(capacity) { *cursor_ = 0; }

  char16_t* Cursor() const { return cursor_; }
  // The characters that the next entry may take, its terminator included.
  std::size_t Room() const { return remaining_ - 1; }

  // Takes over an entry of `length` characters, less than Room(), that was written, with its terminator, at the cursor.
  void Advance(std::size_t length) {
    cursor_ += length + 1;
    remaining_ -= length + 1;
    *cursor_ = 0;
  }

  // False, with nothing changed, when the entry does not fit.
  bool Append(std::u16string_view entry) {
    if (entry.size() >= Room()) return false;
    *std::copy(entry.begin(), entry.end(), cursor_) = 0;
    Advance(entry.size());
    return true;
  }

 private:
  char16_t* cursor_;
  std::size_t remaining_;
};

}  // namespace platform
