#include "module/order/class_lookups.h"

#include <algorithm>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/registry_key.h"
#include "platform/task_text.h"

namespace ztl {

using namespace platform;

namespace {

// Sizes of the name buffers in characters. A longer subkey name ends the search that finds it, so they decide what a
// lookup can see.
constexpr std::size_t kAdapterSvcNameCapacity = 20;
constexpr std::size_t kInstanceNameCapacity = 64;
constexpr std::size_t kOrdinalNameCapacity = 32;
constexpr std::size_t kTopBindingPathCapacity = 256;

constexpr std::size_t kSingleLineCharacters = 260;  // from here on LogMultiSz writes one line an entry

using ComponentEnumeration = SubkeyEnumeration<kComponentNameCapacity>;

// Copies `text` with its terminator, when the buffer holds it.
LSTATUS CopyText(std::u16string_view text, char16_t* buffer, DWORD capacity) {
  if (capacity <= text.size()) return ERROR_INSUFFICIENT_BUFFER;
  *std::copy(text.begin(), text.end(), buffer) = u'\0';
  return ERROR_SUCCESS;
}

// Opens the NDI key of the first component whose string value `name` equals `wanted`, and reads that value. False when
// there is none.
bool FindComponent(HKEY classKey, const char16_t* name, std::u16string_view wanted, UniqueKey& ndi,
                   StringValue& value) {
  for (ComponentEnumeration component(classKey, kNdiSuffix); component.Next();)
    if (ndi.Open(classKey, component.Path(), KEY_ALL_ACCESS) == ERROR_SUCCESS &&
        value.Read(ndi.Get(), name) == ERROR_SUCCESS && value.Equals(wanted))
      return true;
  return false;
}

LSTATUS ReadFilterClasses(char16_t* buffer, DWORD* capacity) {
  UniqueKey network;
  if (const LSTATUS rc =
          OpenBase(network, kControlNetworkKey, KEY_READ, "GetFilterClass open ControlBase network rc=%u"))
    return rc;
  DWORD type = REG_NONE;
  DWORD bytes = *capacity * 2;
  const LSTATUS rc = platform::RegQueryValueExW(network.Get(), kFilterClassesValue, nullptr, &type,
                                                reinterpret_cast<BYTE*>(buffer), &bytes);
  if (rc != ERROR_SUCCESS || type != REG_MULTI_SZ) {
    LogMessage(g_ModuleLog, SEV_INFO, "No filter class!");
    return ERROR_NOT_FOUND;
  }
  *capacity = bytes / 2;
  return ERROR_SUCCESS;
}

}  // namespace

LSTATUS OpenBase(UniqueKey& key, const char16_t* path, DWORD access, CheckedFormat<char, LSTATUS> failure) {
  const LSTATUS rc = key.Open(HKEY_LOCAL_MACHINE, path, access);
  if (rc != ERROR_SUCCESS) LogMessage<LSTATUS>(g_ModuleLog, SEV_ERROR, failure, rc);
  return rc;
}

void LogMultiSz(const char16_t* label, MultiStringView list) {
  if (list.Empty()) return;
  std::size_t total = 0;
  for (const std::u16string_view entry : list) total += entry.size() + 1;
  const TaskText line = total < kSingleLineCharacters ? AllocateTaskText(total) : nullptr;
  if (!line) {
    LogMessage(g_ModuleLog, SEV_INFO, "%S", label);
    for (const std::u16string_view entry : list) LogMessage(g_ModuleLog, SEV_INFO, "  <%S>", entry.data());
    return;
  }
  char16_t* end = line.get();
  for (const std::u16string_view entry : list) {
    end = std::copy(entry.begin(), entry.end(), end);
    *end++ = u',';
  }
  end[-1] = u'\0';
  LogMessage(g_ModuleLog, SEV_INFO, "%S{%S}", label, static_cast<const char16_t*>(line.get()));
}

LSTATUS GetFilterClass(const char16_t* serviceName, char16_t* buffer, DWORD* capacity) {
  if (serviceName == nullptr) return ReadFilterClasses(buffer, capacity);
  UniqueKey netService;
  if (const LSTATUS rc =
          OpenBase(netService, kNetServiceClassKey, KEY_READ, "GetFilterClass open NetService base rc=%u"))
    return rc;
  UniqueKey ndi;
  StringValue service;
  if (!FindComponent(netService.Get(), kServiceValue, serviceName, ndi, service)) {
    LogMessage(g_ModuleLog, SEV_INFO, "%S has no filter class", serviceName);
    return ERROR_NOT_FOUND;
  }
  std::fill_n(buffer, *capacity, u'\0');
  DWORD type = REG_NONE;
  DWORD bytes = *capacity * 2;
  if (platform::RegQueryValueExW(ndi.Get(), kFilterClassValue, nullptr, &type, reinterpret_cast<BYTE*>(buffer),
                                 &bytes) != ERROR_SUCCESS ||
      type != REG_SZ)
    return ERROR_GEN_FAILURE;
  // The class, its terminator, and the NUL that makes it a one-entry list.
  const auto length = static_cast<DWORD>(std::find(buffer, buffer + *capacity, u'\0') - buffer);
  if (length + 2 > *capacity) return ERROR_INSUFFICIENT_BUFFER;
  buffer[length + 1] = u'\0';
  *capacity = length + 1;
  return ERROR_SUCCESS;
}

bool IsFilterClass(std::u16string_view name) {
  char16_t classes[kClassListCapacity];
  DWORD capacity = kClassListCapacity;
  return GetFilterClass(nullptr, classes, &capacity) == ERROR_SUCCESS &&
         MultiStringView(classes, capacity).Contains(name);
}

LSTATUS ReturnFilterClassIMs(std::u16string_view className, char16_t* buffer, DWORD capacity) {
  UniqueKey netService;
  if (const LSTATUS rc =
          OpenBase(netService, kNetServiceClassKey, KEY_ALL_ACCESS, "ReturnFilterClassIMs open NetService base rc=%u"))
    return rc;
  MultiStringBuilder services(buffer, capacity);
  for (ComponentEnumeration component(netService.Get(), kNdiSuffix); component.Next();) {
    UniqueKey ndi;
    StringValue filterClass;
    StringValue service;
    if (ndi.Open(netService.Get(), component.Path(), KEY_ALL_ACCESS) == ERROR_SUCCESS &&
        filterClass.Read(ndi.Get(), kFilterClassValue) == ERROR_SUCCESS && filterClass.Equals(className) &&
        service.Read(ndi.Get(), kServiceValue) == ERROR_SUCCESS && !services.Append(service.View()))
      return ERROR_INSUFFICIENT_BUFFER;
  }
  return ERROR_SUCCESS;
}

LSTATUS FindSvcFromDeviceId(std::u16string_view deviceId, char16_t* buffer, DWORD capacity) {
  UniqueKey netService;
  if (const LSTATUS rc =
          OpenBase(netService, kNetServiceClassKey, KEY_ALL_ACCESS, "FindSvcFromDeviceId open NetService base rc=%u"))
    return rc;
  UniqueKey ndi;
  StringValue value;
  if (!FindComponent(netService.Get(), kFilterDeviceInfIdValue, deviceId, ndi, value) ||
      value.Read(ndi.Get(), kServiceValue) != ERROR_SUCCESS)
    return ERROR_NOT_FOUND;
  return CopyText(value.View(), buffer, capacity);
}

DWORD GetFilterDeviceInfId(char16_t* serviceName, char16_t* buffer, DWORD capacity) {
  UniqueKey netService;
  if (OpenBase(netService, kNetServiceClassKey, KEY_ALL_ACCESS, "GetFilterDeviceInfId open NetService base rc=%u") !=
      ERROR_SUCCESS)
    return 0;
  UniqueKey ndi;
  StringValue value;
  if (!FindComponent(netService.Get(), kServiceValue, serviceName, ndi, value)) return 0;
  std::copy_n(value.text, value.View().size(), serviceName);  // equal but for the letter case, so of the same length
  if (value.Read(ndi.Get(), kFilterDeviceInfIdValue) != ERROR_SUCCESS ||
      CopyText(value.View(), buffer, capacity) != ERROR_SUCCESS)
    return 0;
  return static_cast<DWORD>(value.View().size() + 1);
}

LSTATUS GetProto(char16_t (&list)[kTransportListCapacity]) {
  MultiStringBuilder transports(list, kTransportListCapacity);
  UniqueKey netTrans;
  if (const LSTATUS rc = OpenBase(netTrans, kNetTransClassKey, KEY_ALL_ACCESS, "GetProto: open NetTrans base rc=%u"))
    return rc;
  for (ComponentEnumeration component(netTrans.Get(), kNdiSuffix); component.Next();) {
    UniqueKey ndi;
    StringValue service;
    if (ndi.Open(netTrans.Get(), component.Path(), KEY_ALL_ACCESS) != ERROR_SUCCESS ||
        service.Read(ndi.Get(), kServiceValue) != ERROR_SUCCESS || service.View().size() >= transports.Room())
      continue;
    LogMessage(g_ModuleLog, SEV_INFO, "NetTransport: %S", static_cast<const char16_t*>(service.text));
    transports.Append(service.View());
  }
  return ERROR_SUCCESS;
}

bool IsTopBinding(HKEY classKey, const char16_t* instanceName, MultiStringView transports) {
  char16_t path[kTopBindingPathCapacity];
  if (!Join(path, instanceName, kLinkageSuffix)) return false;
  UniqueKey linkage;
  if (const LSTATUS rc = linkage.Open(classKey, path, KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "IsTopBinding %S open rc=%u", static_cast<const char16_t*>(path), rc);
    return false;
  }
  ValueBuffer<kUpperBindCapacity> upperBind;
  if (upperBind.Read(linkage.Get(), kUpperBindValue, REG_MULTI_SZ, kUpperBindLimit) != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_INFO, "No UpperBind: %S is a leaf", instanceName);
    return false;
  }
  for (const std::u16string_view transport : transports)
    if (upperBind.List().Contains(transport)) {
      LogMessage(g_ModuleLog, SEV_INFO, "%S is a node", instanceName);
      return true;
    }
  LogMessage(g_ModuleLog, SEV_INFO, "%S is a leaf", instanceName);
  return false;
}

