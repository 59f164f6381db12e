// The adapter instances of a machine: the subkeys of the net adapter class, read by platform calls within the module's
// limits where the module reads the value too.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/registry.h"

namespace ztlsim {

struct AdapterInstance {
  std::u16string subkey;
  std::u16string description;                             // "DriverDesc", of any size; empty when there is none
  std::size_t descriptionBytes = 0;                       // that value's size in the registry
  std::u16string devNodeId;                               // "DeviceInstanceID", of any size; empty when there is none
  std::optional<std::u16string> guid;                     // "NetCfgInstanceId"; unset when the module does not read it
  std::optional<std::vector<std::u16string>> rootDevice;  // of the linkage; unset when the module does not read it
  std::vector<std::u16string> upperBind;                  // likewise; empty then
};

// All instances, in the order of their subkeys. `classKey` is the open net adapter class key, with read access.
std::vector<AdapterInstance> ReadAdapterInstances(platform::HKEY classKey);

}  // namespace ztlsim
