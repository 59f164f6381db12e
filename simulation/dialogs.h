// The simulated machine's windows: dialogs made from template bytes, their controls, and property sheets together with
// the user before them.
//
// Windows belong to the thread that shows them; nothing here is locked. A message that the system sends goes straight
// to its window; only what the module calls itself is an operation of the boundary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dialogs.h"

namespace simulation {

using namespace platform;

// A control as it is seen.
struct Control {
  std::u16string windowClass;
  int id;
  std::u16string text;
  std::size_t limit = 32767;  // of typed text in characters, for an edit control

  friend bool operator==(const Control&, const Control&) = default;
};

struct DialogTemplate {
  std::u16string caption;
  std::vector<Control> controls;
};

// Reads a template in the platform's format, not the extended one. Nothing when it is cut short or makes no sense.
std::optional<DialogTemplate> ReadDialogTemplate(std::span<const BYTE> bytes);

class Window {
 public:
  explicit Window(HWND owner) : parent(owner) {}
  virtual ~Window() = default;
  virtual LRESULT Receive(UINT /*message*/, WPARAM, LPARAM) { return 0; }
  virtual void TextChanged() {}                                  // by SetWindowTextW or a user
  virtual std::intptr_t* Slot(int /*slot*/) { return nullptr; }  // of GetWindowLongPtrW

  const HWND parent;
  HWND handle = nullptr;
  Control shown{};  // a dialog's or a sheet's text is its caption
};

// The windows and property sheet pages of a machine, by handle. No handle is used twice.
class Dialogs {
 public:
  std::size_t Windows() const { return windows_.size(); }  // that have not been destroyed
  std::size_t Pages() const { return pages_.size(); }      // likewise

  HWND Add(std::unique_ptr<Window> window);
  Window* Find(HWND handle);  // null, with the last error ERROR_INVALID_WINDOW_HANDLE, when there is no such window
  std::vector<Window*> Children(HWND parent) const;
  LRESULT Send(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);  // 0 when there is no such window
  void Destroy(HWND handle);                                              // with its children

  // Makes the dialog and its controls, and initializes it with `lParam`. Null, with a last error, when the template
  // cannot be read.
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

// A property sheet on the current machine, and what its user does.
class PropertySheet {
 public:
  explicit PropertySheet(std::span<const HPROPSHEETPAGE> pages) : pages_(pages.begin(), pages.end()) {}  // owns them
  ~PropertySheet();  // closes the sheet and destroys its pages
  PropertySheet(const PropertySheet&) = delete;
  PropertySheet& operator=(const PropertySheet&) = delete;

  // Shows the sheet with its first page; the others are never turned to. False when there is no page, or its dialog
  // cannot be created. Once closed, a sheet does not open again.
  bool Open();
  bool IsOpen() const { return sheet_ != nullptr; }
  void Close();

  HWND Page() const { return page_; }  // the dialog of the page; null when the sheet is not open
  std::u16string Title() const;        // of the page
  std::vector<Control> Controls() const;
  std::u16string Text(int id) const;
  bool ApplyEnabled() const;

  // Types at the end of a control's text, after emptying it if so wanted, one key after the other. Returns how many
  // characters the control took; control characters are none.
  std::size_t Type(int id, std::u16string_view text, bool clearFirst = false);

  // Each is false when the button is disabled or the page refuses. OK and Cancel close the sheet.
  bool PressOk() { return Apply(true); }
  bool PressApply() { return ApplyEnabled() && Apply(false); }
  bool PressCancel();

 private:
  std::intptr_t Notify(UINT code, LPARAM lParam) const;  // the page's message result
  bool Apply(bool closing);

  std::vector<HPROPSHEETPAGE> pages_;
  HWND sheet_ = nullptr;
  HWND page_ = nullptr;
};

}  // namespace simulation
