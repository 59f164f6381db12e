// The page of the DLL that ships, in the operating system's own property sheet.
#include <gtest/gtest.h>

#include "tests/conformance/real_sheet.h"
#include "tests/support/built_file.h"
// The public headers come last: they define some of the boundary's names as macros.
#include <windows.h>
// After <windows.h>.
#include <netcfgn.h>
#include <netcon.h>

namespace {

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

TEST(PropertyPage, AUserChangesBothTextsInARealSheet) {
  if (GetEnvironmentVariableW(L"ZTL_NO_SCREEN", nullptr, 0) != 0)
    GTEST_SKIP() << "there is no screen to show a page on";
  EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kAdapterKey, L"BundleId", REG_SZ, L"old", 8), 0);
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
  ASSERT_EQ(properties->MergePropPages(&defaultPages, &handles, &pages, nullptr, &startPage), S_OK);
  bool applied = false;
  const auto seen = ztl_conformance::UseSheet({reinterpret_cast<platform::HPROPSHEETPAGE*>(handles), pages},
                                              {{{1851, u" 4z"}, {1852, std::u16string(300, u'x')}}}, applied);
  CoTaskMemFree(handles);
  EXPECT_TRUE(applied && seen["apply_enabled"]);
  EXPECT_EQ(seen["opened"][1]["text"], "");
  EXPECT_EQ(seen["opened"][3]["text"], "old");
  EXPECT_EQ(seen["closed"][1]["text"], " 4z");
  EXPECT_EQ(seen["closed"][3]["text"], std::string(259, 'x'));  // the 260th character is refused

  EXPECT_EQ(StoredBundleId(), L"old");
  EXPECT_EQ(control->ApplyRegistryChanges(), S_OK);
  EXPECT_EQ(StoredBundleId(), std::wstring(259, L'x'));
  properties->Release();
  EXPECT_EQ(control->Release(), 0u);
  EXPECT_TRUE(FreeLibrary(dll));
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey);
}

}  // namespace
