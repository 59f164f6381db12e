#include "simulation/inf_file.h"

#include <algorithm>
#include <utility>

#include "platform/setup_files.h"
#include "simulation/registry.h"
#include "simulation/text_encoding.h"

namespace simulation {
namespace {

constexpr std::size_t kMaxSectionName = 255;  // characters
constexpr std::size_t kMaxField = 4095;       // characters, before and after strings are replaced; the rest is dropped
constexpr char16_t kEndOfFile = 0x1A;
constexpr std::u16string_view kVersion = u"Version";
constexpr std::u16string_view kSignature = u"Signature";
constexpr std::u16string_view kStrings = u"STRINGS";

// Directories by the numbers that INF files know them by, below the Windows directory. The numbers of a user's folders,
// of the spooler's and of a driver package's own are not answered here.
constexpr std::pair<UINT, std::u16string_view> kDirectories[] = {
    {10, u""}, {11, u"\\System32"}, {12, u"\\System32\\drivers"}, {17, u"\\Inf"}, {18, u"\\Help"}, {20, u"\\Fonts"},
    {25, u""}, {50, u"\\System"},
};
constexpr UINT kSourceDirectory = 1;
constexpr UINT kRootDirectories[] = {24, 30};

bool IsSpace(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r') || c == u'\0' || c == kEndOfFile; }

std::u16string_view Trimmed(std::u16string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

bool SameName(std::u16string_view a, std::u16string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char16_t x, char16_t y) { return UpperCase(x) == UpperCase(y); });
}

constexpr std::string_view kUtf16Mark = "\xFF\xFE";

// UTF-16 without a mark: the upper byte of most characters is zero.
bool LooksLikeUtf16(std::string_view bytes) {
  std::size_t zeros = 0;
  for (std::size_t i = 1; i < bytes.size(); i += 2) zeros += bytes[i] == '\0';
  return bytes.size() % 2 == 0 && zeros * 4 > bytes.size();
}

std::u16string DecodeUtf16(std::string_view bytes) {
  std::u16string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
    text.push_back(
        static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8));
  return text;
}

// The number that a name is, after white space and a plus; nothing when it is none.
std::optional<UINT> DirectoryNumber(std::u16string_view name) {
  while (!name.empty() && IsSpace(name.front())) name.remove_prefix(1);
  if (name.starts_with(u'+')) name.remove_prefix(1);
  if (name.empty() || name.size() > 5) return std::nullopt;
  UINT number = 0;
  for (const char16_t digit : name) {
    if (digit < u'0' || digit > u'9') return std::nullopt;
    number = number * 10 + (digit - u'0');
  }
  return number;
}

}  // namespace

std::u16string DecodeSetupText(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) return Utf8ToUtf16(bytes.substr(3));
  return bytes.starts_with(kUtf16Mark) ? DecodeUtf16(bytes.substr(kUtf16Mark.size())) : Windows1252ToUtf16(bytes);
}

// Reads one text into an InfFile. `at_` is the next character; a text ends at its end or at a Ctrl-Z.
class InfFile::Parser {
 public:
  Parser(InfFile& file, std::u16string_view text)
      : file_(file), text_(text.substr(0, std::min(text.find(kEndOfFile), text.size()))) {}

  LSTATUS Run(UINT& errorLine, bool untilSignature) {
    for (; at_ < text_.size(); SkipToNextLine()) {
      SkipSpaces();
      LSTATUS rc = ERROR_SUCCESS;
      if (AtEndOfLine() || text_[at_] == u';') continue;
      if (text_[at_] == u'[') {
        rc = ReadSectionName();
      } else {
        if (!section_ && strayLine_ == 0) strayLine_ = lineNumber_;
        ReadLine();
        if (untilSignature && isVersion_ && IsSignature()) break;
      }
      if (rc != ERROR_SUCCESS && !untilSignature) {
        errorLine = lineNumber_;
        return rc;
      }
    }
    // Text before the first section is passed over in a file that has strings.
    if (strayLine_ == 0 || untilSignature || file_.sectionIndices_.contains(std::u16string(kStrings)))
      return ERROR_SUCCESS;
    errorLine = strayLine_;
    return ERROR_EXPECTED_SECTION_NAME;
  }

 private:
  // A carriage return is white space unless it belongs to the end of a line.
  bool AtEndOfLine() const {
    return at_ >= text_.size() || text_[at_] == u'\n' ||
           (text_[at_] == u'\r' && at_ + 1 < text_.size() && text_[at_ + 1] == u'\n');
  }

  void SkipSpaces() {
    while (!AtEndOfLine() && IsSpace(text_[at_])) ++at_;
  }

  void SkipToNextLine() {
    at_ = std::min(text_.find(u'\n', at_), text_.size());
    if (at_ < text_.size()) ++at_, ++lineNumber_;
  }

