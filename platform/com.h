// The COM runtime (objbase.h, unknwn.h) and the task allocator.
//
// Interfaces are declared as classes of pure virtual methods in slot order, without a virtual destructor: the layout
// that COM uses on 64-bit Windows.
#pragma once

#include "platform/types.h"

namespace platform {

class IUnknown {
 public:
  virtual HRESULT QueryInterface(REFIID riid, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  ~IUnknown() = default;
};
inline constexpr IID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

class IClassFactory : public IUnknown {
 public:
  virtual HRESULT CreateInstance(IUnknown* outer, REFIID riid, void** object) = 0;
  virtual HRESULT LockServer(BOOL lock) = 0;
};
inline constexpr IID IID_IClassFactory{0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

constexpr DWORD COINIT_APARTMENTTHREADED = 2;
constexpr DWORD COINIT_DISABLE_OLE1DDE = 4;
constexpr DWORD CLSCTX_INPROC_SERVER = 1;

// Initializes COM on this thread; S_FALSE when it was already. Both are balanced by one CoUninitialize.
HRESULT CoInitializeEx(void* reserved, DWORD flags);
void CoUninitialize();

// Makes an object of the class; the caller releases it. `outer` is null for an object of its own.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID riid, void** object);

void CoFreeUnusedLibraries();

void* CoTaskMemAlloc(std::size_t bytes);  // null on failure
void CoTaskMemFree(void* memory);         // null is allowed

// {8-4-4-4-12} in upper-case hexadecimal: 38 characters and the terminator. Returns the number of characters stored
// with the terminator, 0 when `capacity` (in characters) is too small.
int StringFromGUID2(const GUID& guid, char16_t* text, int capacity);

}  // namespace platform
