// The module's resources, made from their files when the project is built.
#pragma once

#include <span>

#include "platform/types.h"

namespace simulation {

using namespace platform;

struct Resource {
  const char16_t* type;  // a text or, like any name of a resource, a number
  WORD id;
  const BYTE* data;
  DWORD bytes;
};
extern const std::span<const Resource> kResources;

}  // namespace simulation