  LSTATUS ReadSectionName() {
    const std::size_t start = ++at_;
    while (!AtEndOfLine() && text_[at_] != u']') ++at_;
    if (AtEndOfLine()) return ERROR_BAD_SECTION_NAME_LINE;
    const std::u16string_view name = text_.substr(start, at_ - start);
    if (name.size() > kMaxSectionName) return ERROR_SECTION_NAME_TOO_LONG;
    const auto next = static_cast<UINT>(file_.sections_.size());
    section_ = file_.sectionIndices_.try_emplace(UpperCase(name), next).first->second;
    if (*section_ == next) file_.sections_.emplace_back();
    isVersion_ = SameName(name, kVersion);
    return ERROR_SUCCESS;
  }

  bool IsSignature() const {
    const std::optional<std::u16string_view> key = file_.Key(line_);
    return key && SameName(*key, kSignature);
  }

  void ReadLine() {
    line_ = {.firstField = file_.fieldEnds_.size(), .fields = 0, .hasKey = false};
    StartField();
    while (!AtEndOfLine() && text_[at_] != u';') {
      const char16_t c = text_[at_];
      if (c == u'"') {
        ReadQuoted();
      } else if (c == u',' || (c == u'=' && line_.fields == 0)) {
        line_.hasKey = line_.hasKey || c == u'=';
        ++at_;
        EndField();
        StartField();
      } else if (c == u'\\') {
        ReadBackslashes();
      } else {
        Put(c, !IsSpace(c));
        ++at_;
      }
    }
    EndField();
    if (section_) file_.sections_[*section_].lines.push_back(line_);
  }

  // From a quote to the one that closes it or the line's end; two quotes in between are one of the text. White space
  // beside quotes counts as in a field's middle, even when there is nothing between them.
  void ReadQuoted() {
    kept_ = file_.text_.size();
    isQuoted_ = true;
    for (++at_; !AtEndOfLine(); ++at_) {
      if (text_[at_] == u'"') {
        if (at_ + 1 == text_.size() || text_[at_ + 1] != u'"') {
          ++at_;
          break;
        }
        ++at_;
      }
      Put(text_[at_], true);
    }
  }

  // Backslashes with nothing but white space or a comment after them go on at the next line's text; others are text.
  void ReadBackslashes() {
    const std::size_t start = at_;
    while (!AtEndOfLine() && (text_[at_] == u'\\' || IsSpace(text_[at_]))) ++at_;
    if (!AtEndOfLine() && text_[at_] != u';') {
      for (const char16_t c : text_.substr(start, at_ - start)) Put(c, true);
      return;
    }
    file_.text_.resize(kept_);
    SkipToNextLine();
    SkipSpaces();
  }

  void StartField() {
    fieldStart_ = kept_ = file_.text_.size();
    isQuoted_ = false;
  }

  // White space counts inside a field: `isKept` is false for what is dropped again at the field's end.
  void Put(char16_t c, bool isKept) {
    if (file_.text_.size() - fieldStart_ >= kMaxField || (!isKept && kept_ == fieldStart_ && !isQuoted_)) return;
    file_.text_.push_back(c != u'\0' ? c : u' ');
    if (isKept) kept_ = file_.text_.size();
  }

  void EndField() {
    file_.text_.resize(kept_);
    file_.fieldEnds_.push_back(kept_);
    ++line_.fields;
  }

  InfFile& file_;
  const std::u16string_view text_;
  std::size_t at_ = 0;
  UINT lineNumber_ = 1;
  UINT strayLine_ = 0;  // the first line before any section, 0: none
  std::optional<UINT> section_;
  bool isVersion_ = false;  // the section is [Version]
  Line line_ = {};
  std::size_t fieldStart_ = 0;
  std::size_t kept_ = 0;   // the field's end in text_ without white space after it
  bool isQuoted_ = false;  // the field has had a quote
};

LSTATUS InfFile::Read(std::string_view bytes, UINT& errorLine, bool untilSignature) {
  strings_.reset();  // what is read may move their texts, and add to them
  const bool isBareUtf16 = !untilSignature && !bytes.starts_with(kUtf16Mark) && LooksLikeUtf16(bytes);
  return Parser(*this, isBareUtf16 ? DecodeUtf16(bytes) : DecodeSetupText(bytes)).Run(errorLine, untilSignature);
}

bool InfFile::HasSignature() const {
  const std::optional<Place> place = Find(kVersion, &kSignature);
  if (!place) return false;
  const Line& line = sections_[place->section].lines[place->line];
  if (!line.hasKey) return false;
  const std::u16string_view signature = Text(line, 1);
  return SameName(signature, u"$Windows NT$") || SameName(signature, u"$Chicago$") ||
         SameName(signature, u"$Windows 95$");
}

