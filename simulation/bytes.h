// Reading numbers from bytes of any origin.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

#include "platform/types.h"

namespace simulation {

using namespace platform;

using Bytes = std::span<const BYTE>;

// From an offset on; empty beyond the end.
inline Bytes From(Bytes bytes, std::size_t offset) { return bytes.subspan(std::min(offset, bytes.size())); }

// A number at an offset; nothing when it reaches beyond the end.
template <class Number>
std::optional<Number> At(Bytes bytes, std::size_t offset) {
  Number number;
  if (offset > bytes.size() || bytes.size() - offset < sizeof(number)) return std::nullopt;
  std::memcpy(&number, bytes.data() + offset, sizeof(number));
  return number;
}

}  // namespace simulation
