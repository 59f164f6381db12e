#include "simulation/property_sheet.h"

#include <memory>

#include "platform/module.h"
#include "simulation/dialogs.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

constexpr UINT PSM_UNCHANGED = 0x046D;
constexpr UINT PSN_SETACTIVE = static_cast<UINT>(-200);
constexpr UINT PSN_QUERYCANCEL = static_cast<UINT>(-209);

class Sheet final : public Window {
 public:
  Sheet() : Window(nullptr) {}
  LRESULT Receive(UINT message, WPARAM wParam, LPARAM) override {
    const Window* const page = Current().dialogs.Find(reinterpret_cast<HWND>(wParam));
    if (page != nullptr && page->parent == handle && (message == PSM_CHANGED || message == PSM_UNCHANGED))
      applyEnabled = message == PSM_CHANGED;
    return 0;
  }

  bool applyEnabled = false;
};

}  // namespace

PropertySheet::~PropertySheet() { Close(); }

bool PropertySheet::Open() {
  Dialogs& dialogs = Current().dialogs;
  const PROPSHEETPAGEW* const page = pages_.empty() ? nullptr : dialogs.FindPage(pages_.front());
  if (page == nullptr || IsOpen()) return false;
  const HRSRC resource = platform::FindResourceW(page->hInstance, page->pszTemplate, ResourceId(RT_DIALOG));
  if (resource == nullptr) return false;
  const auto* const bytes = static_cast<const BYTE*>(platform::LoadResourceData(page->hInstance, resource));
  sheet_ = dialogs.Add(std::make_unique<Sheet>());
  page_ = dialogs.CreateDialogIndirect({bytes, platform::SizeofResource(page->hInstance, resource)}, sheet_,
                                       page->pfnDlgProc, reinterpret_cast<LPARAM>(page));
  if (page_ == nullptr) {
    Close();
    return false;
  }
  // Filling the page's fields is no change: the button is disabled once the page is there.
  static_cast<Sheet*>(dialogs.Find(sheet_))->applyEnabled = false;
  Notify(PSN_SETACTIVE, 0);
  return true;
}

void PropertySheet::Close() {
  Dialogs& dialogs = Current().dialogs;
  if (sheet_ != nullptr) dialogs.Destroy(sheet_);
  for (const HPROPSHEETPAGE page : pages_) dialogs.DestroyPage(page);
  pages_.clear();
  sheet_ = page_ = nullptr;
}

std::u16string PropertySheet::Title() const {
  const Window* const page = Current().dialogs.Find(page_);
  return page == nullptr ? std::u16string() : page->shown.text;
}

std::vector<Control> PropertySheet::Controls() const {
  std::vector<Control> controls;
  for (const Window* const child : Current().dialogs.Children(page_)) controls.push_back(child->shown);
  return controls;
}

std::u16string PropertySheet::Text(int id) const {
  for (const Control& control : Controls())
    if (control.id == id) return control.text;
  return {};
}

bool PropertySheet::ApplyEnabled() const {
  return IsOpen() && static_cast<Sheet*>(Current().dialogs.Find(sheet_))->applyEnabled;
}

std::size_t PropertySheet::Type(int id, std::u16string_view text, bool clearFirst) {
  for (Window* const child : Current().dialogs.Children(page_))
    if (child->shown.id == id && child->TakesText()) return child->Type(text, clearFirst);
  return 0;
}

bool PropertySheet::PressCancel() {
  if (!IsOpen() || Notify(PSN_QUERYCANCEL, 0) != 0) return false;
  Notify(PSN_RESET, 0);  // by the button, not by the title bar
  Close();
  return true;
}

std::intptr_t PropertySheet::Notify(UINT code, LPARAM lParam) const {
  struct {
    NMHDR header;
    LPARAM lParam;
  } const notice = {{sheet_, 0, code}, lParam};
  return Current().dialogs.Send(page_, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&notice));
}

bool PropertySheet::Apply(bool closing) {
  if (!IsOpen() || Notify(PSN_KILLACTIVE, 0) != 0 || Notify(PSN_APPLY, closing ? 1 : 0) != 0) return false;
  if (closing) {
    Close();
    return true;
  }
  static_cast<Sheet*>(Current().dialogs.Find(sheet_))->applyEnabled = false;
  Notify(PSN_SETACTIVE, 0);
  return true;
}

}  // namespace simulation
