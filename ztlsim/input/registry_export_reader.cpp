#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "simulation/host_files.h"
#include "ztlsim/input/input_file.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/input/registry_merger.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {
namespace {

using platform::BYTE;
using platform::DWORD;
using platform::REG_BINARY;
using platform::REG_DWORD;
using platform::REG_EXPAND_SZ;
using platform::REG_MULTI_SZ;
using platform::REG_SZ;
using simulation::kMaxKeyLevels;
using simulation::kMaxKeyName;
using simulation::kMaxValueName;
using simulation::Registry;
using simulation::RegistryKey;
using simulation::UpperCase;

// Text in values and in files is moved as bytes.
static_assert(std::endian::native == std::endian::little);

constexpr std::u16string_view kVersion5 = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view kVersion4 = u"REGEDIT4";
constexpr std::size_t kMaxExcerpt = 40;         // characters
constexpr std::size_t kDroppedBytes = 1 << 24;  // at a time
constexpr std::size_t kMaxShrunk = 64;          // values

constexpr std::u16string_view kClassesRoot = u"HKEY_CLASSES_ROOT";
constexpr std::pair<std::u16string_view, std::u16string_view> kShortHives[] = {
    {u"HKCR", kClassesRoot}, {u"HKCU", u"HKEY_CURRENT_USER"},   {u"HKLM", u"HKEY_LOCAL_MACHINE"},
    {u"HKU", u"HKEY_USERS"}, {u"HKCC", u"HKEY_CURRENT_CONFIG"},
};

// The beginning of a text as a message shows it: short, and with its control characters visible.
std::string Excerpt(std::u16string_view text) {
  std::u16string shown;
  std::size_t keep = 0;  // how much of `shown` leaves room for the dots
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    const bool pair = i + 1 < text.size() && (unit & 0xFC00) == 0xD800 && (text[i + 1] & 0xFC00) == 0xDC00;
    if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0)) {
      constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
      shown += {u'\\', u'x', kDigits[unit >> 4], kDigits[unit & 0xF]};
    } else {
      shown += text.substr(i, pair ? 2 : 1);
    }
    if (pair) ++i;
    if (shown.size() > kMaxExcerpt) return Utf16ToUtf8(shown.substr(0, keep)) + "...";
    if (shown.size() <= kMaxExcerpt - 3) keep = shown.size();
  }
  return Utf16ToUtf8(shown);
}

int HexDigit(char16_t character) {
  if (character >= u'0' && character <= u'9') return character - u'0';
  if (character >= u'a' && character <= u'f') return character - u'a' + 10;
  if (character >= u'A' && character <= u'F') return character - u'A' + 10;
  return -1;
}

void AppendBytes(std::vector<BYTE>& bytes, std::u16string_view text) {
  const auto* first = reinterpret_cast<const BYTE*>(text.data());
  bytes.insert(bytes.end(), first, first + text.size() * sizeof(char16_t));
}

// The two forms of a file's text, read in place: by its units, which are ASCII wherever the format's own characters
// stand. Names and texts are decoded when they are taken out.
struct ByteText {
  static constexpr std::size_t kUnitBytes = 1;
  std::string_view bytes;
  bool isUtf8;

  std::size_t size() const { return bytes.size(); }
  char16_t operator[](std::size_t index) const { return static_cast<unsigned char>(bytes[index]); }
  std::u16string Part(std::size_t first, std::size_t end) const {
    const std::string_view part = bytes.substr(first, end - first);
    return isUtf8 ? Utf8ToUtf16(part) : Windows1252ToUtf16(part);
  }
};
struct Utf16Text {
  static constexpr std::size_t kUnitBytes = 2;
  std::string_view bytes;
  std::size_t low;  // where a unit's low byte stands: 0 or 1

  std::size_t size() const { return bytes.size() / 2; }
  char16_t operator[](std::size_t index) const {
    return static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * index + low]) |
                                 static_cast<unsigned char>(bytes[2 * index + 1 - low]) << 8);
  }
  std::u16string Part(std::size_t first, std::size_t end) const {
    std::u16string part(end - first, u'\0');
    std::memcpy(part.data(), bytes.data() + 2 * first, 2 * part.size());
    if (low != 0) {
      for (char16_t& unit : part) unit = static_cast<char16_t>(unit << 8 | unit >> 8);
    }
    return part;
  }
};

template <class Text>
class Parser {
 public:
  // With `dropsText`, nobody needs the text's bytes once they are read.
  Parser(std::string file, Text text, Registry& registry, bool dropsText)
      : text_(text), merger_(registry), dropsText_(dropsText) {
    error_.file = std::move(file);
  }

