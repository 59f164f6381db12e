// The module's resources, made from their files when the project is built.
#pragma once

#include <span>
#include <string_view>

#include "platform/types.h"

namespace platform::simulated {

struct Resource {
  std::u16string_view type;
  WORD id;
  const BYTE* data;
  DWORD bytes;
};
extern const std::span<const Resource> kResources;

}  // namespace platform::simulated
