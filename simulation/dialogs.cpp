#include "simulation/dialogs.h"

#include <algorithm>
#include <utility>

#include "platform/module.h"
#include "platform/text.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

constexpr LSTATUS ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr LSTATUS ERROR_INVALID_INDEX = 1413;
constexpr LSTATUS ERROR_CONTROL_ID_NOT_FOUND = 1421;

constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT PSM_UNCHANGED = 0x046D;
constexpr WORD EN_UPDATE = 0x0400;
constexpr WORD EN_MAXTEXT = 0x0501;
constexpr UINT PSN_SETACTIVE = static_cast<UINT>(-200);
constexpr UINT PSN_QUERYCANCEL = static_cast<UINT>(-209);
constexpr DWORD DS_SETFONT = 0x40;

void SetLastError(LSTATUS code) { Current().lastError = static_cast<DWORD>(code); }

class Edit final : public Window {
 public:
  using Window::Window;

  LRESULT Receive(UINT message, WPARAM wParam, LPARAM) override {
    constexpr std::size_t kNoLimit = 0x7FFFFFFE;
    if (message == EM_LIMITTEXT) shown.limit = wParam == 0 ? kNoLimit : wParam;
    return 0;
  }
  void TextChanged() override {
    Notify(EN_UPDATE);
    Notify(EN_CHANGE);
  }

  std::size_t Type(std::u16string_view text, bool clearFirst) {
    if (clearFirst && !shown.text.empty()) {
      shown.text.clear();
      TextChanged();
    }
    std::size_t taken = 0;
    for (const char16_t character : text)
      if (character < u' ' || character == 0x7F) {
        continue;  // no text comes from these keys
      } else if (shown.text.size() < shown.limit) {
        shown.text += character;
        ++taken;
        TextChanged();
      } else {
        Notify(EN_MAXTEXT);
      }
    return taken;
  }

 private:
  void Notify(WORD code) {
    Current().dialogs.Send(parent, WM_COMMAND, (WPARAM{code} << 16) | static_cast<WORD>(shown.id),
                           reinterpret_cast<LPARAM>(handle));
  }
};

class Dialog final : public Window {
 public:
  Dialog(HWND owner, DLGPROC procedure) : Window(owner) { slots_[1] = reinterpret_cast<std::intptr_t>(procedure); }

  // The procedure answers a message through the message result, but that of its initialization itself.
  LRESULT Receive(UINT message, WPARAM wParam, LPARAM lParam) override {
    slots_[0] = 0;
    const auto procedure = reinterpret_cast<DLGPROC>(slots_[1]);
    const std::intptr_t handled = procedure == nullptr ? 0 : procedure(handle, message, wParam, lParam);
    return message == WM_INITDIALOG || handled == 0 ? handled : slots_[0];
  }
  std::intptr_t* Slot(int slot) override {
    return slot == DWLP_MSGRESULT || slot == 8 || slot == DWLP_USER ? &slots_[slot / 8] : nullptr;
  }

 private:
  std::intptr_t slots_[3] = {};  // the message result, the procedure, the user's
};

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

// Reads on as zeros after the end, and remembers that it did.
class TemplateReader {
 public:
  explicit TemplateReader(std::span<const BYTE> bytes) : bytes_(bytes) {}
  bool Failed() const { return failed_; }
  void Fail() { failed_ = true; }

  WORD Word() {
    if (bytes_.size() - at_ < sizeof(WORD)) {
      failed_ = true;
      return 0;
    }
    at_ += sizeof(WORD);
    return static_cast<WORD>(bytes_[at_ - 2] | bytes_[at_ - 1] << 8);
  }
  DWORD Dword() {
    const DWORD low = Word();
    return low | DWORD{Word()} << 16;
  }
  void Skip(std::size_t bytes) {
    if (bytes > bytes_.size() - at_)
      failed_ = true;
    else
      at_ += bytes;
  }
  void Align() { Skip((4 - at_ % 4) % 4); }

  std::u16string Text(char16_t first) {
    std::u16string text;
    for (char16_t character = first; character != 0; character = Word()) text += character;
    return text;
  }
  std::u16string Text() { return Text(Word()); }
  // A number in place of a text stands in `*number`.
  std::u16string TextOrNumber(WORD* number) {
    const WORD first = Word();
    if (first != 0xFFFF) return Text(first);
    *number = Word();
    return {};
  }

