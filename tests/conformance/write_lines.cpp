#include "tests/conformance/write_lines.h"

#include "module/names.h"
#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"
#include "ztlsim/scenario/noticed_path.h"

namespace ztl_conformance {

using namespace platform;

namespace {

bool AskForPaths(const std::string& name, int count, std::size_t fillerBytes) {
  ComPtr<INetCfgComponentSetup> setup;
  ComPtr<INetCfgComponentNotifyBinding> binding;
  if (Failed(CoCreateInstance(ztl::CLSID_CSampleFilter, nullptr, CLSCTX_INPROC_SERVER, IID_INetCfgComponentSetup,
                              reinterpret_cast<void**>(setup.Receive()))) ||
      Failed(setup->QueryInterface(IID_INetCfgComponentNotifyBinding, reinterpret_cast<void**>(binding.Receive()))))
    return false;
  ztlsim::PathNotice notice{{}, S_OK};
  ztlsim::NoticedPath path(notice);
  for (int query = 0; query < count; ++query) {
    const std::string token = name + ":" + std::to_string(query) + ":" + std::string(fillerBytes, name.back());
    notice.token.assign(token.begin(), token.end());
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
