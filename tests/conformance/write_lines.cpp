#include "tests/conformance/write_lines.h"

#include <algorithm>

#include "module/names.h"
#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"

namespace ztl_conformance {

using namespace platform;

namespace {

class NumberedPath final : public INetCfgBindingPath {
 public:
  std::string token;  // ASCII

  HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return 1; }
  ULONG Release() override { return 1; }
  HRESULT IsEnabled() override { return S_OK; }
  HRESULT GetPathToken(char16_t** text) override {
    *text = static_cast<char16_t*>(CoTaskMemAlloc((token.size() + 1) * sizeof(char16_t)));
    if (*text == nullptr) return E_OUTOFMEMORY;
    *std::copy(token.begin(), token.end(), *text) = u'\0';
    return S_OK;
  }
  HRESULT IsSamePathAs(INetCfgBindingPath*) override { return E_NOTIMPL; }
  HRESULT IsSubPathOf(INetCfgBindingPath*) override { return E_NOTIMPL; }
  HRESULT Enable(BOOL) override { return E_NOTIMPL; }
  HRESULT GetOwner(INetCfgComponent**) override { return E_NOTIMPL; }
  HRESULT GetDepth(ULONG*) override { return E_NOTIMPL; }
  HRESULT EnumBindingInterfaces(IEnumNetCfgBindingInterface**) override { return E_NOTIMPL; }
};

bool AskForPaths(const std::string& name, int count, std::size_t fillerBytes) {
  ComPtr<INetCfgComponentSetup> setup;
  ComPtr<INetCfgComponentNotifyBinding> binding;
  if (Failed(CoCreateInstance(ztl::CLSID_CSampleFilter, nullptr, CLSCTX_INPROC_SERVER, IID_INetCfgComponentSetup,
                              reinterpret_cast<void**>(setup.Receive()))) ||
      Failed(setup->QueryInterface(IID_INetCfgComponentNotifyBinding, reinterpret_cast<void**>(binding.Receive()))))
    return false;
  NumberedPath path;
  for (int query = 0; query < count; ++query) {
    path.token = name + ":" + std::to_string(query) + ":" + std::string(fillerBytes, name.back());
    binding->QueryBindingPath(0, &path);
  }
  setup->Removing();  // so that the release runs no pass
  return true;
}

}  // namespace

bool WriteLines(const std::string& name, int count, std::size_t fillerBytes) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  const bool asked = AskForPaths(name, count, fillerBytes);
  CoUninitialize();
  return asked;
}

}  // namespace ztl_conformance
