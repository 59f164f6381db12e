// The data of registry values as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulation/registry.h"

namespace ztlsim {

std::string TypeName(platform::DWORD type);  // "REG_SZ"; the number of a type without a name

// The data as UTF-16 up to its first NUL, and as the entries of a multi-string; an odd last byte is left out.
std::u16string TextOf(const simulation::RegistryValue& value);
std::vector<std::u16string> ListOf(const simulation::RegistryValue& value);

std::optional<std::uint32_t> NumberOf(const simulation::RegistryValue& value);  // of a whole DWORD
std::string HexadecimalOf(const simulation::RegistryValue& value);              // two digits a byte, nothing between

}  // namespace ztlsim
