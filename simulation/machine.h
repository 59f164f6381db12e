// The simulated machine: everything that the platform boundary reaches, in one object.
//
// One machine is current at a time; CurrentMachine chooses it for a scope. Every operation of the boundary enters
// through Machine::Enter, which counts it, shows it to an observer, and can make it fail with a given code.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/types.h"
#include "simulation/dialogs.h"
#include "simulation/driver.h"
#include "simulation/files.h"
#include "simulation/inf_file.h"
#include "simulation/module.h"
#include "simulation/netcfg_engine/engine.h"
#include "simulation/operation.h"
#include "simulation/registry.h"

namespace simulation {

using namespace platform;

// A failure to come: calls of `operation` (any, when unset) that `matches` accepts (all, when unset) are counted, and
// those numbered from `first` (1 is the first) on, `times` of them, fail with `code` in the operation's own kind of
// result: a system error code, the runtime's errno, an HRESULT; allocations return null. A positive HRESULT is no
// failure: the engine does its work, where the code is not itself a result of that call, and returns the code in place
// of S_OK.
struct Fault {
  std::optional<Operation> operation = std::nullopt;
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  std::int32_t code = 0;
  std::function<bool(Operation, const Arguments&)> matches = nullptr;
  std::uint64_t seen = 0;  // calls counted so far
};

struct WindowsVersion {
  DWORD major = 10;
  DWORD minor = 0;
  WORD servicePack = 0;
  DWORD platformId = 2;  // VER_PLATFORM_WIN32_NT
};

// A class of objects that CoCreateInstance makes.
struct ComClass {
  CLSID clsid;
  std::function<HRESULT(IUnknown* outer, REFIID riid, void** object)> create;
  std::function<void()> unloadUnused = nullptr;  // called when COM ends on a thread, if it has made an object since
  bool used = false;
};

struct MessageBox {
  std::string text;
  std::string caption;
  UINT style;
};

// Movable memory, by its handle. Its address is another value, as on Windows.
struct GlobalMemory {
  std::vector<BYTE> bytes;
  int locks = 0;
};

class Machine {
 public:
  Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  Registry registry;
  Files files;
  WindowsVersion version;
  std::optional<std::int64_t> clock;     // the time in seconds since 1970 at the start; the real time when unset
  std::vector<std::string> debugOutput;  // every text given to OutputDebugStringA, in order
  std::vector<MessageBox> messageBoxes;
  std::u16string standardOutput;
  Engine engine;
  Driver driver;
  Dialogs dialogs;
  Module module;
  std::vector<ComClass> comClasses;                             // the engine's own at first
  std::int64_t taskAllocations = 0;                             // task memory that has not been freed
  std::map<void*, std::unique_ptr<GlobalMemory>> globalMemory;  // that has not been freed
  std::map<void*, std::unique_ptr<const InfFile>> openInfs;     // that have not been closed
  std::map<std::thread::id, std::int64_t> comInitializations;   // that have not been undone, by thread; none is 0
  std::atomic<DWORD> lastError{0};                              // of the last operation that failed, for GetLastError
  std::vector<Fault> faults;                                    // set with no call under way
  std::function<void(Operation, const Arguments&)> observer;    // sees every call before it happens

  // Enters one operation of the boundary. A value is the code that it must fail with.
  std::optional<std::int32_t> Enter(Operation operation, const Arguments& arguments = {}) {
    counts_[static_cast<std::size_t>(operation)].fetch_add(1, std::memory_order_relaxed);
    if (faults.empty() && !observer) [[likely]]
      return std::nullopt;
    return EnterWatched(operation, arguments);
  }

  // Lets time pass on the simulated clock: nobody sleeps.
  void Wait(std::int64_t milliseconds) { waitedMilliseconds_ += milliseconds; }
  std::int64_t WaitedMilliseconds() const { return waitedMilliseconds_; }

  std::uint64_t Calls(Operation operation) const { return counts_[static_cast<std::size_t>(operation)]; }
  std::uint64_t Calls() const;  // of all operations

  std::mutex mutex;  // guards the machine's state inside an operation

 private:
  std::optional<std::int32_t> EnterWatched(Operation operation, const Arguments& arguments);

  std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Operation::Count)> counts_{};
  std::mutex watchMutex_;
  std::atomic<std::int64_t> waitedMilliseconds_{0};
};

// Makes a machine the current one for as long as the object lives.
class CurrentMachine {
 public:
  explicit CurrentMachine(Machine& machine);
  ~CurrentMachine();
  CurrentMachine(const CurrentMachine&) = delete;
  CurrentMachine& operator=(const CurrentMachine&) = delete;

 private:
  Machine* previous_;
};

Machine& Current();  // aborts with a message when no machine is current

}  // namespace simulation
