#include "bench/recording.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "platform/clock.h"
#include "platform/com.h"
#include "platform/debugger.h"
#include "platform/files.h"
#include "platform/registry.h"

namespace ztl_bench {

using namespace platform;
using simulated::Arguments;
using simulated::Operation;

namespace {

constexpr std::size_t kStampCapacity = 31;

}  // namespace

template <class Text>
std::uint32_t Recording::Texts<Text>::Index(Text text) {
  const auto [entry, added] = indices.emplace(std::move(text), static_cast<std::uint32_t>(byIndex.size()));
  if (added) byIndex.push_back(&entry->first);
  return entry->second;
}

void Recording::Add(Operation operation, const Arguments& arguments) {
  Call call{.key = reinterpret_cast<std::uintptr_t>(arguments.key),
            .text = 0,
            .number = static_cast<std::uint32_t>(arguments.number),
            .number2 = static_cast<std::uint32_t>(arguments.number2),
            .operation = operation};
  if (arguments.name) call.text = wideTexts_.Index(arguments.name);
  if (arguments.path) call.text = texts_.Index(arguments.path);
  if (arguments.data) {
    // Behind the data of a value stands what keeps the registry from completing it.
    std::string data(static_cast<const char*>(arguments.data), arguments.dataBytes);
    const std::uint32_t index = texts_.Index(data + "\xFF\xFF");
    (operation == Operation::RegSetValueExW ? call.number : call.text) = index;
  }
  switch (operation) {
    case Operation::_open:
    case Operation::_creat:
      back_ = false;
      break;
    // What the arguments do not tell: the log seeks the end but for the way back from what it read or wrote, and
    // unlocks only there.
    case Operation::_lseek:
      back_ = lastOfFile_ == Operation::_read || lastOfFile_ == Operation::_write;
      call.text = back_ ? SEEK_SET : SEEK_END;
      break;
    case Operation::_locking:
      call.text = back_ ? _LK_UNLCK : _LK_LOCK;
      break;
    default:
      break;
  }
  if (operation >= Operation::_open && operation <= Operation::_mkdir) lastOfFile_ = operation;
  calls_.push_back(call);
}

bool Recording::Replay() const {
  std::array<char16_t, 1024> name;
  std::array<BYTE, 32768> buffer;
  std::array<char, kStampCapacity + 1> stamp;
  const std::tm* local = nullptr;
  void* taskMemory = nullptr;
  HKEY opened = nullptr;
  DWORD type = REG_NONE;
  LSTATUS closed = ERROR_SUCCESS;
  for (const Call& call : calls_) {
    const auto key = reinterpret_cast<HKEY>(call.key);
    const auto wide = [&] { return call.text == 0 ? nullptr : wideTexts_.byIndex[call.text]->c_str(); };
    const auto text = [&] { return texts_.byIndex[call.text]->c_str(); };
    const auto descriptor = static_cast<int>(call.number);
    DWORD capacity = call.number2;
    switch (call.operation) {
      case Operation::RegOpenKeyExW:
        platform::RegOpenKeyExW(key, wide(), call.number2, call.number, &opened);
        break;
      case Operation::RegEnumKeyExW:
        platform::RegEnumKeyExW(key, call.number, name.data(), &capacity, nullptr, nullptr, nullptr, nullptr);
        break;
      case Operation::RegQueryValueExW:
        platform::RegQueryValueExW(key, wide(), nullptr, &type, buffer.data(), &capacity);
        break;
      case Operation::RegSetValueExW: {
        const std::string& data = *texts_.byIndex[call.number];
        platform::RegSetValueExW(key, wide(), 0, call.number2, reinterpret_cast<const BYTE*>(data.data()),
                                 static_cast<DWORD>(data.size() - 2));
        break;
      }
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
        platform::_lseek(descriptor, static_cast<LONG>(call.number2), static_cast<int>(call.text));
        break;
      case Operation::_read:
        platform::_read(descriptor, buffer.data(), call.number2);
        break;
      case Operation::_write:
        platform::_write(descriptor, text(), call.number2);
        break;
      case Operation::_locking:
        platform::_locking(descriptor, static_cast<int>(call.text), static_cast<LONG>(call.number2));
        break;
      case Operation::time:
        platform::time();
        break;
      case Operation::localtime: {
        const std::int64_t now = call.number;
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
        taskMemory = platform::CoTaskMemAlloc(call.number);
        break;
      case Operation::CoTaskMemFree:
        platform::CoTaskMemFree(taskMemory);
        break;
      default:
        std::fprintf(stderr, "no replay for %s\n", simulated::OperationName(call.operation));
        std::abort();
    }
  }
  return closed == ERROR_SUCCESS;
}

}  // namespace ztl_bench
