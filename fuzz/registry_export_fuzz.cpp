// Any bytes are read as a registry export; what was read must survive being written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ztlsim/input/registry_export.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/report/registry_export_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using simulation::Registry;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Registry registry;
  if (const auto error = ztlsim::ReadRegistryExport("input", bytes, registry)) {
    if (error->Text().empty()) std::abort();
  }
  const std::string written = ztlsim::FormatRegistryExport(registry);
  Registry again;
  if (ztlsim::ReadRegistryExport("written", written, again)) std::abort();
  if (ztlsim::FormatRegistryExport(again) != written) std::abort();
  if (!ztlsim::CompareRegistries(registry, again).empty()) std::abort();
  // The registry as a list of changes to an empty one.
  Registry changed;
  const auto changes = ztlsim::CompareRegistries(changed, registry);
  if (ztlsim::ReadRegistryExport("changes", ztlsim::FormatRegistryChanges(changes), changed)) std::abort();
  if (ztlsim::FormatRegistryExport(changed) != written) std::abort();
  return 0;
}
