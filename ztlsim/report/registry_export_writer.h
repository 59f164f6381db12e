// Writing registry exports as Windows' own tool writes them: version 5.00, UTF-16 with byte order mark, CR LF, wrapped
// hexadecimal lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "simulation/registry.h"
#include "simulation/whole_file.h"
#include "ztlsim/inspect/registry_changes.h"

namespace ztlsim {

// Calls in the order of the file: each key with its values, BeginKey to EndKey; deleted keys stand by themselves.
class RegistryExportWriter {
 public:
  explicit RegistryExportWriter(simulation::Sink sink);
  void BeginKey(std::u16string_view path);
  void EndKey();
  void DeletedKey(std::u16string_view path);
  void Value(const simulation::RegistryValue& value);
  void DeletedValue(std::u16string_view name);
  void Finish();

 private:
  void Put(std::u16string_view text);
  void BeginValue(std::u16string_view name);
  void EndValue();
  void Quote(std::u16string_view text);
  void Hex(platform::BYTE byte);
  void Bytes(const std::vector<platform::BYTE>& data);

  simulation::Sink sink_;
  std::string bytes_;    // not in the sink yet
  std::u16string line_;  // being built
};

// The whole registry as the bytes of an export. Links are left out: their targets are written under their own names.
void WriteRegistryExport(const simulation::Registry& registry, const simulation::Sink& sink);
std::string FormatRegistryExport(const simulation::Registry& registry);

// The changes as the bytes of an export: importing it into the registry as it was makes the changes.
std::string FormatRegistryChanges(const std::vector<RegistryChange>& changes);

}  // namespace ztlsim
