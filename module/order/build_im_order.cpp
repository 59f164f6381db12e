#include "module/order/build_im_order.h"

#include <algorithm>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "module/order/class_lookups.h"
#include "platform/registry_key.h"

namespace ztl {

using namespace platform;

namespace {

constexpr std::size_t kOrderCapacity = 260;

using ConfiguredOrder = ValueBuffer<kOrderCapacity>;

void ReadConfiguredOrder(ConfiguredOrder& order) {
  UniqueKey parameters;
  if (OpenBase(parameters, kParametersKey, KEY_ALL_ACCESS, "BuildImOrder: open ZTL parameter base rc=%u") ==
      ERROR_SUCCESS) {
    if (order.Read(parameters.Get(), kImOrderValue, REG_MULTI_SZ, kOrderLimit) == ERROR_SUCCESS) {
      LogMessage(g_ModuleLog, SEV_INFO, "<%S> successfully read from Registry", kImOrderValue);
      return;
    }
    LogMessage(g_ModuleLog, SEV_INFO, "<%S> is not set", kImOrderValue);
  }
  std::fill_n(order.text, kOrderCapacity, u'\0');  // a value of another type has left its data here
  MultiStringBuilder(order.text, kOrderCapacity).Append(kOthers);
}

// Enters the driver `service`, which is rewritten in the registry's letter case, into both lists. Null when it has no
// device id, or none that fits; else the id.
const char16_t* AddDriver(char16_t* service, MultiStringBuilder& ims, MultiStringBuilder& devIds) {
  char16_t* const id = devIds.Cursor();
  const DWORD written = GetFilterDeviceInfId(service, id, static_cast<DWORD>(devIds.Room()));
  if (written == 0) return nullptr;
  devIds.Advance(written - 1);
  ims.Append(service);
  return id;
}

// The drivers of the classes that the configured order does not name: of all known classes once a class entry was met,
// else of the filter's own class. False when the lists end here.
bool AddOthers(MultiStringView ownClass, bool classEntryMet, MultiStringView order, MultiStringView imList,
               MultiStringBuilder& ims, MultiStringBuilder& devIds) {
  LogMessage(g_ModuleLog, SEV_INFO, "Adding other IMs...");
  char16_t known[kClassListCapacity + 1] = {};
  MultiStringView classes = ownClass;
  if (classEntryMet) {
    DWORD capacity = kClassListCapacity;
    if (GetFilterClass(nullptr, known, &capacity) != ERROR_SUCCESS) return false;
    known[capacity] = u'\0';
    classes = MultiStringView(known, capacity);
  }
  for (const std::u16string_view className : classes) {
    LogMessage(g_ModuleLog, SEV_INFO, "-check <%S> IMs", className.data());
    if (order.Contains(className))
      LogMessage(g_ModuleLog, SEV_INFO, "checked previously, skipping...");
    else if (AddFilterClassIMs(className.data(), order, imList, ims, devIds) != ERROR_SUCCESS)
      return false;
  }
  return true;
}

void AddConfigured(MultiStringView ownClass, ConfiguredOrder& order, MultiStringView imList, MultiStringBuilder& ims,
                   MultiStringBuilder& devIds) {
  bool classEntryMet = false;
  for (const std::u16string_view entry : order.List()) {
    char16_t* const name = order.text + (entry.data() - order.text);
    if (EqualNoCase(entry, kOthers)) {
      if (!AddOthers(ownClass, classEntryMet, order.List(), imList, ims, devIds)) return;
    } else if (IsFilterClass(entry)) {
      LogMessage(g_ModuleLog, SEV_INFO, "<%S> is a filter class", entry.data());
      classEntryMet = true;
      if (AddFilterClassIMs(name, order.List(), imList, ims, devIds) != ERROR_SUCCESS) return;
    } else if (entry.size() >= ims.Room()) {
      LogMessage(g_ModuleLog, SEV_ERROR, "buffer limit2 error");
      return;
    } else if (const char16_t* const id = AddDriver(name, ims, devIds)) {
      LogMessage(g_ModuleLog, SEV_INFO, "*add <%S/%S> to IM list", entry.data(), id);
    } else {
      LogMessage(g_ModuleLog, SEV_INFO, "<%S> is probably not active", entry.data());
    }
  }
}

}  // namespace

LSTATUS BuildImOrder(MultiStringView ownClass, char16_t (&imList)[kImListCapacity],
                     char16_t (&devIdList)[kDevIdListCapacity]) {
  MultiStringBuilder ims(imList, kImListCapacity);
  MultiStringBuilder devIds(devIdList, kDevIdListCapacity);
  ConfiguredOrder order;
  ReadConfiguredOrder(order);
  AddConfigured(ownClass, order, imList, ims, devIds);
  LogMultiSz(u"IM List: ", imList);
  LogMultiSz(u"DevID List: ", devIdList);
  return ERROR_SUCCESS;
}

LSTATUS AddFilterClassIMs(const char16_t* className, MultiStringView configuredOrder, MultiStringView imList,
                          MultiStringBuilder& ims, MultiStringBuilder& devIds) {
  LogMessage(g_ModuleLog, SEV_INFO, "Adding <%S> IMs...", className);
  char16_t services[kClassServicesCapacity];
  if (const LSTATUS rc = ReturnFilterClassIMs(className, services, kClassServicesCapacity); rc != ERROR_SUCCESS)
    return rc;
  for (const std::u16string_view service : MultiStringView(services)) {
    if (imList.Contains(service) || configuredOrder.Contains(service)) continue;
    if (service.size() >= ims.Room()) {
      LogMessage(g_ModuleLog, SEV_ERROR, "buffer limit error");
      break;
    }
    if (const char16_t* const id = AddDriver(services + (service.data() - services), ims, devIds))
      LogMessage(g_ModuleLog, SEV_INFO, "+add <%S/%S> to IM list", service.data(), id);
    else
      LogMessage(g_ModuleLog, SEV_INFO, "no FilterDeviceInfId");
  }
  return ERROR_SUCCESS;
}

}  // namespace ztl