 private:
  std::span<const BYTE> bytes_;
  std::size_t at_ = 0;
  bool failed_ = false;
};

}  // namespace

std::optional<DialogTemplate> ReadDialogTemplate(std::span<const BYTE> bytes) {
  constexpr DWORD kExtended = 0xFFFF0001;
  constexpr const char16_t* kClasses[] = {u"Button", u"Edit", u"Static", u"ListBox", u"ScrollBar", u"ComboBox"};
  constexpr WORD kFirstClass = 0x80;
  constexpr std::size_t kPlace = 4 * sizeof(WORD);

  TemplateReader reader(bytes);
  DialogTemplate dialog;
  WORD number = 0;
  const DWORD style = reader.Dword();
  if (style == kExtended) return std::nullopt;
  reader.Skip(sizeof(DWORD));  // the extended style
  const WORD count = reader.Word();
  reader.Skip(kPlace);
  reader.TextOrNumber(&number);  // the menu
  reader.TextOrNumber(&number);  // the window class
  dialog.caption = reader.Text();
  if ((style & DS_SETFONT) != 0) {
    reader.Word();
    reader.Text();
  }
  for (WORD i = 0; i < count && !reader.Failed(); ++i) {
    reader.Align();
    reader.Skip(2 * sizeof(DWORD) + kPlace);
    Control control{};
    control.id = reader.Word();
    WORD classNumber = 0;
    control.windowClass = reader.TextOrNumber(&classNumber);
    if (control.windowClass.empty()) {
      const std::size_t index = static_cast<std::size_t>(classNumber) - kFirstClass;
      if (index < std::size(kClasses))
        control.windowClass = kClasses[index];
      else
        reader.Fail();
    }
    control.text = reader.TextOrNumber(&number);
    // The size of the creation data counts itself, unless there is none.
    const WORD data = reader.Word();
    if (data == 1)
      reader.Fail();
    else if (data != 0)
      reader.Skip(data - sizeof(WORD));
    dialog.controls.push_back(std::move(control));
  }
  if (reader.Failed()) return std::nullopt;
  return dialog;
}

HWND Dialogs::Add(std::unique_ptr<Window> window) {
  const auto handle = reinterpret_cast<HWND>(NextHandle());
  window->handle = handle;
  windows_[handle] = std::move(window);
  return handle;
}

Window* Dialogs::Find(HWND handle) {
  const auto found = windows_.find(handle);
  if (found != windows_.end()) return found->second.get();
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return nullptr;
}

std::vector<Window*> Dialogs::Children(HWND parent) const {
  std::vector<Window*> children;
  for (const auto& [handle, window] : windows_)
    if (parent != nullptr && window->parent == parent) children.push_back(window.get());
  return children;
}

LRESULT Dialogs::Send(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
  Window* const window = Find(handle);
  return window == nullptr ? 0 : window->Receive(message, wParam, lParam);
}

void Dialogs::Destroy(HWND handle) {
  Send(handle, WM_DESTROY, 0, 0);
  for (const Window* const child : Children(handle)) Destroy(child->handle);
  windows_.erase(handle);
}

HWND Dialogs::CreateDialogIndirect(std::span<const BYTE> bytes, HWND parent, DLGPROC procedure, LPARAM lParam) {
  std::optional<DialogTemplate> dialogTemplate = ReadDialogTemplate(bytes);
  if (!dialogTemplate) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  auto dialog = std::make_unique<Dialog>(parent, procedure);
  dialog->shown = {.windowClass = u"#32770", .id = 0, .text = std::move(dialogTemplate->caption)};
  const HWND handle = Add(std::move(dialog));
  HWND focus = nullptr;
  for (Control& control : dialogTemplate->controls) {
    const bool isEdit = EqualNoCase(u"Edit", control.windowClass);
    std::unique_ptr<Window> window = isEdit ? std::make_unique<Edit>(handle) : std::make_unique<Window>(handle);
    window->shown = std::move(control);
    const HWND added = Add(std::move(window));
    if (isEdit && focus == nullptr) focus = added;
  }
  Send(handle, WM_INITDIALOG, reinterpret_cast<WPARAM>(focus), lParam);
  return handle;
}

