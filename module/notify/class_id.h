// The COM class of the notify object.
#pragma once

#include "platform/types.h"

namespace ztl {

inline constexpr platform::CLSID CLSID_CSampleFilter{
    0x5B1E7C42, 0x93D0, 0x4F6A, {0x8E, 0x25, 0xC0, 0x7A, 0x1D, 0x39, 0xB4, 0xE8}};

}  // namespace ztl
