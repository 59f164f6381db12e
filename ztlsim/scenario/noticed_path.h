// The binding path of a notice to the notify object.
#pragma once

#include "platform/netcfg.h"
#include "platform/task_text.h"
#include "ztlsim/scenario/host_process.h"

namespace ztlsim {

// The engine's part of a notice. It is there during the call.
class NoticedPath : public platform::INetCfgBindingPath {
 public:
  using HRESULT = platform::HRESULT;

  explicit NoticedPath(const PathNotice& notice) : notice_(notice) {}
  HRESULT QueryInterface(platform::REFIID, void** object) override {
    *object = nullptr;
    return platform::E_NOINTERFACE;
  }
  platform::ULONG AddRef() override { return 1; }
  platform::ULONG Release() override { return 1; }
  HRESULT IsSamePathAs(INetCfgBindingPath* path) override { return path == this ? platform::S_OK : platform::S_FALSE; }
  HRESULT IsSubPathOf(INetCfgBindingPath*) override { return platform::S_FALSE; }
  HRESULT IsEnabled() override { return notice_.enabled; }
  HRESULT Enable(platform::BOOL) override { return platform::E_NOTIMPL; }
  HRESULT GetPathToken(char16_t** token) override {
    *token = platform::JoinTaskText(notice_.token).release();
    return *token != nullptr ? platform::S_OK : platform::E_OUTOFMEMORY;
  }
  HRESULT GetOwner(platform::INetCfgComponent**) override { return platform::E_NOTIMPL; }
  HRESULT GetDepth(platform::ULONG*) override { return platform::E_NOTIMPL; }
  HRESULT EnumBindingInterfaces(platform::IEnumNetCfgBindingInterface**) override { return platform::E_NOTIMPL; }

 private:
  const PathNotice& notice_;
};

}  // namespace ztlsim
