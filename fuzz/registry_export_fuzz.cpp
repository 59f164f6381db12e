// Any bytes are read as a registry export. What was read survives being written and read again, as UTF-16 or as UTF-8
// where that can hold it. The changes from what a part of the bytes gives to it, and back, make the one of the other.
#include "fuzz/fuzz.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/text_encoding.h"

using namespace ztlsim;
using simulation::Registry;

void ztl_fuzz::Check(std::string_view bytes) {
  Registry registry, again;
  if (const auto error = ReadRegistryExport("input", bytes, registry))
    ZTL_HOLDS(!error->message.empty() && error->line <= bytes.size() + 1);
  // One form for each input: writing and reading cost as much as all the rest.
  const std::size_t form = bytes.size() % 4;
  const auto read = [](const std::string& written, Registry& into, const Registry& expected) {
    ZTL_HOLDS(!ReadRegistryExport("written", written, into) && CompareRegistries(expected, into).empty());
  };
  if (form >= 2) {
    ReadRegistryExport("part", bytes.substr(0, bytes.size() * 3 / 4), again);
    const auto& [from, to] = form == 2 ? std::tie(again, registry) : std::tie(registry, again);
    return read(FormatRegistryChanges(CompareRegistries(from, to)), from, *to.Copy());
  }
  std::string written = FormatRegistryExport(registry);
  const std::u16string text = Text16(written);
  if (std::string utf8 = Utf16ToUtf8(text); form == 1 && Utf8ToUtf16(utf8) == text) written = std::move(utf8);
  read(written, again, registry);
}
