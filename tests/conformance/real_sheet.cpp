#include "tests/conformance/real_sheet.h"

#include "simulation/text_encoding.h"
// The public headers come last: they define some of the boundary's names as macros.
#include <windows.h>
// After <windows.h>.
#include <commctrl.h>

namespace ztl_conformance {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kApplyButton = 0x3021;

std::string Utf8(const wchar_t* text) { return simulation::Utf16ToUtf8(reinterpret_cast<const char16_t*>(text)); }

Json Controls(HWND page) {
  Json controls = Json::array();
  for (HWND control = GetWindow(page, GW_CHILD); control != nullptr; control = GetWindow(control, GW_HWNDNEXT)) {
    wchar_t text[512] = L"";
    GetClassNameW(control, text, 512);
    Json shown = {{"class", Utf8(text)}};
    GetWindowTextW(control, text, 512);
    shown["text"] = Utf8(text);
    if (shown["class"] == "Edit") {
      shown["id"] = GetDlgCtrlID(control);
      shown["limit"] = SendMessageW(control, EM_GETLIMITTEXT, 0, 0);
    }
    controls.push_back(shown);
  }
  return controls;
}

std::string Title(HWND sheet) {
  wchar_t text[128] = L"";
  TCITEMW item = {};
  item.mask = TCIF_TEXT;
  item.pszText = text;
  item.cchTextMax = 128;
  SendMessageW(PropSheet_GetTabControl(sheet), TCM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
  return Utf8(text);
}

void Type(HWND control, const std::u16string& text) {
  SendMessageW(control, EM_SETSEL, 0, -1);
  SendMessageW(control, WM_CLEAR, 0, 0);
  for (const char16_t character : text) SendMessageW(control, WM_CHAR, character, 1);
}

}  // namespace

Json UseSheet(std::span<const platform::HPROPSHEETPAGE> pages, const ztlsim::PageInput& input, bool& applied) {
  std::vector<HPROPSHEETPAGE> handles;
  for (const platform::HPROPSHEETPAGE page : pages) handles.push_back(reinterpret_cast<HPROPSHEETPAGE>(page));
  PROPSHEETHEADERW header = {};
  header.dwSize = sizeof(header);
  header.dwFlags = PSH_MODELESS;  // one that does not wait for a user
  header.pszCaption = L"Properties";
  header.nPages = static_cast<UINT>(handles.size());
  header.phpage = handles.data();
  const auto sheet = reinterpret_cast<HWND>(PropertySheetW(&header));
  if (header.nPages == 0 || sheet == nullptr || reinterpret_cast<std::intptr_t>(sheet) == -1) return nullptr;
  const HWND page = PropSheet_GetCurrentPageHwnd(sheet);
  const HWND apply = GetDlgItem(sheet, kApplyButton);
  Json shown = {{"title", Title(sheet)}, {"opened", Controls(page)}};
  for (const auto& [control, text] : input.texts) Type(GetDlgItem(page, control), text);
  shown["closed"] = Controls(page);
  shown["apply_enabled"] = IsWindowEnabled(apply) != FALSE;
  const auto press = [sheet](WPARAM button) { SendMessageW(sheet, PSM_PRESSBUTTON, button, 0); };
  const auto isOpen = [sheet] { return PropSheet_GetCurrentPageHwnd(sheet) != nullptr; };
  if (input.button == ztlsim::PageButton::Ok) {
    press(PSBTN_OK);
    applied = !isOpen();
  }
  if (input.button == ztlsim::PageButton::Apply && IsWindowEnabled(apply)) {
    press(PSBTN_APPLYNOW);
    applied = !IsWindowEnabled(apply);
  }
  if (isOpen()) press(PSBTN_CANCEL);
  DestroyWindow(sheet);
  return shown;
}

}  // namespace ztl_conformance
