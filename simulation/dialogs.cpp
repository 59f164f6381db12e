#include "simulation/dialogs.h"

#include <utility>

#include "platform/text.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

constexpr LSTATUS ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr LSTATUS ERROR_INVALID_INDEX = 1413;
constexpr LSTATUS ERROR_CONTROL_ID_NOT_FOUND = 1421;

constexpr UINT WM_DESTROY = 0x0002;
constexpr WORD EN_UPDATE = 0x0400;
constexpr WORD EN_MAXTEXT = 0x0501;

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

  bool TakesText() const override { return true; }
  std::size_t Type(std::u16string_view text, bool clearFirst) override {
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

}  // namespace

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
