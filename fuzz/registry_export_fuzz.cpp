// Any bytes are read as a registry export. What was read survives being written and read again: as UTF-16, as UTF-8
// where that can hold it, or as changes to an empty registry.
#include "fuzz/fuzz.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/text_encoding.h"

using simulation::Registry;
using ztlsim::ReadRegistryExport;

std::vector<std::string> ztl_fuzz::Seeds() {
  std::vector<std::string> seeds;
  for (const char* const sample : {"laptop", "damaged", "saved-parameters", "windows-5.2"})
    seeds.push_back(Sample("samples/" + std::string(sample) + ".reg"));
  std::string small = "\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n\r\n[HKEY_USERS\\a]\r\n@=\"b\\\\\"\r\n";
  small += "\"c\"=dword:0000000a\n\"d\"=hex(7):61,00,00,\\\n  00,00,00 ; e\n\"f\"=-\n[-HKEY_USERS\\a\\b]\n";
  seeds.push_back(small);
  seeds.push_back("REGEDIT4\n[HKLM\\\xE4]\n\"x\"=\"\x80\"\n\"y\"=hex(2):25,61,25,00\n\"z\"=hex(b):01,02\n");
  return seeds;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Registry registry;
  if (const auto error = ReadRegistryExport("input", {reinterpret_cast<const char*>(data), size}, registry))
    ZTL_HOLDS(!error->message.empty() && error->line <= size + 1);
  // One form for each input: writing and reading cost as much as all the rest.
  const std::size_t form = size % 3;
  Registry again;
  std::string written;
  if (form == 2) {
    written = ztlsim::FormatRegistryChanges(ztlsim::CompareRegistries(again, registry));
  } else {
    written = ztlsim::FormatRegistryExport(registry);
  }
  if (form == 1) {
    const std::u16string text = ztl_fuzz::Text16(written);
    if (std::string utf8 = ztlsim::Utf16ToUtf8(text); ztlsim::Utf8ToUtf16(utf8) == text) written = std::move(utf8);
  }
  ZTL_HOLDS(!ReadRegistryExport("written", written, again));
  ZTL_HOLDS(ztlsim::CompareRegistries(registry, again).empty());
  return 0;
}