HPROPSHEETPAGE Dialogs::AddPage(const PROPSHEETPAGEW& description) {
  const auto page = reinterpret_cast<HPROPSHEETPAGE>(NextHandle());
  pages_[page] = description;
  return page;
}

const PROPSHEETPAGEW* Dialogs::FindPage(HPROPSHEETPAGE page) const {
  const auto found = pages_.find(page);
  return found == pages_.end() ? nullptr : &found->second;
}

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
    if (auto* const edit = dynamic_cast<Edit*>(child); edit != nullptr && edit->shown.id == id)
      return edit->Type(text, clearFirst);
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

namespace platform {

using simulation::Current;
using simulation::Operation;
using simulation::Window;

namespace {

// The window that the operation is about; null when the operation is made to fail, or when there is no such window.
Window* Enter(Operation operation, HWND window, simulation::Arguments arguments = {}) {
  arguments.data = window;
  simulation::Machine& machine = Current();
  if (const auto code = machine.Enter(operation, arguments)) {
    machine.lastError = static_cast<DWORD>(*code);
    return nullptr;
  }
  return machine.dialogs.Find(window);
}

std::intptr_t* EnterSlot(Operation operation, HWND handle, int slot) {
  Window* const window = Enter(operation, handle, {.number = slot});
  if (window == nullptr) return nullptr;
  std::intptr_t* const found = window->Slot(slot);
  if (found == nullptr) simulation::SetLastError(simulation::ERROR_INVALID_INDEX);
  return found;
}

}  // namespace

HPROPSHEETPAGE CreatePropertySheetPageW(const PROPSHEETPAGEW* page) {
  simulation::Machine& machine = Current();
  const auto code = machine.Enter(Operation::CreatePropertySheetPageW, {.data = page, .dataBytes = sizeof(*page)});
  // A description of another size or with flags has members that mean something else.
  if (!code && page != nullptr && page->dwSize == sizeof(*page) && page->dwFlags == 0)
    return machine.dialogs.AddPage(*page);
  machine.lastError = static_cast<DWORD>(code.value_or(ERROR_INVALID_PARAMETER));
  return nullptr;
}

HWND GetParent(HWND window) {
  const Window* const found = Enter(Operation::GetParent, window);
  return found == nullptr ? nullptr : found->parent;
}

HWND GetDlgItem(HWND dialog, int id) {
  if (Enter(Operation::GetDlgItem, dialog, {.number = id}) == nullptr) return nullptr;
  for (const Window* const child : Current().dialogs.Children(dialog))
    if (child->shown.id == id) return child->handle;
  simulation::SetLastError(simulation::ERROR_CONTROL_ID_NOT_FOUND);
  return nullptr;
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  Window* const found = Enter(Operation::SendMessageW, window, {.number = message});
  return found == nullptr ? 0 : found->Receive(message, wParam, lParam);
}

BOOL SetWindowTextW(HWND window, const char16_t* text) {
  Window* const found = Enter(Operation::SetWindowTextW, window, {.name = text});
  if (found == nullptr) return 0;
  found->shown.text = text == nullptr ? u"" : text;
  found->TextChanged();
  return 1;
}

int GetWindowTextW(HWND window, char16_t* text, int capacity) {
  const Window* const found = Enter(Operation::GetWindowTextW, window, {.number2 = capacity});
  if (capacity <= 0) return 0;
  const std::u16string_view shown = found == nullptr ? std::u16string_view() : found->shown.text;
  const std::size_t length = shown.copy(text, static_cast<std::size_t>(capacity) - 1);
  text[length] = u'\0';
  return static_cast<int>(length);
}

std::intptr_t GetWindowLongPtrW(HWND window, int slot) {
  const std::intptr_t* const found = EnterSlot(Operation::GetWindowLongPtrW, window, slot);
  return found == nullptr ? 0 : *found;
}

std::intptr_t SetWindowLongPtrW(HWND window, int slot, std::intptr_t value) {
  std::intptr_t* const found = EnterSlot(Operation::SetWindowLongPtrW, window, slot);
  return found == nullptr ? 0 : std::exchange(*found, value);
}

}  // namespace platform
