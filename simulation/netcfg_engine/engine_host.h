// What the simulated engine needs of the process that it runs in. A simulated machine implements it over its own state;
// another program that links the engine implements it too.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include "simulation/netcfg_engine/engine.h"
#include "simulation/operation.h"

namespace simulation::engine_host {

Engine& State();

// Called as each operation of the engine begins. A value is the code that it must return, a failure or another success.
std::optional<std::int32_t> Enter(Operation operation, const Arguments& arguments);

// Lets the engine's time pass.
void Wait(std::int64_t milliseconds);

std::mutex& Mutex();  // guards the engine's record of requests

}  // namespace simulation::engine_host