  std::optional<InputError> Run() {
    bool good = Header();
    std::size_t dropped = 0;  // bytes; no line looks back at the one before
    while (good && pos_ < text_.size()) {
      good = Line();
      const std::size_t done = pos_ * Text::kUnitBytes;
      if (dropsText_ && done - dropped >= kDroppedBytes) {
        simulation::host::DropMemory(text_.bytes.data() + dropped, done - dropped);
        dropped = done;
      }
    }
    if (good) return std::nullopt;
    return error_;
  }

 private:
  // The unit at `index`; 0 after the end. A NUL in the file is an error everywhere, so only the
  // messages distinguish the two.
  char16_t At(std::size_t index) const { return index < text_.size() ? text_[index] : u'\0'; }
  bool AtLineBreak() const { return At(pos_) == u'\n' || At(pos_) == u'\r'; }
  std::size_t AfterBlanks(std::size_t index) const {
    while (At(index) == u' ' || At(index) == u'\t') ++index;
    return index;
  }
  void SkipBlanks() { pos_ = AfterBlanks(pos_); }
  std::size_t LineEnd() const {  // a NUL counts as one
    std::size_t end = pos_;
    while (At(end) != u'\0' && At(end) != u'\n' && At(end) != u'\r') ++end;
    return end;
  }
  bool Accept(char16_t character) {
    if (At(pos_) != character) return false;
    ++pos_;
    return true;
  }
  bool AcceptWord(std::u16string_view word) {  // `word` in lower case, the file's in any
    for (std::size_t i = 0; i < word.size(); ++i) {
      const char16_t character = At(pos_ + i);
      if ((character >= u'A' && character <= u'Z' ? character + 0x20 : character) != word[i]) return false;
    }
    pos_ += word.size();
    return true;
  }

  bool Fail(std::string message) {
    error_.line = line_;
    error_.message = std::move(message);
    return false;
  }
  std::string Found() {
    if (pos_ >= text_.size()) return ", found the end of the file";
    if (AtLineBreak()) return ", found the end of the line";
    if (At(pos_) == u'\0') return ", found a NUL character";
    constexpr std::size_t kEnough = 4 * (kMaxExcerpt + 1);  // a character of UTF-8 has up to four units
    return ", found '" + Excerpt(text_.Part(pos_, std::min(LineEnd(), pos_ + kEnough))) + "'";
  }
  bool Expected(std::string_view what) { return Fail("expected " + std::string(what) + Found()); }

  // Passes blanks, a comment and the line break; nothing else may be there.
  bool EndOfLine(std::string_view expected = "the end of the line") {
    SkipBlanks();
    if (At(pos_) == u';') pos_ = LineEnd();
    if (pos_ == text_.size()) return true;
    if (!AtLineBreak()) return Expected(expected);
    if (At(pos_) == u'\r' && At(pos_ + 1) == u'\n') ++pos_;
    ++pos_;
    ++line_;
    return true;
  }

  bool Header() {
    SkipBlanks();
    std::size_t end = LineEnd();
    while (end > pos_ && (At(end - 1) == u' ' || At(end - 1) == u'\t')) --end;
    const std::u16string header = text_.Part(pos_, std::min(end, pos_ + kVersion5.size() + 1));
    isVersion4_ = header == kVersion4;
    if (!isVersion4_ && header != kVersion5) {
      return Fail("not a registry export: the first line is neither \"" + Utf16ToUtf8(kVersion5) + "\" nor \"" +
                  Utf16ToUtf8(kVersion4) + "\"" + Found());
    }
    pos_ = end;
    return EndOfLine();
  }

  bool Line() {
    SkipBlanks();
    if (At(pos_) == u'[') return KeyLine();
    if (At(pos_) == u'"' || At(pos_) == u'@') return ValueLine();
    return EndOfLine("a key in brackets, a value or a comment");
  }

