// Binding-path control: finds a component's downward binding path by its token and enables or disables it.
//
// A path token is the component's id, "->" and the device node id of the adapter that the path leads to. Tokens are
// compared by the whole string, without case.
#pragma once

#include "platform/com_ptr.h"
#include "platform/netcfg.h"
#include "platform/types.h"

namespace ztl {

inline constexpr char16_t kTokenArrow[] = u"->";

// The component's path with that token, or null. `session` is an open configuration session.
platform::ComPtr<platform::INetCfgBindingPath> FindBindingPath(platform::INetCfg* session, const char16_t* componentId,
                                                               const char16_t* pathToken);

// Enables or disables the path and applies that, in a configuration session of its own (HrOpenSession). The result
// code of the last step that was made; 0 when the component has no such path.
platform::HRESULT EnableBindingPath(const char16_t* componentId, const char16_t* pathToken, bool enable);

}  // namespace ztl
