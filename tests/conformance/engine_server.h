// What ztl_engine.dll exports beside its class object: the engine's objects for a transaction that is under way, its
// settings and its record. Every function is of C linkage, found by GetProcAddress.
#pragma once

#include "platform/netcfg.h"

namespace ztl_conformance {

// Each object carries one reference, which the caller releases.
using CreateTransaction = platform::INetCfg*();
using CreatePnpReconfigCallback = platform::INetCfgPnpReconfigCallback*();
using CreateLanConnection = platform::INetLanConnectionUiInfo*(const platform::GUID& adapter);

// `otherClient` (null-terminated; empty for none) holds the write lock all the time; `grantSecondLock` is whether a
// second session of the process gets it. From now on requests are recorded.
using StartEngine = void(const char16_t* otherClient, bool grantSecondLock);

// UTF-8, the engine's until the next call: the milliseconds waited, the objects not released, and every request in the
// order of their beginnings, in a line each.
using EngineReport = const char*();

}  // namespace ztl_conformance
