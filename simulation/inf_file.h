// INF files as text: bytes in; sections, lines and fields out. Files come in UTF-16, with or without a byte order mark,
// in UTF-8 with one, else in Windows-1252.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/types.h"

namespace simulation {

using namespace platform;

std::u16string DecodeSetupText(std::string_view bytes);  // takes UTF-16 without a mark for 8-bit text

class InfFile {
 public:
  // A line of a section: both are counted from 0.
  struct Place {
    UINT section;
    UINT line;
  };

  // What the %numbers% of directories are answered from.
  struct Places {
    std::u16string windows;  // without a final backslash
    std::u16string source;   // the INF's own directory, with it
  };

  InfFile() = default;
  explicit InfFile(Places places) : places_(std::move(places)) {}

  // Adds a text's lines. ERROR_SUCCESS, or the code of the first syntax error; then `errorLine` is its line, counted
  // from 1, and what stood before it is kept. With `untilSignature` nothing after the signature is read, syntax errors
  // do not count, and UTF-16 needs its mark.
  LSTATUS Read(std::string_view bytes, UINT& errorLine, bool untilSignature = false);

  // Whether [Version] holds the signature of an INF of today's style.
  bool HasSignature() const;

  // The first line of a section, or its first one with the key when `key` is not null.
  std::optional<Place> Find(std::u16string_view section, const std::u16string_view* key) const;
  // A field with its %strings% and %numbers% replaced, 0 is the key; nothing when the line has no such field.
  std::optional<std::u16string> Field(Place place, std::size_t field) const;

 private:
  struct Line {
    std::size_t firstField;  // its text; the next one's is after it
    UINT fields;             // with the key
    bool hasKey;
  };
  struct Section {
    std::vector<Line> lines;
  };
  class Parser;

  std::u16string_view Text(const Line& line, std::size_t index) const;
  std::optional<std::u16string_view> Key(const Line& line) const;
  std::u16string Substituted(std::u16string_view text) const;
  std::optional<std::u16string> Directory(std::u16string_view name) const;  // nothing when it is no number of one

  Places places_;
  std::u16string text_;                 // of all fields, one after the other
  std::vector<std::size_t> fieldEnds_;  // in text_
  std::vector<Section> sections_;
  std::unordered_map<std::u16string, UINT> sectionIndices_;  // by upper-cased name
  // The [Strings], by upper-cased name; made when the first name is looked for.
  mutable std::optional<std::unordered_map<std::u16string, std::u16string_view>> strings_;
};

// The value of a key by the rules of initialization files: the first section of the name alone, comments on lines of
// their own, no continued lines, no strings. Nothing when there is no such key or it has no "=".
std::optional<std::u16string> ProfileValue(std::u16string_view text, std::u16string_view section,
                                           std::u16string_view key);

}  // namespace simulation
