#include "ztlsim/registry_export.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ztlsim/registry_changes.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {
namespace {

namespace fs = std::filesystem;
using platform::BYTE;
using platform::DWORD;
using platform::REG_BINARY;
using platform::REG_DWORD;
using platform::REG_EXPAND_SZ;
using platform::REG_MULTI_SZ;
using platform::REG_SZ;
using platform::simulated::Registry;
using platform::simulated::RegistryKey;
using platform::simulated::RegistryValue;
using platform::simulated::UpperCase;

// Text in values and in files is moved as bytes.
static_assert(std::endian::native == std::endian::little);

constexpr std::u16string_view kVersion5 = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view kVersion4 = u"REGEDIT4";
constexpr std::size_t kMaxKeyName = 255;    // characters
constexpr std::size_t kMaxKeyLevels = 512;  // below the hive
constexpr std::size_t kMaxExcerpt = 40;     // characters
// A key's values are looked up one by one; a section with more values than this gets an index of its own.
constexpr std::size_t kMaxValuesUnindexed = 64;

struct Hive {
  std::u16string_view name;
  std::u16string_view shortName;
  std::u16string_view path;
};
constexpr Hive kHives[] = {
    {u"HKEY_CLASSES_ROOT", u"HKCR", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes"},
    {u"HKEY_CURRENT_USER", u"HKCU", u"HKEY_CURRENT_USER"},
    {u"HKEY_LOCAL_MACHINE", u"HKLM", u"HKEY_LOCAL_MACHINE"},
    {u"HKEY_USERS", u"HKU", u"HKEY_USERS"},
    {u"HKEY_CURRENT_CONFIG", u"HKCC", u"HKEY_CURRENT_CONFIG"},
};

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

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
  using Raw = std::string;
  std::string_view bytes;
  bool isUtf8;

  std::size_t size() const { return bytes.size(); }
  char16_t operator[](std::size_t index) const { return static_cast<unsigned char>(bytes[index]); }
  std::u16string Decode(const Raw& raw) const { return isUtf8 ? Utf8ToUtf16(raw) : Windows1252ToUtf16(raw); }
};
struct Utf16Text {
  using Raw = std::u16string;
  std::string_view bytes;
  std::size_t low;  // where a unit's low byte stands: 0 or 1

  std::size_t size() const { return bytes.size() / 2; }
  char16_t operator[](std::size_t index) const {
    return static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * index + low]) |
                                 static_cast<unsigned char>(bytes[2 * index + 1 - low]) << 8);
  }
  std::u16string Decode(const Raw& raw) const { return raw; }
};

template <class Text>
class Parser {
 public:
  Parser(std::string file, Text text, Registry& registry) : text_(text), registry_(registry) {
    error_.file = std::move(file);
  }

  std::optional<InputError> Run() {
    bool good = Header();
    while (good && pos_ < text_.size()) good = Line();
    if (good) return std::nullopt;
    return error_;
  }

 private:
  // The unit at `index`; 0 behind the end. A NUL in the file fits nowhere, so nothing has to tell the two apart but
  // the messages.
  char16_t At(std::size_t index) const { return index < text_.size() ? text_[index] : u'\0'; }
  bool AtLineBreak() const { return At(pos_) == u'\n' || At(pos_) == u'\r'; }
  void SkipBlanks() {
    while (At(pos_) == u' ' || At(pos_) == u'\t') ++pos_;
  }
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
  std::u16string Take(std::size_t first, std::size_t end) {
    raw_.clear();
    for (std::size_t i = first; i < end; ++i) raw_.push_back(static_cast<typename Text::Raw::value_type>(text_[i]));
    return text_.Decode(raw_);
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
    return ", found '" + Excerpt(Take(pos_, std::min(LineEnd(), pos_ + kEnough))) + "'";
  }
  bool Expected(std::string_view what) { return Fail("expected " + std::string(what) + Found()); }

  // Passes blanks, a comment and the line break; nothing else may stand there.
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
    const std::u16string header = Take(pos_, std::min(end, pos_ + kVersion5.size() + 1));
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
    key_ = nullptr;
    index_.clear();
    std::size_t close = LineEnd();
    while (close > pos_ && At(close) != u']') --close;
    if (close == pos_) return Expected("a key's name that ends with ]");
    const bool deletes = At(pos_ + 1) == u'-';
    const std::u16string written = Take(pos_ + (deletes ? 2 : 1), close);
    std::u16string_view rest = written;

