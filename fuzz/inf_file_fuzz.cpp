// Any bytes are read as an INF file. Its fields survive being written and read again, in quotes and as UTF-16, keys are
// found where they stand, and a list of INF files needs nothing after the signature. A profile's value survives too.
#include "fuzz/fuzz.h"
#include "simulation/inf_file.h"
#include "simulation/text_encoding.h"

using namespace simulation;
using Fields = std::vector<std::optional<std::u16string>>;  // a line's, from its key on

namespace {

// The lines of a section, as far as anything is said of them.
std::vector<Fields> Lines(const InfFile& inf, UINT section) {
  std::vector<Fields> lines;
  for (UINT line = 0; inf.Field({section, line}, 1); ++line) {
    Fields& fields = lines.emplace_back(Fields{inf.Field({section, line}, 0)});
    while (auto field = inf.Field({section, line}, fields.size())) fields.push_back(std::move(field));
  }
  return lines;
}

// In quotes, with what has a meaning there doubled.
std::u16string Quoted(std::u16string_view text) {
  std::u16string quoted = u"\"";
  for (const char16_t unit : text) quoted.append(unit == u'"' || unit == u'%' ? 2 : 1, unit);
  return quoted + u'"';
}

}  // namespace

void ztl_fuzz::Check(std::string_view bytes) {
  InfFile inf;
  UINT errorLine = 0;
  const auto rc = inf.Read(bytes, errorLine);
  const std::u16string text = DecodeSetupText(bytes);
  ZTL_HOLDS(rc == ERROR_SUCCESS ? errorLine == 0 : errorLine > 0 && errorLine <= text.size() + 1);

  if (rc == ERROR_SUCCESS && bytes.find('%') == bytes.npos) {
    InfFile listed;
    listed.Read(bytes, errorLine, true);
    ZTL_HOLDS(listed.HasSignature() == inf.HasSignature());
  }
  const auto sections = static_cast<UINT>(std::count(text.begin(), text.end(), u'['));
  std::vector<std::vector<Fields>> read;
  std::u16string written = u"\xFEFF";
  bool isLong = false;  // doubled, it may be cut
  for (UINT section = 0; section < sections; ++section) {
    written += u"[" + Utf8ToUtf16(std::to_string(section)) + u"]\n";
    for (const Fields& fields : read.emplace_back(Lines(inf, section))) {
      if (fields[0]) written += Quoted(*fields[0]) + u"=";
      for (std::size_t i = 1; i < fields.size(); ++i) {
        written += Quoted(*fields[i]) + (i + 1 < fields.size() ? u"," : u"");
        isLong = isLong || fields[i]->size() > 2000;
      }
      written += u"\n";
    }
  }
  if (isLong || written.size() > 20000) return;
  InfFile again;
  ZTL_HOLDS(again.Read({reinterpret_cast<const char*>(written.data()), 2 * written.size()}, errorLine) ==
            ERROR_SUCCESS);
  for (UINT section = 0; section < sections; ++section) {
    const std::u16string name = Utf8ToUtf16(std::to_string(section));
    const std::vector<Fields> lines = Lines(again, section);
    ZTL_HOLDS(lines == read[section]);
    for (std::size_t line = 0; line < lines.size(); ++line) {
      if (!lines[line][0]) continue;
      const std::u16string_view key = *lines[line][0];
      const auto place = again.Find(name, &key);
      ZTL_HOLDS(place && place->section == section && place->line <= line);
    }
  }
  for (const char16_t* const key : {u"k", u"Signature", u"DriverVer"})
    if (const auto value = ProfileValue(text, u"Version", key))
      ZTL_HOLDS(ProfileValue(u"[version]\r\n" + std::u16string(key) + u"='" + *value + u"'", u"Version", key) == value);
}
