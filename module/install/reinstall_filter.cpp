#include "module/install/reinstall_filter.h"

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/netcfg/configuration_session.h"
#include "platform/netcfg.h"

namespace ztl {

using namespace platform;

DWORD ReInstallFilter() {
  TraceLine(u"ReInstallZtl Entry\n");
  UniqueSession session;
  HRESULT hr = HrOpenSession(session);
  TraceLine(u"ReInstallZtl:HrGetINegCfg rc = %d\n", hr);
  if (Failed(hr)) return static_cast<DWORD>(hr);
  hr = HrInstallNetComponent(session.get(), kFilterComponent, GUID_DEVCLASS_NETSERVICE);
  TraceLine(u"ReInstallZtl:HrInstallNetComponent rc = %d\n", hr);
  if (!Failed(hr)) {
    hr = session->Apply();
    TraceLine(u"ReInstallZtl:Apply rc = %d\n", hr);
  }
  return static_cast<DWORD>(hr);
}

}  // namespace ztl
