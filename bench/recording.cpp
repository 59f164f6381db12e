#include "bench/recording.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

#include "platform/clock.h"
#include "platform/com.h"
#include "platform/debugger.h"
#include "platform/files.h"
#include "platform/registry.h"

namespace ztl_bench {

using namespace platform;
using simulation::Arguments;
using simulation::Operation;

namespace {

constexpr std::size_t kStampCapacity = 31;

// The keys that are there before the first is opened.
constexpr std::uint16_t kNull = 0;
constexpr std::uint16_t kLocalMachine = 1;
constexpr std::uint16_t kFirstKey = 2;

void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "cannot be replayed: %s\n", what);
  std::abort();
}

}  // namespace

// Each key that the code uses has an index as long as it is open.
std::uint16_t Recording::KeyIndex(Operation operation, HKEY key) {
  if (key == nullptr || key == HKEY_LOCAL_MACHINE) return key == nullptr ? kNull : kLocalMachine;
  auto found = std::find(keys_.begin() + kFirstKey, keys_.end(), key);
  const bool isNew = found == keys_.end();
  if (isNew) {
    found = std::find(keys_.begin() + kFirstKey, keys_.end(), nullptr);
    Require(found != keys_.end(), "more open keys than a replay has room for");
    *found = key;
  }
  if (operation == Operation::RegCloseKey) *found = nullptr;
  return static_cast<std::uint16_t>((found - keys_.begin()) | (isNew ? kNewKey : 0));
}

void Recording::Add(Operation operation, const Arguments& arguments) {
  Kind kind{operation, static_cast<std::uint32_t>(arguments.number), static_cast<std::uint32_t>(arguments.number2), 0};
  Call call{.kind = 0, .key = KeyIndex(operation, arguments.key), .argument = 0};
  if (arguments.name) call.argument = wideTexts_.Offset(arguments.name);
  if (arguments.path) call.argument = texts_.Offset(arguments.path);
  if (arguments.data) {
    // Behind the data of a value stands what keeps the registry from completing it.
    const std::string data(static_cast<const char*>(arguments.data), arguments.dataBytes);
    (operation == Operation::RegSetValueExW ? kind.data : call.argument) = texts_.Offset(data + "\xFF\xFF");
  }
  switch (operation) {
    case Operation::RegEnumKeyExW:
      call.argument = std::exchange(kind.number, 0);
      break;
    // What the arguments do not tell: the log seeks the end but for the way back from what it has read or written, and
    // unlocks only there.
    case Operation::_open:
    case Operation::_creat:
      goneBack_ = false;
      break;
    case Operation::_lseek:
      goneBack_ = lastOfFile_ == Operation::_read || lastOfFile_ == Operation::_write;
      call.argument = goneBack_ ? SEEK_SET : SEEK_END;
      break;
    case Operation::_locking:
      call.argument = goneBack_ ? _LK_UNLCK : _LK_LOCK;
      break;
    default:
      break;
  }
  if (operation >= Operation::_open && operation <= Operation::_mkdir) lastOfFile_ = operation;
  const auto [index, added] = kindIndices_.emplace(kind, static_cast<std::uint16_t>(kinds_.size()));
  if (added) kinds_.push_back(kind);
  Require(kinds_.size() <= std::numeric_limits<std::uint16_t>::max(), "more kinds of calls than a recording can tell");
  call.kind = index->second;
  calls_.push_back(call);
}

bool Recording::Replay() const {
  std::array<char16_t, 1024> name;
  std::array<BYTE, 32768> buffer;
  std::array<char, kStampCapacity + 1> stamp;
  const std::tm* local = nullptr;
  void* taskMemory = nullptr;
  HKEY opened = nullptr;
  std::array<HKEY, kKeys> keys{};
  keys[kLocalMachine] = HKEY_LOCAL_MACHINE;
  DWORD type = REG_NONE;
  LSTATUS closed = ERROR_SUCCESS;
  for (const Call& call : calls_) {
    const Kind& kind = kinds_[call.kind];
    HKEY& key = keys[call.key & ~kNewKey];
    if (call.key & kNewKey) key = opened;
    const auto wide = [&] { return wideTexts_.At(call.argument); };
    const auto text = [&] { return texts_.At(call.argument); };
    const auto descriptor = static_cast<int>(kind.number);
    DWORD capacity = kind.number2;
    switch (kind.operation) {
      case Operation::RegOpenKeyExW:
        platform::RegOpenKeyExW(key, wide(), kind.number2, kind.number, &opened);
        break;
      case Operation::RegEnumKeyExW:
        platform::RegEnumKeyExW(key, call.argument, name.data(), &capacity, nullptr, nullptr, nullptr, nullptr);
        break;
      case Operation::RegQueryValueExW:
        platform::RegQueryValueExW(key, wide(), nullptr, &type, buffer.data(), &capacity);
        break;
      case Operation::RegSetValueExW:
        platform::RegSetValueExW(key, wide(), 0, kind.number2, reinterpret_cast<const BYTE*>(texts_.At(kind.data)),
                                 kind.number);
        break;
      case Operation::RegDeleteValueW:
        platform::RegDeleteValueW(key, wide());
        break;
      case Operation::RegCloseKey:
        closed |= platform::RegCloseKey(key);
        break;
      case Operation::_open:
        platform::_open(text(), _O_RDWR | _O_CREAT, _S_IREAD | _S_IWRITE);
        break;
      case Operation::_creat:
        platform::_creat(text(), _S_IREAD | _S_IWRITE);
        break;
      case Operation::_close:
        platform::_close(descriptor);
        break;
      case Operation::_filelength:
        platform::_filelength(descriptor);
        break;
      case Operation::_lseek:
        platform::_lseek(descriptor, static_cast<LONG>(kind.number2), static_cast<int>(call.argument));
        break;
      case Operation::_read:
        platform::_read(descriptor, buffer.data(), kind.number2);
        break;
      case Operation::_write:
        platform::_write(descriptor, text(), kind.number2);
        break;
      case Operation::_locking:
        platform::_locking(descriptor, static_cast<int>(call.argument), static_cast<LONG>(kind.number2));
        break;
      case Operation::time:
        platform::time();
        break;
      case Operation::localtime: {
        const std::int64_t now = kind.number;
        local = platform::localtime(&now);
        break;
      }
      case Operation::strftime:
        platform::strftime(stamp.data(), kStampCapacity, text(), local);
        break;
      case Operation::OutputDebugStringA:
        platform::OutputDebugStringA(text());
        break;
      case Operation::CoTaskMemAlloc:
        taskMemory = platform::CoTaskMemAlloc(kind.number);
        break;
      case Operation::CoTaskMemFree:
        platform::CoTaskMemFree(taskMemory);
        break;
      default:
        Require(false, simulation::OperationName(kind.operation));
    }
  }
  return closed == ERROR_SUCCESS;
}

}  // namespace ztl_bench
