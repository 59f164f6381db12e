#include "platform/com.h"

#include "platform/windows/cast.h"
// Behind <windows.h>.
#include <objbase.h>

namespace platform {

using windows::Os;

void* CoTaskMemAlloc(std::size_t bytes) { return ::CoTaskMemAlloc(bytes); }

void CoTaskMemFree(void* memory) { ::CoTaskMemFree(memory); }

int StringFromGUID2(const GUID& guid, char16_t* text, int capacity) {
  return ::StringFromGUID2(Os(guid), Os(text), capacity);
}

}  // namespace platform
