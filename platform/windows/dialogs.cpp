#include "platform/dialogs.h"

#include "platform/windows/cast.h"
// After <windows.h>.
#include <prsht.h>

namespace platform {

using windows::Os;

namespace {

static_assert(sizeof(PROPSHEETPAGEW) == offsetof(::PROPSHEETPAGEW, hActCtx) + sizeof(::PROPSHEETPAGEW::hActCtx));
static_assert(offsetof(PROPSHEETPAGEW, pfnDlgProc) == offsetof(::PROPSHEETPAGEW, pfnDlgProc));
static_assert(offsetof(PROPSHEETPAGEW, lParam) == offsetof(::PROPSHEETPAGEW, lParam));
static_assert(sizeof(NMHDR) == sizeof(::NMHDR) && offsetof(NMHDR, code) == offsetof(::NMHDR, code));

HWND Ours(::HWND window) { return reinterpret_cast<HWND>(window); }

}  // namespace

HPROPSHEETPAGE CreatePropertySheetPageW(const PROPSHEETPAGEW* page) {
  return reinterpret_cast<HPROPSHEETPAGE>(::CreatePropertySheetPageW(reinterpret_cast<const ::PROPSHEETPAGEW*>(page)));
}

HWND GetParent(HWND window) { return Ours(::GetParent(Os(window))); }

HWND GetDlgItem(HWND dialog, int id) { return Ours(::GetDlgItem(Os(dialog), id)); }

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return ::SendMessageW(Os(window), message, wParam, lParam);
}

BOOL SetWindowTextW(HWND window, const char16_t* text) { return ::SetWindowTextW(Os(window), Os(text)); }

int GetWindowTextW(HWND window, char16_t* text, int capacity) {
  return ::GetWindowTextW(Os(window), Os(text), capacity);
}

std::intptr_t GetWindowLongPtrW(HWND window, int slot) { return ::GetWindowLongPtrW(Os(window), slot); }

std::intptr_t SetWindowLongPtrW(HWND window, int slot, std::intptr_t value) {
  return ::SetWindowLongPtrW(Os(window), slot, value);
}

}  // namespace platform
