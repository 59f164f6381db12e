// The version resources of files (winver.h), and the movable memory that they are read into (winbase.h).
#pragma once

#include "platform/types.h"

namespace platform {

struct VS_FIXEDFILEINFO {
  DWORD dwSignature;  // 0xFEEF04BD
  DWORD dwStrucVersion;
  DWORD dwFileVersionMS;  // first and second part of the version, 16 bits each
  DWORD dwFileVersionLS;  // third and fourth part
  DWORD dwProductVersionMS;
  DWORD dwProductVersionLS;
  DWORD dwFileFlagsMask;
  DWORD dwFileFlags;
  DWORD dwFileOS;
  DWORD dwFileType;
  DWORD dwFileSubtype;
  DWORD dwFileDateMS;
  DWORD dwFileDateLS;
};
static_assert(sizeof(VS_FIXEDFILEINFO) == 52);

// The bytes to provide for a file's version block; 0 when the file, or its version resource, is missing.
DWORD GetFileVersionInfoSizeW(const char16_t* path, DWORD* unused);
// Reads up to `bytes` bytes of the block; zero on failure.
BOOL GetFileVersionInfoW(const char16_t* path, DWORD unused, DWORD bytes, void* block);
// Finds an entry of a block that was read: `value` then points into the block. For the root entry "\", the fixed file
// information, `length` is counted in bytes; for texts, in characters. Zero when there is no such entry. The lengths in
// the block are not checked: the value may reach beyond the end of the block.
BOOL VerQueryValueW(const void* block, const char16_t* entry, void** value, UINT* length);

using HGLOBAL = void*;
constexpr UINT GMEM_MOVEABLE = 2;

HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes);  // null on failure
void* GlobalLock(HGLOBAL memory);                    // its address until it is unlocked; null on failure
BOOL GlobalUnlock(HGLOBAL memory);                   // zero once nothing locks it any more
HGLOBAL GlobalFree(HGLOBAL memory);                  // null on success

}  // namespace platform