std::int32_t ReturnOrdinal(HKEY classKey, std::u16string_view instanceGuid, MultiStringView devIdList) {
  for (SubkeyEnumeration<kOrdinalNameCapacity> instance(classKey); instance.Next();) {
    UniqueKey key;
    if (const LSTATUS rc = key.Open(classKey, instance.Name(), KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
      LogMessage(g_ModuleLog, SEV_ERROR, "ReturnOrdinal %S open rc=%u", instance.Name(), rc);
      continue;
    }
    StringValue value;
    if (value.Read(key.Get(), kNetCfgInstanceIdValue) != ERROR_SUCCESS || !value.Equals(instanceGuid)) continue;
    if (value.Read(key.Get(), kMatchingDeviceIdValue) != ERROR_SUCCESS) {
      LogMessage(g_ModuleLog, SEV_ERROR, "ReturnOrdinal: no MatchingDeviceId: %S", instance.Name());
      return -1;
    }
    std::int32_t position = 0;
    for (const std::u16string_view deviceId : devIdList) {
      if (value.Equals(deviceId)) return position;
      ++position;
    }
    return -1;
  }
  return -1;
}

LSTATUS FindAdapterSvcFromGuid(HKEY classKey, std::u16string_view instanceGuid, char16_t* buffer, DWORD capacity) {
  for (SubkeyEnumeration<kAdapterSvcNameCapacity> instance(classKey, kNdiSuffix); instance.Next();) {
    UniqueKey key;
    StringValue value;
    if (key.Open(classKey, instance.Name(), KEY_ALL_ACCESS) != ERROR_SUCCESS ||
        value.Read(key.Get(), kNetCfgInstanceIdValue) != ERROR_SUCCESS || !value.Equals(instanceGuid) ||
        key.Open(classKey, instance.Path(), KEY_ALL_ACCESS) != ERROR_SUCCESS)
      continue;
    if (value.Read(key.Get(), kServiceValue) != ERROR_SUCCESS) return ERROR_GEN_FAILURE;
    return CopyText(value.View(), buffer, capacity);
  }
  return ERROR_NOT_FOUND;
}

LSTATUS FindSvcFromGuid(HKEY classKey, std::u16string_view instanceGuid, char16_t* buffer, DWORD capacity) {
  for (SubkeyEnumeration<kInstanceNameCapacity> instance(classKey); instance.Next();) {
    UniqueKey key;
    StringValue value;
    if (key.Open(classKey, instance.Name(), KEY_ALL_ACCESS) != ERROR_SUCCESS ||
        value.Read(key.Get(), kNetCfgInstanceIdValue) != ERROR_SUCCESS || !value.Equals(instanceGuid))
      continue;
    if (const LSTATUS rc = value.Read(key.Get(), kMatchingDeviceIdValue); rc != ERROR_SUCCESS) return rc;
    key.Close();
    const LSTATUS rc = FindSvcFromDeviceId(value.View(), buffer, capacity);
    if (rc != ERROR_NOT_FOUND) return rc;
    break;
  }
  return FindAdapterSvcFromGuid(classKey, instanceGuid, buffer, capacity);
}

}  // namespace ztl
