#include "ztlsim/report/registry_export_writer.h"

#include <bit>
#include <cstring>
#include <utility>

namespace ztlsim {
namespace {

using platform::BYTE;
using platform::REG_BINARY;
using platform::REG_DWORD;
using platform::REG_SZ;
using simulation::Registry;
using simulation::RegistryKey;
using simulation::RegistryValue;

// Text is moved as bytes.
static_assert(std::endian::native == std::endian::little);

constexpr std::size_t kPartBytes = 65536;  // that the sink gets at a time
constexpr std::u16string_view kDigits = u"0123456789abcdef";

// Whether quotes can hold the text: whole characters, one NUL, at the end, and no line break, which would go into the
// file raw.
bool IsPlainText(const std::vector<BYTE>& data) {
  if (data.empty() || data.size() % sizeof(char16_t) != 0) return false;
  for (std::size_t i = 0; i < data.size(); i += 2) {
    const int unit = data[i] | data[i + 1] << 8;
    const bool last = i + 2 == data.size();
    if ((unit == 0) != last || unit == u'\r' || unit == u'\n') return false;
  }
  return true;
}

void WriteTree(RegistryExportWriter& writer, const RegistryKey& key, const std::u16string& path) {
  writer.BeginKey(path);
  for (const RegistryValue& value : key.values) writer.Value(value);
  writer.EndKey();
  for (const auto& subkey : key.subkeys) {
    if (!subkey->link) WriteTree(writer, *subkey, path + u'\\' + subkey->name);
  }
}

}  // namespace

RegistryExportWriter::RegistryExportWriter(simulation::Sink sink) : sink_(std::move(sink)) {
  Put(u"\xFEFFWindows Registry Editor Version 5.00\r\n\r\n");
}

void RegistryExportWriter::BeginKey(std::u16string_view path) {
  Put(u"[");
  Put(path);
  Put(u"]\r\n");
}

void RegistryExportWriter::EndKey() { Put(u"\r\n"); }

void RegistryExportWriter::DeletedKey(std::u16string_view path) {
  BeginKey(u"-" + std::u16string(path));
  EndKey();
}

void RegistryExportWriter::Value(const RegistryValue& value) {
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

void RegistryExportWriter::DeletedValue(std::u16string_view name) {
  BeginValue(name);
  line_ += u'-';
  EndValue();
}

void RegistryExportWriter::Put(std::u16string_view text) {
  bytes_.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
  if (bytes_.size() >= kPartBytes) Finish();
}

void RegistryExportWriter::Finish() {
  sink_(bytes_);
  bytes_.clear();
}

void RegistryExportWriter::BeginValue(std::u16string_view name) {
  line_.clear();
  if (name.empty()) {
    line_ += u'@';
  } else {
    Quote(name);
  }
  line_ += u'=';
}

void RegistryExportWriter::EndValue() {
  line_ += u"\r\n";
  Put(line_);
}

void RegistryExportWriter::Quote(std::u16string_view text) {
  line_ += u'"';
  for (const char16_t unit : text) {
    if (unit == u'\\' || unit == u'"' || unit == u'\r' || unit == u'\n' || unit == u'\0') line_ += u'\\';
    line_ += unit == u'\r' ? u'r' : unit == u'\n' ? u'n' : unit == u'\0' ? u'0' : unit;
  }
  line_ += u'"';
}

void RegistryExportWriter::Hex(BYTE byte) {
  line_ += kDigits[byte >> 4];
  line_ += kDigits[byte & 0xF];
}

// Windows' tool breaks the line after the first comma that stands in column 77 or later.
void RegistryExportWriter::Bytes(const std::vector<BYTE>& data) {
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

void WriteRegistryExport(const Registry& registry, const simulation::Sink& sink) {
  RegistryExportWriter writer(sink);
  for (const auto& hive : registry.Root().subkeys) {
    if (!hive->link) WriteTree(writer, *hive, hive->name);
  }
  writer.Finish();
}

std::string FormatRegistryExport(const Registry& registry) {
  std::string bytes;
  WriteRegistryExport(registry, [&bytes](std::string_view part) { bytes += part; });
  return bytes;
}

std::string FormatRegistryChanges(const std::vector<RegistryChange>& changes) {
  std::string bytes;
  RegistryExportWriter writer([&bytes](std::string_view part) { bytes += part; });
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
  writer.Finish();
  return bytes;
}

}  // namespace ztlsim
