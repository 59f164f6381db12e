// The page of the DLL that ships, in the operating system's own property sheet, with a user at the keyboard. A picture
// of the sheet is left as property_page.png in the build's folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/built_file.h"
// The public headers come last.
#include <windows.h>
// After <windows.h>.
#include <gdiplus.h>
#include <netcfgn.h>
#include <netcon.h>
#include <prsht.h>

namespace {

using std::filesystem::path;
using Texts = std::pair<std::wstring, std::wstring>;  // of both fields

constexpr wchar_t kServiceKey[] = L"System\\CurrentControlSet\\Services\\ZTL";
constexpr wchar_t kAdapterKey[] =
    L"System\\CurrentControlSet\\Services\\ZTL\\Parameters\\Adapters\\{12345678-9ABC-DEF0-0102-030405060708}";

std::wstring StoredBundleId() {
  wchar_t text[300] = L"no value";
  DWORD bytes = sizeof text;
  RegGetValueW(HKEY_LOCAL_MACHINE, kAdapterKey, L"BundleId", RRF_RT_REG_SZ, nullptr, text, &bytes);
  return text;
}

// The connection whose properties are shown.
class Connection final : public INetLanConnectionUiInfo {
 public:
  HRESULT WINAPI QueryInterface(REFIID riid, void** object) override {
    *object = riid == IID_INetLanConnectionUiInfo ? this : nullptr;
    return *object != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG WINAPI AddRef() override { return 2; }
  ULONG WINAPI Release() override { return 1; }
  HRESULT WINAPI GetDeviceGuid(GUID* guid) override {
    *guid = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    return S_OK;
  }
};

// Waits for at most ten seconds.
template <class Condition>
bool Soon(Condition condition) {
  for (int i = 0; i < 200; ++i, Sleep(50))
    if (condition()) return true;
  return false;
}

void Press(WORD key) {
  INPUT input[2] = {};
  for (INPUT& event : input) {
    event.type = INPUT_KEYBOARD;
    event.ki.wVk = key;
    event.ki.wScan = static_cast<WORD>(MapVirtualKeyW(key, MAPVK_VK_TO_VSC));
  }
  input[1].ki.dwFlags = KEYEVENTF_KEYUP;
  SendInput(2, input, sizeof(INPUT));
}

bool SavePicture(HWND window, const path& file) {
  RECT place;
  GetWindowRect(window, &place);
  const int width = place.right - place.left, height = place.bottom - place.top;
  const HDC source = GetWindowDC(window), copy = CreateCompatibleDC(source);
  const HBITMAP bitmap = CreateCompatibleBitmap(source, width, height);
  const HGDIOBJ before = SelectObject(copy, bitmap);
  BitBlt(copy, 0, 0, width, height, source, 0, 0, SRCCOPY);
  SelectObject(copy, before);
  ULONG_PTR token;
  const Gdiplus::GdiplusStartupInput input;
  Gdiplus::GdiplusStartup(&token, &input, nullptr);
  constexpr CLSID kPng = {0x557CF406, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};
  const bool saved = Gdiplus::Bitmap(bitmap, nullptr).Save(file.c_str(), &kPng, nullptr) == Gdiplus::Ok;
  Gdiplus::GdiplusShutdown(token);
  DeleteObject(bitmap);
  DeleteDC(copy);
  ReleaseDC(window, source);
  return saved;
}

// What the user saw.
struct Seen {
  Texts shown, typed;
  bool applyEnabledByTyping = false, pictureSaved = false;
};

// Types " 4z" after the first text and two letters after the second, and presses Return for OK.
void UseSheet(DWORD sheetThread, Seen& seen) {
  HWND sheet = nullptr, page = nullptr;
  const auto text = [&](int id) {
    wchar_t read[300];
    return std::wstring(read, GetDlgItemTextW(page, id, read, 300));
  };
  const auto focus = [&](int id) {
    GUITHREADINFO info = {};
    info.cbSize = sizeof info;
    return Soon([&] { return GetGUIThreadInfo(sheetThread, &info) && info.hwndFocus == GetDlgItem(page, id); });
  };
  const auto isShown = [&] { return (sheet = FindWindowW(L"#32770", L"ZTL Properties")) != nullptr; };
  if (Soon([&] { return isShown() && IsWindowVisible(sheet); })) {
    page = PropSheet_GetCurrentPageHwnd(sheet);
    const HWND apply = GetDlgItem(sheet, 0x3021);
    seen.shown = {text(1851), text(1852)};
    SetForegroundWindow(sheet);
    PropSheet_UnChanged(sheet, page);
    const bool wasEnabled = IsWindowEnabled(apply);
    if (focus(1851)) {
      for (const WORD key : {WORD{VK_END}, WORD{VK_SPACE}, WORD{'4'}, WORD{'Z'}}) Press(key);
      const std::wstring typed = seen.shown.first + L" 4z";
      seen.applyEnabledByTyping = !wasEnabled && Soon([&] { return text(1851) == typed; }) && IsWindowEnabled(apply);
      seen.pictureSaved =
          SavePicture(sheet, exists(path(ZTL_BINARY_DIR)) ? ZTL_BINARY_DIR "/property_page.png" : "property_page.png");
      Press(VK_TAB);
    }
    if (focus(1852)) {
      for (const WORD key : {WORD{VK_END}, WORD{'A'}, WORD{'B'}, WORD{VK_RETURN}}) {
        if (key == VK_RETURN) seen.typed = {text(1851), text(1852)};
        Press(key);
        Soon([&] { return key == VK_END || text(1852) != seen.shown.second; });
      }
    }
  }
  if (!Soon([&] { return !IsWindow(sheet); })) PostThreadMessageW(sheetThread, WM_QUIT, 1, 0);
}

TEST(PropertyPage, AUserChangesBothTextsInARealSheet) {
  if (GetEnvironmentVariableW(L"ZTL_NO_SCREEN", nullptr, 0) != 0)
    GTEST_SKIP() << "there is no screen to show a page on";
  const std::wstring almostFull = L"com.example.bundle." + std::wstring(239, L'x');  // 258 characters
  EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kAdapterKey, L"BundleId", REG_SZ, almostFull.data(), 258 * 2), 0);
  const HMODULE dll = LoadLibraryW(ztl_test::BuiltFile(ZTLI64X_DLL).c_str());
  ASSERT_NE(dll, nullptr);
  using GetClassObject = HRESULT WINAPI(REFCLSID, REFIID, void**);
  auto* const getClassObject =
      reinterpret_cast<GetClassObject*>(reinterpret_cast<void*>(GetProcAddress(dll, "DllGetClassObject")));
  constexpr CLSID kClass = {0x5B1E7C42, 0x93D0, 0x4F6A, {0x8E, 0x25, 0xC0, 0x7A, 0x1D, 0x39, 0xB4, 0xE8}};
  IClassFactory* factory;
  INetCfgComponentControl* control;
  INetCfgComponentPropertyUi* properties;
  ASSERT_EQ(getClassObject(kClass, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
  ASSERT_EQ(factory->CreateInstance(nullptr, IID_INetCfgComponentControl, reinterpret_cast<void**>(&control)), S_OK);
  ASSERT_EQ(control->QueryInterface(IID_INetCfgComponentPropertyUi, reinterpret_cast<void**>(&properties)), S_OK);
  Connection connection;
  EXPECT_EQ(control->Initialize(nullptr, nullptr, FALSE), S_OK);  // of no component: the first field is empty
  EXPECT_EQ(properties->SetContext(&connection), S_OK);
  DWORD defaultPages = 1;
  UINT pages = 0;
  BYTE* handles = nullptr;
  LPCWSTR startPage = nullptr;
  EXPECT_EQ(properties->MergePropPages(&defaultPages, &handles, &pages, nullptr, &startPage), S_OK);
  ASSERT_EQ(pages, 1u);

  PROPSHEETHEADERW header = {};
  header.dwSize = sizeof header;
  header.pszCaption = L"ZTL Properties";
  header.nPages = pages;
  header.phpage = reinterpret_cast<HPROPSHEETPAGE*>(handles);
  Seen seen;
  std::thread user(UseSheet, GetCurrentThreadId(), std::ref(seen));
  EXPECT_EQ(PropertySheetW(&header), 1);
  user.join();
  CoTaskMemFree(handles);
  EXPECT_EQ(seen.shown, Texts(L"", almostFull));
  EXPECT_TRUE(seen.applyEnabledByTyping);
  EXPECT_TRUE(seen.pictureSaved);
  EXPECT_EQ(seen.typed, Texts(L" 4z", almostFull + L'a'));  // the 260th character is refused

  EXPECT_EQ(StoredBundleId(), almostFull);
  EXPECT_EQ(control->ApplyRegistryChanges(), S_OK);
  EXPECT_EQ(StoredBundleId(), seen.typed.second);
  properties->Release();
  EXPECT_EQ(control->Release(), 0u);
  EXPECT_TRUE(FreeLibrary(dll));
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey);
}

}  // namespace
