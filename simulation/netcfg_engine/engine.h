// The simulated network configuration engine: components, sessions with their write lock, binding paths and the notify
// object of each session, over the registry and COM operations of the boundary.
//
// What it models is written down in docs/architecture.md.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/netcfg.h"

namespace simulation {

using namespace platform;

// One request that the notify object sent through its callback.
struct PnpReconfig {
  NCRP_LAYER layer;
  std::u16string upper;
  std::u16string lower;
  std::vector<BYTE> data;
};

// One call of an operation of the engine.
struct EngineRequest {
  std::string text;  // UTF-8: the operation, and as far as it has them <a name>, a number and data in hexadecimal
  HRESULT result;
};

// The engine's part of a machine.
struct Engine {
  // How it behaves.
  bool grantSecondLock = true;  // the write lock is granted to a second session of the process that holds it
  std::u16string otherClient;   // another client holds the write lock, under this description; empty: none does
  std::int64_t otherClientMilliseconds = INT64_MAX;  // and releases it after so long on the simulated clock

  bool recordRequests = false;

  // What happened.
  std::vector<PnpReconfig> pnpReconfigs;  // every request sent to the driver, in order
  std::vector<EngineRequest> requests;    // of every kind, in the order of their beginnings, when they are recorded
  std::atomic<std::int64_t> objects{0};   // objects that have not been released

  // Its state; for the engine itself.
  std::u16string lockHolder;                            // the description of the process's own first holder
  int lockHolders = 0;                                  // its sessions that hold the write lock
  std::atomic<int> callsUnderWay{0};                    // of the engine, while it has not called the module
  int unloading = 0;                                    // sessions that are releasing their notify object
  std::map<std::u16string, std::u16string> lastStacks;  // the stack that each left last, as TakeOut stores it
};

// Each returns an object with one reference, which the caller releases; none outlives the current machine.
INetCfg* CreateNetCfg();  // as CoCreateInstance does
// An engine object as a notify object gets it: that of a transaction that is under way, which others open and close.
INetCfg* CreateTransaction();
INetCfgPnpReconfigCallback* CreatePnpReconfigCallback();            // records into Engine::pnpReconfigs
INetLanConnectionUiInfo* CreateLanConnection(const GUID& adapter);  // the context of its properties

}  // namespace simulation