    const std::u16string hiveName = UpperCase(rest.substr(0, rest.find(u'\\')));
    const auto* const hive = std::find_if(std::begin(kHives), std::end(kHives), [&](const Hive& candidate) {
      return hiveName == candidate.name || hiveName == candidate.shortName;
    });
    if (hive == std::end(kHives))
      return Fail("expected a hive such as HKEY_LOCAL_MACHINE, found '" + Excerpt(rest) + "'");
    rest.remove_prefix(hiveName.size());

    std::u16string path(hive->path);
    auto levels = static_cast<std::size_t>(std::count(path.begin(), path.end(), u'\\'));
    while (!rest.empty()) {
      rest.remove_prefix(1);
      const std::u16string_view name = rest.substr(0, rest.find(u'\\'));
      rest.remove_prefix(name.size());
      if (name.empty()) continue;  // Windows passes over doubled and final backslashes, too
      if (name.size() > kMaxKeyName) {
        return Fail("expected a key's name of at most 255 characters, found '" + Excerpt(name) + "'");
      }
      if (++levels > kMaxKeyLevels) {
        return Fail("expected a key at most 512 levels below its hive, found '" + Excerpt(written) + "'");
      }
      path.append(1, u'\\').append(name);
    }
    pos_ = close + 1;
    if (!EndOfLine()) return false;
    if (deletes) {
      Delete(path);
    } else {
      key_ = &registry_.Create(path);
    }
    return true;
  }

  void Delete(std::u16string_view path) {
    const std::size_t slash = path.rfind(u'\\');
    if (slash == path.npos) {
      registry_.Root().DeleteSubkey(path);
    } else if (RegistryKey* const parent = registry_.Find(path.substr(0, slash))) {
      parent->DeleteSubkey(path.substr(slash + 1));
    }
  }

  bool ValueLine() {
    if (key_ == nullptr) return Expected("a key in brackets in front of the first value");
    std::u16string name;
    if (!Accept(u'@') && !Quoted(name)) return false;
    if (name.find(u'\0') != name.npos)
      return Fail("expected a value's name without NUL, found '" + Excerpt(name) + "'");
    SkipBlanks();
    if (!Accept(u'=')) return Expected("= behind the value's name");
    SkipBlanks();

    DWORD type = 0;
    std::string_view expected = "the end of the line";
    const bool deletes = Accept(u'-');
    if (!deletes && !Data(type, expected)) return false;
    if (!EndOfLine(expected)) return false;
    if (deletes) {
      key_->DeleteValue(name);
      index_.clear();
    } else {
      Store(name, type);
    }
    return true;
  }

  // What stands behind the =, into data_. `expected` says what may stand behind it.
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
    raw_.clear();
    for (++pos_; !Accept(u'"'); ++pos_) {
      const bool escaped = At(pos_) == u'\\' && At(pos_ + 1) != u'\0';
      if (escaped) ++pos_;
      char16_t unit = At(pos_);
      if (unit == u'\0') {
        if (pos_ < text_.size()) return Expected("a text without NUL characters");
        pos_ = firstPos;
        line_ = firstLine;
        return Expected("a text in quotes that is closed before the end of the file");
      }
      if (unit == u'\n' || (unit == u'\r' && At(pos_ + 1) != u'\n')) ++line_;
      if (escaped) unit = unit == u'n' ? u'\n' : unit == u'r' ? u'\r' : unit == u'0' ? u'\0' : unit;
      raw_.push_back(static_cast<typename Text::Raw::value_type>(unit));
    }
    result = text_.Decode(raw_);
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

  // Bytes between commas, into data_. It stops at the first thing that cannot go on; `expected` says what could have.
  bool Bytes(std::string_view& expected) {
    do {
      expected = "a byte of one or two hexadecimal digits";
      if (!SkipContinuation()) return false;
      int byte = HexDigit(At(pos_));
      if (byte < 0) return true;  // no data, or a comma behind the last byte
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

  // Passes blanks and, behind a backslash, the rest of the line with any empty lines and comments below it.
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

  void Store(const std::u16string& name, DWORD type) {
    std::vector<BYTE> data(data_);  // of the exact size, which growing by bytes would not give
    std::vector<RegistryValue>& values = key_->values;
    if (values.size() < kMaxValuesUnindexed) {
      key_->SetValue(name, type, std::move(data));
      return;
    }
    if (index_.empty()) {
      for (std::size_t i = 0; i < values.size(); ++i) index_.emplace(UpperCase(values[i].name), i);
    }
    const auto [entry, isNew] = index_.emplace(UpperCase(name), values.size());
    if (isNew) {
      values.push_back({name, type, std::move(data)});
    } else {
      values[entry->second].type = type;
      values[entry->second].data = std::move(data);
    }
  }

  Text text_;
  Registry& registry_;
  InputError error_;
  std::size_t pos_ = 0;
  std::size_t line_ = 1;
  bool isVersion4_ = false;
  RegistryKey* key_ = nullptr;                             // the section's; null where no value may stand
  std::unordered_map<std::u16string, std::size_t> index_;  // of key_'s values, by upper-cased name; empty: not made
  std::vector<BYTE> data_;
  typename Text::Raw raw_;
};

// Builds the bytes of an export.
class Writer {
 public:
  Writer() {
    Put(u"\xFEFF");
    Put(kVersion5);
    Put(u"\r\n\r\n");
  }

  void BeginKey(std::u16string_view path) {
    Put(u"[");
    Put(path);
    Put(u"]\r\n");
  }
  void EndKey() { Put(u"\r\n"); }
  void DeletedKey(std::u16string_view path) {
    BeginKey(u"-" + std::u16string(path));
    EndKey();
  }

  void Value(const RegistryValue& value) {
    BeginValue(value.name);
    if (value.type == REG_SZ && IsPlainText(value.data)) {
      std::u16string text(value.data.size() / sizeof(char16_t) - 1, u'\0');
      std::memcpy(text.data(), value.data.data(), text.size() * sizeof(char16_t));
      Quote(text);
    } else if (value.type == REG_DWORD && value.data.size() == 4) {
      line_ += u"dword:";
      for (int i = 3; i >= 0; --i) Hex(value.data[static_cast<std::size_t>(i)]);
    } else {
      line_ += u"hex";
      if (value.type != REG_BINARY) {
        line_ += u'(';
        int shift = 28;
        while (shift > 0 && value.type >> shift == 0) shift -= 4;
        for (; shift >= 0; shift -= 4) line_ += kDigits[value.type >> shift & 0xF];
        line_ += u')';
      }
      line_ += u':';
      Bytes(value.data);
    }
    EndValue();
  }
  void DeletedValue(std::u16string_view name) {
    BeginValue(name);
    line_ += u'-';
    EndValue();
  }

  std::string Finish() { return std::move(bytes_); }

 private:
  static constexpr std::u16string_view kDigits = u"0123456789abcdef";

  void Put(std::u16string_view text) {
    bytes_.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
  }

  void BeginValue(std::u16string_view name) {
    line_.clear();
    if (name.empty()) {
      line_ += u'@';
    } else {
      Quote(name);
    }
    line_ += u'=';
  }
  void EndValue() {
    line_ += u"\r\n";
    Put(line_);
  }

  void Quote(std::u16string_view text) {
    line_ += u'"';
    for (const char16_t unit : text) {
      if (unit == u'\\' || unit == u'"' || unit == u'\r' || unit == u'\n' || unit == u'\0') line_ += u'\\';
      line_ += unit == u'\r' ? u'r' : unit == u'\n' ? u'n' : unit == u'\0' ? u'0' : unit;
    }
    line_ += u'"';
  }

  void Hex(BYTE byte) {
    line_ += kDigits[byte >> 4];
    line_ += kDigits[byte & 0xF];
  }

  // Windows' tool breaks the line behind the first comma that stands in column 77 or later.
  void Bytes(const std::vector<BYTE>& data) {
    constexpr std::size_t kBreakColumn = 77;
    for (std::size_t i = 0; i < data.size(); ++i) {
      if (i != 0) {
        line_ += u',';
        if (line_.size() >= kBreakColumn) {
          line_ += u"\\\r\n";
          Put(line_);
          line_ = u"  ";
        }
      }
      Hex(data[i]);
    }
  }

  // Whether quotes can hold the text: whole characters, one NUL, at the end, and no line break, which would go into the
  // file raw.
  static bool IsPlainText(const std::vector<BYTE>& data) {
    if (data.empty() || data.size() % sizeof(char16_t) != 0) return false;
    for (std::size_t i = 0; i < data.size(); i += 2) {
      const int unit = data[i] | data[i + 1] << 8;
      const bool last = i + 2 == data.size();
      if ((unit == 0) != last || unit == u'\r' || unit == u'\n') return false;
    }
    return true;
  }

  std::string bytes_;
  std::u16string line_;  // being built
};

void WriteTree(Writer& writer, const RegistryKey& key, const std::u16string& path) {
  writer.BeginKey(path);
  for (const RegistryValue& value : key.values) writer.Value(value);
  writer.EndKey();
  for (const auto& subkey : key.subkeys) {
    if (!subkey->link) WriteTree(writer, *subkey, path + u'\\' + subkey->name);
  }
}

// Whether everything arrived; if not, `errno` says why. `file` may be null: a failed open.
bool WriteAndClose(File file, std::string_view bytes) {
  if (!file) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  const int error = errno;
  const bool closed = std::fclose(file.release()) == 0;
  if (!written) errno = error;
  return written && closed;
}

}  // namespace

