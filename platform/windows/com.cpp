#include "platform/com.h"

#include "platform/windows/cast.h"
// After <windows.h>.
#include <objbase.h>

namespace platform {

using windows::Os;

HRESULT CoInitializeEx(void* reserved, DWORD flags) { return ::CoInitializeEx(reserved, flags); }

void CoUninitialize() { ::CoUninitialize(); }

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID riid, void** object) {
  return ::CoCreateInstance(Os(clsid), reinterpret_cast<::IUnknown*>(outer), context, Os(riid), object);
}

void CoFreeUnusedLibraries() { ::CoFreeUnusedLibraries(); }

void* CoTaskMemAlloc(std::size_t bytes) { return ::CoTaskMemAlloc(bytes); }

void CoTaskMemFree(void* memory) { ::CoTaskMemFree(memory); }

int StringFromGUID2(const GUID& guid, char16_t* text, int capacity) {
  return ::StringFromGUID2(Os(guid), Os(text), capacity);
}

}  // namespace platform
