// Property sheets on the simulated machine, together with their user.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dialogs.h"
#include "simulation/dialog_template.h"

namespace simulation {

using namespace platform;

// A property sheet on the current machine, and what its user does.
class PropertySheet {
 public:
  // Takes the pages over.
  explicit PropertySheet(std::span<const HPROPSHEETPAGE> pages) : pages_(pages.begin(), pages.end()) {}
  ~PropertySheet();  // closes the sheet and destroys its pages
  PropertySheet(const PropertySheet&) = delete;
  PropertySheet& operator=(const PropertySheet&) = delete;

  // Shows the sheet with its first page; the others are never turned to. False when there is no page, or its dialog
  // cannot be created. Once closed, a sheet does not open again.
  bool Open();
  bool IsOpen() const { return sheet_ != nullptr; }
  void Close();

  HWND Page() const { return page_; }  // the dialog of the page; null when the sheet is not open
  std::u16string Title() const;        // of the page; empty when the sheet is not open
  std::vector<Control> Controls() const;
  std::u16string Text(int id) const;  // of the page's first control with that identifier; empty when there is none
  bool ApplyEnabled() const;

  // Types at the end of a control's text, after emptying it with `clearFirst`, one key after the other. Returns how
  // many characters the control took; control characters are none.
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
