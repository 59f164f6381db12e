// Dialogs, their controls and property sheet pages (winuser.h, prsht.h).
#pragma once

#include "platform/module.h"
#include "platform/types.h"

namespace platform {

using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using DLGPROC = std::intptr_t (*)(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);

// Messages and notification codes.
constexpr UINT WM_NOTIFY = 0x004E;
constexpr UINT EM_LIMITTEXT = 0x00C5;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT PSM_CHANGED = 0x0468;
constexpr WORD EN_CHANGE = 0x0300;
constexpr UINT PSN_KILLACTIVE = static_cast<UINT>(-201);
constexpr UINT PSN_APPLY = static_cast<UINT>(-202);
constexpr UINT PSN_RESET = static_cast<UINT>(-203);

// Slots of a dialog for GetWindowLongPtrW, in bytes.
constexpr int DWLP_MSGRESULT = 0;
constexpr int DWLP_USER = 16;

struct NMHDR {
  HWND hwndFrom;
  std::uintptr_t idFrom;
  UINT code;
};

struct PROPSHEETPAGE__;
using HPROPSHEETPAGE = PROPSHEETPAGE__*;

// Up to and including the activation context; the page's dialog gets a copy of it with WM_INITDIALOG.
struct PROPSHEETPAGEW {
  DWORD dwSize;  // bytes
  DWORD dwFlags;
  HINSTANCE hInstance;
  const char16_t* pszTemplate;
  void* hIcon;
  const char16_t* pszTitle;
  DLGPROC pfnDlgProc;
  LPARAM lParam;
  void* pfnCallback;
  UINT* pcRefParent;
  const char16_t* pszHeaderTitle;
  const char16_t* pszHeaderSubTitle;
  void* hActCtx;
};
static_assert(sizeof(PROPSHEETPAGEW) == 96);

HPROPSHEETPAGE CreatePropertySheetPageW(const PROPSHEETPAGEW* page);  // null on failure; its sheet destroys it

HWND GetParent(HWND window);
HWND GetDlgItem(HWND dialog, int id);  // null when the dialog has no such control
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);  // what the window answers
BOOL SetWindowTextW(HWND window, const char16_t* text);                         // zero on failure
// Up to `capacity` - 1 characters and a terminator. Returns the length without it; 0 for an empty text and on failure,
// which leaves `text` empty.
int GetWindowTextW(HWND window, char16_t* text, int capacity);
std::intptr_t GetWindowLongPtrW(HWND window, int slot);
std::intptr_t SetWindowLongPtrW(HWND window, int slot, std::intptr_t value);  // the slot's earlier content

}  // namespace platform
