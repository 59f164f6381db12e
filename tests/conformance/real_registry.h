// The operating system's registry, byte for byte: text tools complete unterminated texts as they read and write them.
#pragma once

#include <string>
#include <vector>

#include "platform/registry.h"

namespace ztl_conformance {

// Names are UTF-8; keys are paths below HKEY_LOCAL_MACHINE. Failures are thrown as std::runtime_error.
struct RealValue {
  std::string name;
  platform::DWORD type;
  std::vector<platform::BYTE> data;
};
struct RealKey {
  std::string path;
  std::vector<RealValue> values;
};

// The key, everything below it, and all their values; nothing when it is not there.
std::vector<RealKey> ReadTree(const std::string& path);

void SetValue(const std::string& path, const RealValue& value);  // the key is made when it is missing

}  // namespace ztl_conformance