std::string InputError::Text() const {
  return file + ":" + (line == 0 ? "" : std::to_string(line) + ":") + " " + message;
}

std::optional<InputError> ReadRegistryExport(const std::string& path, Registry& registry) {
  const auto unreadable = [&](const std::string& why) { return InputError{path, 0, why}; };
  std::error_code error;
  if (fs::is_directory(path, error)) return unreadable("expected a registry export, found a directory");
  const File file(std::fopen(path.c_str(), "rb"));
  if (!file) return unreadable(std::string("cannot be opened: ") + std::strerror(errno));

  constexpr std::size_t kStep = std::size_t{1} << 20;
  std::string bytes;
  const std::uintmax_t size = fs::file_size(path, error);
  if (!error) bytes.reserve(static_cast<std::size_t>(size) + kStep);
  for (std::size_t stored = kStep; stored == kStep;) {
    const std::size_t used = bytes.size();
    bytes.resize(used + kStep);
    stored = std::fread(bytes.data() + used, 1, kStep, file.get());
    bytes.resize(used + stored);
  }
  if (std::ferror(file.get()) != 0) return unreadable(std::string("cannot be read: ") + std::strerror(errno));
  return ReadRegistryExport(path, bytes, registry);
}

std::optional<InputError> ReadRegistryExport(const std::string& file, std::string_view bytes, Registry& registry) {
  const auto unreadable = [&](const std::string& why) { return InputError{file, 0, why}; };
  const auto readUtf16 = [&](std::string_view text, std::size_t low) -> std::optional<InputError> {
    if (text.empty()) return unreadable("expected a registry export, found an empty file");
    auto result = Parser<Utf16Text>(file, {text, low}, registry).Run();
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
  // Version 4 was written in the system's 8-bit encoding; version 5 in 8 bits comes from somebody's text editor.
  const bool isUtf8 = marked || (!bytes.starts_with("REGEDIT4") && IsUtf8(bytes));
  return Parser<ByteText>(file, {bytes, isUtf8}, registry).Run();
}

std::string FormatRegistryExport(const Registry& registry) {
  Writer writer;
  for (const auto& hive : registry.Root().subkeys) {
    if (!hive->link) WriteTree(writer, *hive, hive->name);
  }
  return writer.Finish();
}

std::string FormatRegistryChanges(const std::vector<RegistryChange>& changes) {
  Writer writer;
  const RegistryChange* section = nullptr;  // a change of the key whose section is being written
  for (const RegistryChange& change : changes) {
    if (section != nullptr && (change.keyDeleted || section->key != change.key)) {
      writer.EndKey();
      section = nullptr;
    }
    if (change.keyDeleted) {
      writer.DeletedKey(change.key);
      continue;
    }
    if (section == nullptr) writer.BeginKey(change.key);
    section = &change;
    if (change.after) {
      writer.Value(*change.after);
    } else if (change.name) {
      writer.DeletedValue(*change.name);
    }
  }
  if (section != nullptr) writer.EndKey();
  return writer.Finish();
}

std::optional<std::string> WriteFileWhole(const std::string& path, std::string_view bytes) {
  const auto failed = [&](const std::string& why) { return path + ": " + why; };
  std::error_code error;
  const fs::file_status earlier = fs::symlink_status(path, error);
  // A device, a pipe or a link is written to where it is. (/dev/stdout is a link, and must stay one.)
  if (fs::exists(earlier) && !fs::is_regular_file(earlier)) {
    if (WriteAndClose(File(std::fopen(path.c_str(), "wb")), bytes)) return std::nullopt;
    return failed(std::strerror(errno));
  }

  const fs::path temporary =
      fs::path(path).replace_filename("ztlsim-" + std::to_string(std::random_device()()) + ".tmp");
  File file(std::fopen(temporary.string().c_str(), "wb"));
  if (!file) return failed(std::strerror(errno));
  std::string trouble;
  if (!WriteAndClose(std::move(file), bytes)) {
    trouble = std::strerror(errno);
  } else {
    if (fs::exists(earlier)) fs::permissions(temporary, earlier.permissions(), error);
    fs::rename(temporary, path, error);
    if (!error) return std::nullopt;
    trouble = error.message();
  }
  fs::remove(temporary, error);
  return failed(trouble);
}

}  // namespace ztlsim