  bool KeyLine() {
    // What a vector has in reserve is a good part of a large registry. (Not of long ones: they may be met again.)
    if (key_ != nullptr && key_->values.size() != 0 && key_->values.size() < kMaxShrunk)
      key_->values.Edit().shrink_to_fit();
    key_ = nullptr;
    const std::size_t end = LineEnd();
    std::size_t close = pos_;  // the first bracket after which the line may end, else the last one
    for (std::size_t i = pos_; i < end; ++i) {
      if (At(i) != u']') continue;
      close = i;
      const std::size_t next = AfterBlanks(i + 1);
      if (next == end || At(next) == u';') break;
    }
    if (close == pos_) return Expected("a key's name that ends with ]");
    const bool deletes = At(pos_ + 1) == u'-';
    const std::u16string written = text_.Part(pos_ + (deletes ? 2 : 1), close);
    std::u16string_view rest = written;

    const std::u16string hiveName = UpperCase(rest.substr(0, rest.find(u'\\')));
    rest.remove_prefix(hiveName.size());
    std::u16string_view hive = hiveName;
    for (const auto& [shortName, name] : kShortHives) {
      if (hive == shortName) hive = name;
    }
    if (!hive.starts_with(u"HKEY_"))
      return Fail("expected a hive such as HKEY_LOCAL_MACHINE, found '" + Excerpt(written) + "'");
    RegistryMerger::Path path{hive};
    if (hive == kClassesRoot) path = {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Classes"};
    while (!rest.empty()) {
      rest.remove_prefix(1);
      path.push_back(rest.substr(0, rest.find(u'\\')));
      rest.remove_prefix(path.back().size());
      if (path.back().empty()) path.pop_back();  // Windows passes over doubled and final backslashes, too
    }
    for (const std::u16string_view name : path) {
      if (name.size() > kMaxKeyName)
        return Fail("expected a key's name of at most " + std::to_string(kMaxKeyName) + " characters, found '" +
                    Excerpt(name) + "'");
    }
    if (path.size() > 1 + kMaxKeyLevels)
      return Fail("expected a key at most " + std::to_string(kMaxKeyLevels) + " levels below its hive, found '" +
                  Excerpt(written) + "'");
    pos_ = close + 1;
    if (!EndOfLine()) return false;
    if (deletes) {
      merger_.DeleteKey(path);
    } else {
      key_ = &merger_.CreateKey(path);
    }
    return true;
  }

  bool ValueLine() {
    if (key_ == nullptr) return Expected("a key in brackets in front of the first value");
    std::u16string name;
    if (!Accept(u'@') && !Quoted(name)) return false;
    if (name.find(u'\0') != name.npos)
      return Fail("expected a value's name without NUL, found '" + Excerpt(name) + "'");
    if (name.size() > kMaxValueName)
      return Fail("expected a value's name of at most " + std::to_string(kMaxValueName) + " characters, found '" +
                  Excerpt(name) + "'");
    SkipBlanks();
    if (!Accept(u'=')) return Expected("= behind the value's name");
    SkipBlanks();

    DWORD type = 0;
    std::string_view expected = "the end of the line";
    const bool deletes = Accept(u'-');
    if (!deletes && !Data(type, expected)) return false;
    if (!EndOfLine(expected)) return false;
    if (deletes) {
      merger_.DeleteValue(*key_, name);
    } else {
      merger_.SetValue(*key_, name, type, data_);
    }
    return true;
  }

  // What comes after the =, into data_. `expected` is what may come after it.
  bool Data(DWORD& type, std::string_view& expected) {
    data_.clear();
    if (At(pos_) == u'"') {
      type = REG_SZ;
      std::u16string text;
      if (!Quoted(text)) return false;
      text.push_back(u'\0');
      AppendBytes(data_, text);
      return true;
    }
    if (AcceptWord(u"dword:")) {
      type = REG_DWORD;
      DWORD number = 0;
      if (!Number(number)) return false;
      for (int shift = 0; shift < 32; shift += 8) data_.push_back(static_cast<BYTE>(number >> shift));
      return true;
    }
    if (!AcceptWord(u"hex")) return Expected("a text in quotes, dword:, hex: or -");
    type = REG_BINARY;
    if (Accept(u'(')) {
      if (!Number(type)) return false;
      SkipBlanks();
      if (!Accept(u')')) return Expected(") behind the number of the type");
    }
    if (!Accept(u':')) return Expected(": in front of the bytes");
    if (!Bytes(expected)) return false;
    if (isVersion4_ && (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ)) {
      const std::u16string text = Windows1252ToUtf16(std::string(data_.begin(), data_.end()));
      data_.clear();
      AppendBytes(data_, text);
    }
    return true;
  }

  // A text in quotes, which may go on over line ends.
  bool Quoted(std::u16string& result) {
    const std::size_t firstPos = pos_;
    const std::size_t firstLine = line_;
    result.clear();
    std::size_t first = ++pos_;  // of what is not in `result` yet
    for (; At(pos_) != u'"'; ++pos_) {
      if (At(pos_) == u'\\' && At(pos_ + 1) != u'\0') {
        result += text_.Part(first, pos_);
        first = ++pos_;
        const char16_t escaped = At(pos_);
        if (escaped == u'n' || escaped == u'r' || escaped == u'0') {
          result += escaped == u'n' ? u'\n' : escaped == u'r' ? u'\r' : u'\0';
          ++first;
        }
      }
      const char16_t unit = At(pos_);
      if (unit == u'\0') {
        if (pos_ < text_.size()) return Expected("a text without NUL characters");
        pos_ = firstPos;
        line_ = firstLine;
        return Expected("a text in quotes that is closed before the end of the file");
      }
      if (unit == u'\n' || (unit == u'\r' && At(pos_ + 1) != u'\n')) ++line_;
    }
    result += text_.Part(first, pos_++);
    return true;
  }

  // One to eight hexadecimal digits.
  bool Number(DWORD& number) {
    SkipBlanks();
    const std::size_t first = pos_;
    number = 0;
    for (; HexDigit(At(pos_)) >= 0; ++pos_) number = number << 4 | static_cast<DWORD>(HexDigit(At(pos_)));
    const std::size_t digits = pos_ - first;
    if (digits >= 1 && digits <= 8) return true;
    pos_ = first;
    return Expected("one to eight hexadecimal digits");
  }

  // Bytes between commas, into data_. It stops at the first thing that cannot go on; `expected` is what could have.
  bool Bytes(std::string_view& expected) {
    do {
      expected = "a byte of one or two hexadecimal digits";
      if (!SkipContinuation()) return false;
      int byte = HexDigit(At(pos_));
      if (byte < 0) return true;  // no data, or a comma after the last byte
      const int second = HexDigit(At(++pos_));
      if (second >= 0) {
        byte = byte << 4 | second;
        ++pos_;
      }
      data_.push_back(static_cast<BYTE>(byte));
      expected = "a comma or the end of the line";
      if (!SkipContinuation()) return false;
    } while (Accept(u','));
    return true;
  }

  // Passes blanks and, after a backslash, the rest of the line with any empty lines and comments below it.
  bool SkipContinuation() {
    SkipBlanks();
    while (Accept(u'\\')) {
      do {
        if (!EndOfLine("the end of the line behind \\")) return false;
        SkipBlanks();
      } while (pos_ < text_.size() && (AtLineBreak() || At(pos_) == u';'));
      if (pos_ == text_.size()) return Expected("the value's next byte");
    }
    return true;
  }

  Text text_;
  RegistryMerger merger_;
  bool dropsText_;
  InputError error_;
  std::size_t pos_ = 0;
  std::size_t line_ = 1;
  bool isVersion4_ = false;
  RegistryKey* key_ = nullptr;  // the section's; null where no value may stand
  std::vector<BYTE> data_;
};

std::optional<InputError> Read(const std::string& file, std::string_view bytes, Registry& registry, bool dropsText) {
  const auto unreadable = [&](const std::string& why) { return InputError{file, 0, why}; };
  const auto readUtf16 = [&](std::string_view text, std::size_t low) -> std::optional<InputError> {
    if (text.empty()) return unreadable("expected a registry export, found an empty file");
    auto result = Parser<Utf16Text>(file, {text, low}, registry, dropsText).Run();
    if (!result && text.size() % 2 != 0) return unreadable("expected UTF-16 text, found half a character at the end");
    return result;
  };
  if (bytes.starts_with("regf")) {
    return unreadable("expected a registry export, found a binary hive: export it as text with the registry editor");
  }
  if (bytes.starts_with("\xFF\xFE")) return readUtf16(bytes.substr(2), 0);
  if (bytes.starts_with("\xFE\xFF")) return readUtf16(bytes.substr(2), 1);
  if (bytes.size() >= 2 && bytes[0] != 0 && bytes[1] == 0) return readUtf16(bytes, 0);

  const bool marked = bytes.starts_with("\xEF\xBB\xBF");
  if (marked) bytes.remove_prefix(3);
  if (bytes.empty()) return unreadable("expected a registry export, found an empty file");
  // Version 4 was written in the system's 8-bit encoding; version 5 in 8 bits was saved by a text editor.
  const bool isUtf8 = marked || (!bytes.starts_with("REGEDIT4") && IsUtf8(bytes));
  return Parser<ByteText>(file, {bytes, isUtf8}, registry, dropsText).Run();
}

}  // namespace

std::string InputError::Text() const {
  return file + ":" + (line == 0 ? "" : std::to_string(line) + ":") + " " + message;
}

std::optional<InputError> ReadRegistryExport(const std::string& path, Registry& registry) {
  std::string bytes;
  if (const auto trouble = ReadInputFile(path, "a registry export", bytes)) return InputError{path, 0, *trouble};
  return Read(path, bytes, registry, true);
}

std::optional<InputError> ReadRegistryExport(const std::string& file, std::string_view bytes, Registry& registry) {
  return Read(file, bytes, registry, false);
}

}  // namespace ztlsim
