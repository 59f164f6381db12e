// Owning text in task memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <string_view>

#include "platform/com.h"

namespace platform {

struct TaskMemoryDeleter {
  void operator()(void* memory) const { platform::CoTaskMemFree(memory); }
};
// Text that is freed with CoTaskMemFree when it goes out of scope; release() of one hands it to a receiver.
using TaskText = std::unique_ptr<char16_t[], TaskMemoryDeleter>;

// Null on failure. The characters are not set.
inline TaskText AllocateTaskText(std::size_t characters) {
  if (characters > std::numeric_limits<std::size_t>::max() / sizeof(char16_t)) return nullptr;
  return TaskText(static_cast<char16_t*>(platform::CoTaskMemAlloc(characters * sizeof(char16_t))));
}

// The parts, one after the other, and a terminator, in memory that they fill exactly. Null on failure.
template <class... Parts>
TaskText JoinTaskText(const Parts&... parts) {
  const std::u16string_view views[] = {std::u16string_view(parts)...};
  std::size_t length = 0;
  for (const std::u16string_view part : views) length += part.size();
  TaskText text = AllocateTaskText(length + 1);
  if (!text) return text;
  char16_t* end = text.get();
  for (const std::u16string_view part : views) end = std::copy(part.begin(), part.end(), end);
  *end = u'\0';
  return text;
}

// What goes between a directory and a name in it: nothing when the directory ends in a backslash.
constexpr std::u16string_view PathSeparator(std::u16string_view directory) {
  return directory.ends_with(u'\\') ? u"" : u"\\";
}

}  // namespace platform
