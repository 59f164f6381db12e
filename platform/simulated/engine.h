// The simulated network configuration engine: its objects as the notify object sees them, over the registry operations
// of the boundary.
#pragma once

#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/netcfg.h"

namespace platform::simulated {

// One request that the notify object sent through its callback.
struct PnpReconfig {
  NCRP_LAYER layer;
  std::u16string upper;
  std::u16string lower;
  std::vector<BYTE> data;
};

// Each gives an object with one reference, which the caller releases; none outlives the current machine.
INetCfg* CreateNetCfg();
INetCfgPnpReconfigCallback* CreatePnpReconfigCallback();  // records into Machine::pnpReconfigs

}  // namespace platform::simulated
