// Writing registry exports as Windows' own tool writes them: version 5.00, UTF-16 with byte order mark, CR LF, wrapped
// hexadecimal lines.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulation/registry.h"
#include "ztlsim/inspect/registry_changes.h"

namespace ztlsim {

// Calls in the order of the file: each key with its values, BeginKey to EndKey; deleted keys stand by themselves.
class RegistryExportWriter {
 public:
  RegistryExportWriter();
  void BeginKey(std::u16string_view path);
  void EndKey();
  void DeletedKey(std::u16string_view path);
  void Value(const simulation::RegistryValue& value);
  void DeletedValue(std::u16string_view name);
  std::string Finish() { return std::move(bytes_); }

 private:
  void Put(std::u16string_view text);
  void BeginValue(std::u16string_view name);
  void EndValue();
  void Quote(std::u16string_view text);
  void Hex(platform::BYTE byte);
  void Bytes(const std::vector<platform::BYTE>& data);

  std::string bytes_;
  std::u16string line_;  // being built
};

// The whole registry as the bytes of an export. Links are left out: their targets are written under their own names.
std::string FormatRegistryExport(const simulation::Registry& registry);

// The changes as the bytes of an export: importing it into the registry as it was makes the changes.
std::string FormatRegistryChanges(const std::vector<RegistryChange>& changes);

}  // namespace ztlsim
