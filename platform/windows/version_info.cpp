#include "platform/version_info.h"

#include "platform/windows/cast.h"

namespace platform {

using windows::Os;

DWORD GetFileVersionInfoSizeW(const char16_t* path, DWORD* unused) {
  return ::GetFileVersionInfoSizeW(Os(path), Os(unused));
}

BOOL GetFileVersionInfoW(const char16_t* path, DWORD unused, DWORD bytes, void* block) {
  return ::GetFileVersionInfoW(Os(path), unused, bytes, block);
}

BOOL VerQueryValueW(const void* block, const char16_t* entry, void** value, UINT* length) {
  return ::VerQueryValueW(block, Os(entry), value, length);
}

HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes) { return ::GlobalAlloc(flags, bytes); }

void* GlobalLock(HGLOBAL memory) { return ::GlobalLock(memory); }

BOOL GlobalUnlock(HGLOBAL memory) { return ::GlobalUnlock(memory); }

HGLOBAL GlobalFree(HGLOBAL memory) { return ::GlobalFree(memory); }

}  // namespace platform
