// The simulated filter driver with its control device.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/types.h"

namespace simulation {

using namespace platform;

struct DeviceRequest {
  DWORD code;
  std::u16string path;  // the input, as text
  DWORD bytes;          // of the input
  DWORD result;         // 0 or a system error code
};

struct Driver {
  std::optional<std::array<DWORD, 4>> version;  // of the running driver; unset: it is not running
  std::map<DWORD, DWORD> failures;              // the system error codes that requests, by their codes, fail with

  std::vector<DeviceRequest> requests;  // every request, in order
  bool isOpen = false;                  // its control device is opened by one at a time
};

}  // namespace simulation
