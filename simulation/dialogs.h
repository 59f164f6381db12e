// The simulated machine's windows: dialogs, their controls, and the pages of property sheets.
//
// Windows belong to the thread that shows them; nothing here is locked. A message that the system sends goes straight
// to its window; only what the module calls itself is an operation of the boundary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "platform/dialogs.h"
#include "simulation/dialog_template.h"

namespace simulation {

using namespace platform;

// A window of any kind. What it does not take part in does nothing.
class Window {
 public:
  explicit Window(HWND owner) : parent(owner) {}
  virtual ~Window() = default;
  virtual LRESULT Receive(UINT /*message*/, WPARAM, LPARAM) { return 0; }  // returns the message's result
  virtual void TextChanged() {}                                            // by SetWindowTextW or a user
  // The value that GetWindowLongPtrW reads at this offset in bytes, owned by the window; null when there is none.
  virtual std::intptr_t* Slot(int /*slot*/) { return nullptr; }

  // Whether a user can type into it; and typing at the end of its text, after emptying that with `clearFirst`, one key
  // after the other. Returns how many characters were taken; control characters are none.
  virtual bool TakesText() const { return false; }
  virtual std::size_t Type(std::u16string_view /*text*/, bool /*clearFirst*/) { return 0; }

  const HWND parent;
  HWND handle = nullptr;
  Control shown{};  // a dialog's or a sheet's text is its caption
};

// The windows and property sheet pages of a machine, by handle. No handle is used twice.
class Dialogs {
 public:
  std::size_t Windows() const { return windows_.size(); }  // that have not been destroyed
  std::size_t Pages() const { return pages_.size(); }      // likewise

  HWND Add(std::unique_ptr<Window> window);  // and sets its handle
  // Windows are owned by this object, until Destroy.
  Window* Find(HWND handle);  // null, with the last error ERROR_INVALID_WINDOW_HANDLE, when there is no such window
  std::vector<Window*> Children(HWND parent) const;                       // in the order in which they were added
  LRESULT Send(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);  // 0 when there is no such window
  void Destroy(HWND handle);                                              // with its children

  // Makes the dialog and its controls, and initializes it with `lParam`. Null, with the last error
  // ERROR_INVALID_PARAMETER, when the template cannot be read.
  HWND CreateDialogIndirect(std::span<const BYTE> bytes, HWND parent, DLGPROC procedure, LPARAM lParam);

  HPROPSHEETPAGE AddPage(const PROPSHEETPAGEW& description);  // which is copied
  const PROPSHEETPAGEW* FindPage(HPROPSHEETPAGE page) const;  // null when there is no such page
  void DestroyPage(HPROPSHEETPAGE page) { pages_.erase(page); }

 private:
  std::uintptr_t NextHandle() { return nextHandle_ += 2; }

  std::map<HWND, std::unique_ptr<Window>> windows_;
  std::map<HPROPSHEETPAGE, PROPSHEETPAGEW> pages_;
  std::uintptr_t nextHandle_ = 0x10000;
};

}  // namespace simulation
