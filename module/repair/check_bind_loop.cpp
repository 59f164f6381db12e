#include "module/repair/check_bind_loop.h"

#include <iterator>
#include <string_view>
#include <utility>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/netcfg/binding_path.h"

namespace ztl {

using namespace platform;

namespace {

// Bytes.
constexpr DWORD kLoopUpperBindLimit = 516;
constexpr DWORD kLoopRootDeviceLimit = 1036;

// Forms the reference name from the last entry of what was read, whatever comes before it. False when there is no
// entry at all.
bool FormReferenceName(BindLoop& loop) {
  const char16_t* const text = loop.rootDevice.text;
  std::size_t end = loop.rootDevice.bytes / 2;
  while (end > 0 && text[end - 1] == u'\0') --end;
  std::size_t start = end;
  while (start > 0 && text[start - 1] != u'\0') --start;
  return end > 0 && Join(loop.referenceName, u"#", std::u16string_view(text + start, end - start));
}

void Repair(const BindLoop& loop) {
  LogMessage(g_ModuleLog, SEV_INFO, "RootDevice %S", static_cast<const char16_t*>(loop.rootDevice.text));
  LogMessage(g_ModuleLog, SEV_INFO, "%S", static_cast<const char16_t*>(loop.referenceName));
  UniqueKey links;
  if (links.Open(HKEY_LOCAL_MACHINE, kLanInterfacesKey, KEY_READ) == ERROR_SUCCESS)
    RebindRootDevice(loop.filterInfId.Text(), loop.referenceName, std::move(links));
}

}  // namespace

void CheckBindLoop() {
  UniqueKey marker;
  DWORD disposition = 0;
  if (platform::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMarkerKey, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                                nullptr, marker.Receive(), &disposition) != ERROR_SUCCESS)
    return;
  marker.Close();
  if (disposition != REG_CREATED_NEW_KEY) return;
  const std::int32_t count = FixBindLoop(false);
  LogMessage(g_ModuleLog, SEV_INFO, "Total %d NDIS bindings", count);
  // Each scan that repairs a loop before the last instance is followed by another one.
  for (std::int32_t scans = 0; scans < count; ++scans)
    if (FixBindLoop(true) >= count) break;
  platform::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kMarkerKey);
}

std::int32_t FixBindLoop(bool fix) {
  UniqueKey netAdapters;
  if (netAdapters.Open(HKEY_LOCAL_MACHINE, kNetAdapterClassKey, KEY_READ) != ERROR_SUCCESS) return 0;
  std::int32_t count = 0;
  for (InstanceEnumeration instance(netAdapters.Get(), kInstanceLinkage); instance.Next();) {
    ++count;
    if (!fix) continue;
    BindLoop loop;
    if (!ReadBindLoop(netAdapters.Get(), instance, loop)) continue;
    Repair(loop);
    loop.linkage.Close();
    netAdapters.Close();
    LogMessage(g_ModuleLog, SEV_INFO, "++Fix Binding %d", count);
    break;
  }
  return count;
}

bool ReadBindLoop(HKEY classKey, InstanceEnumeration& instance, BindLoop& loop) {
  LogMessage(g_ModuleLog, SEV_INFO, "Card %S", instance.Name());
  UniqueKey key;
  if (key.Open(classKey, instance.Name(), KEY_READ) != ERROR_SUCCESS ||
      !loop.filterInfId.Read(key.Get(), kFilterInfIdValue))
    return false;
  key.Close();
  LogMessage(g_ModuleLog, SEV_INFO, "-filterInfId %S", loop.filterInfId.Text());
  if (loop.linkage.Open(classKey, instance.Path(), KEY_READ) != ERROR_SUCCESS ||
      loop.upperBind.Read(loop.linkage.Get(), kUpperBindValue, REG_MULTI_SZ, kLoopUpperBindLimit) != ERROR_SUCCESS)
    return false;
  const char16_t* const upperBindTop = loop.upperBind.text;
  LogMessage(g_ModuleLog, SEV_INFO, "-upperbind %S", upperBindTop);
  UniqueKey services;
  return services.Open(HKEY_LOCAL_MACHINE, kNetServiceClassKey, KEY_READ) == ERROR_SUCCESS &&
         IsBindLoop(loop.filterInfId.Text(), upperBindTop, std::move(services)) &&
         loop.rootDevice.Read(loop.linkage.Get(), kRootDeviceValue, REG_MULTI_SZ, kLoopRootDeviceLimit) ==
             ERROR_SUCCESS &&
         FormReferenceName(loop);
}

bool IsBindLoop(const char16_t* filterInfId, const char16_t* upperBindTop, UniqueKey serviceClassKey) {
  const HKEY classKey = serviceClassKey.Get();
  for (SubkeyEnumeration<256 + 4> component(classKey, kComponentNdi); component.Next();) {
    UniqueKey key;
    if (key.Open(classKey, component.Name(), KEY_READ) != ERROR_SUCCESS) {
      LogMessage(g_ModuleLog, SEV_INFO, "Proto %S", component.Name());
      continue;
    }
    LongString value;
    if (!value.Read(key.Get(), kComponentIdValue)) continue;
    key.Close();
    LogMessage(g_ModuleLog, SEV_INFO, "  proto/id %S/%S", component.Name(), value.Text());
    if (!EqualNoCase(value.Text(), filterInfId) || key.Open(classKey, component.Path(), KEY_READ) != ERROR_SUCCESS ||
        !value.Read(key.Get(), kServiceValue))
      continue;
    LogMessage(g_ModuleLog, SEV_INFO, "-service %S", value.Text());
    if (!EqualNoCase(value.Text(), upperBindTop)) continue;
    LogMessage(g_ModuleLog, SEV_ERROR, "BIND LOOP!!!");
    return true;
  }
  return false;
}

bool FindLinkedDevice(HKEY deviceClassesKey, const char16_t* referenceName, LongString& device) {
  for (SubkeyEnumeration<256> link(deviceClassesKey); link.Next();) {
    LogMessage(g_ModuleLog, SEV_INFO, "Device %S", link.Name());
    UniqueKey key;
    if (key.Open(deviceClassesKey, link.Name(), KEY_READ) != ERROR_SUCCESS ||
        !device.Read(key.Get(), kDeviceInstanceValue))
      continue;
    key.Close();
    LogMessage(g_ModuleLog, SEV_INFO, "DeviceInstance %S", device.Text());
    char16_t path[256 + 520];
    if (!Join(path, link.Name(), u"\\", referenceName) || key.Open(deviceClassesKey, path, KEY_READ) != ERROR_SUCCESS)
      continue;
    key.Close();
    LogMessage(g_ModuleLog, SEV_INFO, "RootDevice matched");
    return true;
  }
  return false;
}

void RebindRootDevice(const char16_t* filterInfId, const char16_t* referenceName, UniqueKey deviceClassesKey) {
  LongString device;
  char16_t token[261 + 2 + 261];
  if (!FindLinkedDevice(deviceClassesKey.Get(), referenceName, device) ||
      !Join(token, filterInfId, kTokenArrow, device.Text()))
    return;
  EnableBindingPath(filterInfId, token, false);
  EnableBindingPath(filterInfId, token, true);
}

}  // namespace ztl
