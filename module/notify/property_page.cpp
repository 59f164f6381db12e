#include "module/notify/property_page.h"

#include <algorithm>
#include <string_view>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/notify/module.h"
#include "module/notify/notify_object.h"
#include "platform/com_ptr.h"
#include "platform/registry_key.h"

namespace ztl {

using namespace platform;

namespace {

constexpr WORD kPropertyPage = 1850;  // the dialog's resource

// Takes the data of the value `name`, whatever its type, as text: up to its first NUL, or its end, cut to what fits.
// A value that cannot be read, or has more bytes than `text`, leaves it as it was.
void ReadText(HKEY key, const char16_t* name, char16_t (&text)[kParameterCapacity]) {
  char16_t data[kParameterCapacity];
  DWORD bytes = sizeof(data);
  if (platform::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data), &bytes) != ERROR_SUCCESS)
    return;
  const std::u16string_view stored(data, bytes / sizeof(char16_t));
  const std::size_t length = std::min({stored.find(u'\0'), stored.size(), kParameterCapacity - 1});
  Join(text, std::u16string_view(data, length));
}

void SetUpControl(HWND hDlg, int id, const char16_t* text) {
  const HWND control = platform::GetDlgItem(hDlg, id);
  platform::SendMessageW(control, EM_LIMITTEXT, kParameterCapacity - 1, 0);
  platform::SetWindowTextW(control, text);
}

}  // namespace

HRESULT CSampleFilter::QueryPropertyUi(IUnknown*) { return S_OK; }

HRESULT CSampleFilter::SetContext(IUnknown* pUnkReserved) {
  TraceLine(u"--> ::SetContext\n");
  m_pContext.Reset();
  if (pUnkReserved == nullptr) return S_OK;
  m_pContext = ComPtr<IUnknown>::Share(pUnkReserved);
  m_AdapterGuid = {};
  ComPtr<INetLanConnectionUiInfo> connection;
  if (const HRESULT hr =
          pUnkReserved->QueryInterface(IID_INetLanConnectionUiInfo, reinterpret_cast<void**>(connection.Receive()));
      Failed(hr)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "SetContext QueryInterface rc=%x", hr);
    return hr;
  }
  const HRESULT hr = connection->GetDeviceGuid(&m_AdapterGuid);
  if (Failed(hr)) LogMessage(g_ModuleLog, SEV_ERROR, "SetContext GetDeviceGuid rc=%x", hr);
  return hr;
}

// The engine owns the array and the page from here on. A page that could not be created is handed over like any other.
HRESULT CSampleFilter::MergePropPages(DWORD* pdwDefPages, BYTE** pahpspPrivate, UINT* pcPages, HWND, const char16_t**) {
  TraceLine(u"--> ::MergePropPages\n");
  m_ApplyAction = eActPropertyUI;
  if (pdwDefPages == nullptr || pahpspPrivate == nullptr || pcPages == nullptr) return E_POINTER;
  *pdwDefPages = 0;
  *pcPages = 0;
  *pahpspPrivate = nullptr;
  auto* const pages = static_cast<HPROPSHEETPAGE*>(platform::CoTaskMemAlloc(sizeof(HPROPSHEETPAGE)));
  if (pages == nullptr) return S_OK;
  PROPSHEETPAGEW description = {};
  description.dwSize = sizeof(description);
  description.hInstance = ModuleInstance();
  description.pszTemplate = ResourceId(kPropertyPage);
  description.pfnDlgProc = PropPageDlgProc;
  description.lParam = reinterpret_cast<LPARAM>(this);
  *pages = platform::CreatePropertySheetPageW(&description);
  *pcPages = 1;
  *pahpspPrivate = reinterpret_cast<BYTE*>(pages);
  return S_OK;
}

HRESULT CSampleFilter::ValidateProperties(HWND) {
  TraceLine(u"--> ::ValidateProperties\n");
  return S_OK;
}

HRESULT CSampleFilter::ApplyProperties() {
  TraceLine(u"--> ::ApplyProperties\n");
  return S_OK;
}

HRESULT CSampleFilter::CancelProperties() {
  TraceLine(u"--> ::CancelProperties\n");
  return S_OK;
}

// Both values stay as they were where they cannot be read; the answer file may have set one.
void CSampleFilter::LoadPropertyValues() {
  UniqueKey component;
  if (m_pComponent && Succeeded(m_pComponent->OpenParamKey(component.Receive())))
    ReadText(component.Get(), kParam1Value, m_szParam1);
  component.Close();
  UniqueKey adapter;
  if (OpenAdapterKey(adapter) == S_OK) ReadText(adapter.Get(), kBundleIdValue, m_szBundleId);
}

std::intptr_t OnInitDialog(CSampleFilter* object, HWND hDlg) {
  if (object->m_fValuesLoaded == 0) {
    object->m_fValuesLoaded = 1;
    object->LoadPropertyValues();
  }
  SetUpControl(hDlg, kParam1Control, object->m_szParam1);
  SetUpControl(hDlg, kBundleIdControl, object->m_szBundleId);
  return 0;
}

std::intptr_t OnOk(CSampleFilter* object, HWND hDlg) {
  TraceLine(u"--> ::OnOk\n");
  platform::GetWindowTextW(platform::GetDlgItem(hDlg, kParam1Control), object->m_szParam1, kParameterCapacity);
  platform::GetWindowTextW(platform::GetDlgItem(hDlg, kBundleIdControl), object->m_szBundleId, kParameterCapacity);
  return 0;
}

void OnCancel() { TraceLine(u"--> ::OnCancel\n"); }

std::intptr_t PropPageDlgProc(HWND hDlg, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) {
    const LPARAM value = reinterpret_cast<const PROPSHEETPAGEW*>(lParam)->lParam;
    platform::SetWindowLongPtrW(hDlg, DWLP_USER, value);
    return OnInitDialog(reinterpret_cast<CSampleFilter*>(value), hDlg);
  }
  auto* const object = reinterpret_cast<CSampleFilter*>(platform::GetWindowLongPtrW(hDlg, DWLP_USER));
  if (object == nullptr) return 0;
  if (message == WM_COMMAND) {
    const auto control = static_cast<WORD>(wParam);
    const auto code = static_cast<WORD>(wParam >> 16);
    if (code == EN_CHANGE && (control == kParam1Control || control == kBundleIdControl))
      platform::SendMessageW(platform::GetParent(hDlg), PSM_CHANGED, reinterpret_cast<WPARAM>(hDlg), 0);
    return 0;
  }
  if (message != WM_NOTIFY) return 0;
  switch (reinterpret_cast<const NMHDR*>(lParam)->code) {
    case PSN_KILLACTIVE:
      platform::SetWindowLongPtrW(hDlg, DWLP_MSGRESULT, 0);  // the page may be left
      return 1;
    case PSN_APPLY:
      return OnOk(object, hDlg);
    case PSN_RESET:
      OnCancel();
      return 0;
    default:
      return 0;
  }
}

}  // namespace ztl