std::u16string_view InfFile::Text(const Line& line, std::size_t index) const {
  const std::size_t field = line.firstField + index;
  const std::size_t start = field == 0 ? 0 : fieldEnds_[field - 1];
  return std::u16string_view(text_).substr(start, fieldEnds_[field] - start);
}

// The only field of a line is its key too.
std::optional<std::u16string_view> InfFile::Key(const Line& line) const {
  if (!line.hasKey && line.fields != 1) return std::nullopt;
  return Text(line, 0);
}

std::optional<InfFile::Place> InfFile::Find(std::u16string_view section, const std::u16string_view* key) const {
  const auto found = sectionIndices_.find(UpperCase(section));
  if (found == sectionIndices_.end()) return std::nullopt;
  const std::vector<Line>& lines = sections_[found->second].lines;
  const auto line = std::find_if(lines.begin(), lines.end(), [&](const Line& candidate) {
    if (key == nullptr) return true;
    const std::optional<std::u16string_view> text = Key(candidate);
    if (!text) return false;
    return text->find(u'%') == text->npos ? SameName(*text, *key) : SameName(Substituted(*text), *key);
  });
  if (line == lines.end()) return std::nullopt;
  return Place{found->second, static_cast<UINT>(line - lines.begin())};
}

std::optional<std::u16string> InfFile::Field(Place place, std::size_t field) const {
  if (place.section >= sections_.size() || place.line >= sections_[place.section].lines.size()) return std::nullopt;
  const Line& line = sections_[place.section].lines[place.line];
  if (field == 0) {
    const std::optional<std::u16string_view> key = Key(line);
    return key ? std::optional(Substituted(*key)) : std::nullopt;
  }
  const std::size_t index = line.hasKey ? field : field - 1;
  if (index >= line.fields) return std::nullopt;
  return Substituted(Text(line, index));
}

std::u16string InfFile::Substituted(std::u16string_view text) const {
  if (text.find(u'%') == text.npos) return std::u16string(text);
  if (!strings_) {
    strings_.emplace();
    if (const auto found = sectionIndices_.find(std::u16string(kStrings)); found != sectionIndices_.end())
      for (const Line& line : sections_[found->second].lines)
        if (const auto key = Key(line)) strings_->try_emplace(UpperCase(*key), Text(line, line.hasKey ? 1 : 0));
  }
  std::u16string result;
  while (!text.empty() && result.size() < kMaxField) {
    const std::size_t start = std::min(text.find(u'%'), text.size());
    result += text.substr(0, start);
    text.remove_prefix(start);
    const std::size_t end = text.find(u'%', 1);
    if (end == text.npos) {
      result += text;
      break;
    }
    const std::u16string_view name = text.substr(1, end - 1);
    const auto found = strings_->find(UpperCase(name));
    if (name.empty()) {
      result += u'%';
    } else if (found != strings_->end()) {
      result += found->second;
    } else if (const std::optional<std::u16string> directory = Directory(name)) {
      result += *directory;
      if (result.ends_with(u'\\') && text.substr(end + 1).starts_with(u'\\')) result.pop_back();
    } else {
      result += text.substr(0, end + 1);
    }
    text.remove_prefix(end + 1);
  }
  if (result.size() > kMaxField) result.resize(kMaxField);
  return result;
}

std::optional<std::u16string> InfFile::Directory(std::u16string_view name) const {
  const std::optional<UINT> number = DirectoryNumber(name);
  if (!number) return std::nullopt;
  if (number == kSourceDirectory) return places_.source;
  for (const UINT root : kRootDirectories)
    if (number == root) return places_.windows.substr(0, places_.windows.find(u'\\') + 1);
  for (const auto& [known, below] : kDirectories)
    if (number == known) return places_.windows + std::u16string(below);
  return std::nullopt;
}

std::optional<std::u16string> ProfileValue(std::u16string_view text, std::u16string_view section,
                                           std::u16string_view key) {
  section = Trimmed(section);
  key = Trimmed(key);
  bool isInSection = false;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(u"\r\n"), text.size());
    const std::u16string_view line = Trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty() || line.front() == u';') continue;
    if (line.front() == u'[') {
      const std::size_t close = line.rfind(u']');
      if (close == line.npos) continue;
      if (isInSection) return std::nullopt;
      isInSection = SameName(Trimmed(line.substr(1, close - 1)), section);
      continue;
    }
    const std::size_t equals = line.find(u'=');
    if (!isInSection || !SameName(Trimmed(line.substr(0, equals)), key)) continue;
    if (equals == line.npos) return std::nullopt;
    std::u16string_view value = Trimmed(line.substr(equals + 1));
    value = value.substr(0, value.find(u'\0'));
    if (value.size() >= 2 && value.front() == value.back() && (value.front() == u'"' || value.front() == u'\''))
      value = value.substr(1, value.size() - 2);
    return std::u16string(value);
  }
  return std::nullopt;
}

}  // namespace simulation
