// CSampleFilter's answers to requests for its properties. The values that a page changes are stored later, by
// ApplyRegistryChanges and ApplyPnpChanges, because MergePropPages records the action.
#include "log/log_facility.h"
#include "notify/sample_filter.h"
#include "platform/com_ptr.h"

namespace ztl {

using namespace platform;

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

// No page is offered yet: the engine gets none, as when a page's memory cannot be had.
HRESULT CSampleFilter::MergePropPages(DWORD* pdwDefPages, BYTE** pahpspPrivate, UINT* pcPages, HWND, const char16_t**) {
  TraceLine(u"--> ::MergePropPages\n");
  m_ApplyAction = eActPropertyUI;
  if (pdwDefPages == nullptr || pahpspPrivate == nullptr || pcPages == nullptr) return E_POINTER;
  *pdwDefPages = 0;
  *pcPages = 0;
  *pahpspPrivate = nullptr;
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

}  // namespace ztl
