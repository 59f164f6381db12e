#include "module/order/order_im.h"

#include <algorithm>

#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/registry_key.h"

namespace ztl {

using namespace platform;

namespace {

constexpr std::size_t kOwnClassCapacity = 32;
constexpr std::size_t kTopNameCapacity = 32;
constexpr std::size_t kLinkagePathCapacity = 64;
constexpr std::size_t kServiceCapacity = 64;
constexpr std::size_t kRecordCapacity = 260;
constexpr std::size_t kMaxStackEntries = 16;

using RootDevice = ValueBuffer<kRootDeviceCapacity>;
using UpperBind = ValueBuffer<kUpperBindCapacity>;

// Lengthens a list that was read without its final NULs so that its size covers them: the buffer holds zeros after
// what was read. Both tests look at the list as it was read.
template <std::size_t Capacity>
void Complete(ValueBuffer<Capacity>& value, void (*logFix)()) {
  const std::size_t count = value.bytes / 2;
  for (const std::size_t fromEnd : {std::size_t{2}, std::size_t{1}})
    if (count < fromEnd || value.text[count - fromEnd] != u'\0') {
      value.bytes += 2;
      logFix();
    }
}

// One stack: its entries from the top down to the physical adapter, and the rank of each. -1: not to be moved.
struct Stack {
  std::u16string_view entries[kMaxStackEntries];
  std::int32_t ordinals[kMaxStackEntries];
  std::size_t count = 0;
};

void Rank(HKEY classKey, MultiStringView rootDevice, MultiStringView devIdList, Stack& stack) {
  for (const std::u16string_view entry : rootDevice) stack.entries[stack.count++] = entry;
  for (std::size_t i = 0; i < stack.count; ++i)
    stack.ordinals[i] = i + 1 == stack.count ? -1 : ReturnOrdinal(classKey, stack.entries[i], devIdList);
}

// Exchanges the entry at `j` of the list in `text` with the next one, each with its own length.
void SwapEntries(char16_t* text, Stack& stack, std::size_t j) {
  const std::size_t upper = stack.entries[j].size() + 1;
  const std::size_t lower = stack.entries[j + 1].size() + 1;
  char16_t* const first = text + (stack.entries[j].data() - text);
  std::rotate(first, first + upper, first + upper + lower);
  stack.entries[j] = {first, lower - 1};
  stack.entries[j + 1] = {first + lower, upper - 1};
  std::swap(stack.ordinals[j], stack.ordinals[j + 1]);
}

// Sorts all entries but the last. An entry that is not to be moved keeps its place and lets none pass, so the entries
// between two such ones are sorted among themselves. True when something moved.
bool Sort(char16_t* text, Stack& stack) {
  bool swapped = false;
  for (std::size_t end = stack.count - 1; end > 1; --end)
    for (std::size_t j = 0; j + 1 < end; ++j)
      if (stack.ordinals[j] >= 0 && stack.ordinals[j + 1] >= 0 && stack.ordinals[j] > stack.ordinals[j + 1]) {
        SwapEntries(text, stack, j);
        swapped = true;
      }
  return swapped;
}

// The service that stands above a level: the driver at the upper entry's rank, or the upper entry's owner. Empty when
// there is none; an upper entry without an owner is logged.
std::u16string_view ServiceAbove(HKEY classKey, const Stack& stack, std::size_t level, MultiStringView imList,
                                 char16_t (&buffer)[kServiceCapacity]) {
  std::int32_t ordinal = stack.ordinals[level - 1];
  if (ordinal < 0) {
    const std::u16string_view above = stack.entries[level - 1];
    if (FindSvcFromGuid(classKey, above, buffer, kServiceCapacity) == ERROR_SUCCESS) return buffer;
    LogMessage(g_ModuleLog, SEV_ERROR, "Can't find Guid for %S", above.data());
    return {};
  }
  for (const std::u16string_view service : imList)
    if (ordinal-- == 0) return service;
  return {};
}

void RewriteLowerLevels(HKEY classKey, const Stack& stack, DWORD rootBytes, MultiStringView imList) {
  for (std::size_t level = 1; level < stack.count; ++level) {
    const std::u16string_view entry = stack.entries[level];
    rootBytes -= static_cast<DWORD>((stack.entries[level - 1].size() + 1) * 2);
    char16_t service[kServiceCapacity];
    const std::u16string_view above = ServiceAbove(classKey, stack, level, imList, service);
    if (above.data() == nullptr) continue;
    char16_t upperBind[kServiceCapacity + 1];
    MultiStringBuilder(upperBind, std::size(upperBind)).Append(above);
    SetOrder(classKey, entry.data(), rootBytes, upperBind, static_cast<DWORD>((above.size() + 1) * 2 + 2));
  }
}

}  // namespace

LSTATUS OrderIM(std::uint8_t* changed) {
  *changed = 0;
  char16_t ownClass[kOwnClassCapacity];
  DWORD ownClassLength = kOwnClassCapacity;
  if (const LSTATUS rc = GetFilterClass(kFilterService, ownClass, &ownClassLength); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "OrderIM: GetFilterClass rc=%u", rc);
    return rc;
  }
  LogMessage(g_ModuleLog, SEV_INFO, "ZTL is in filter class <%S>", static_cast<const char16_t*>(ownClass));
  DeleteBindOrders();
  char16_t imList[kImListCapacity];
  char16_t devIdList[kDevIdListCapacity];
  BuildImOrder(ownClass, imList, devIdList);
  char16_t transports[kTransportListCapacity];
  if (const LSTATUS rc = GetProto(transports); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "OrderIM: GetProto rc=%u", rc);
    return rc;
  }
  UniqueKey netAdapters;
  if (const LSTATUS rc = OpenBase(netAdapters, kNetAdapterClassKey, KEY_ALL_ACCESS, "OrderIM: open net base rc=%u"))
    return rc;
  for (SubkeyEnumeration<kTopNameCapacity> instance(netAdapters.Get()); instance.Next();)
    if (IsTopBinding(netAdapters.Get(), instance.Name(), transports) &&
        ImposeOrder(netAdapters.Get(), instance.Name(), imList, devIdList))
      *changed = 1;
  netAdapters.Close();
  LogMessage(g_ModuleLog, SEV_INFO, "OrderIM: success changed=%u", *changed);
  return ERROR_SUCCESS;
}

LSTATUS DeleteBindOrders() {
  UniqueKey adapters;
  if (const LSTATUS rc = adapters.Open(HKEY_LOCAL_MACHINE, kAdaptersKey, KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_INFO, "DeleteBindOrders: open ZTL param adapters rc=%u", rc);
    return rc;
  }
  for (SubkeyEnumeration<kAdapterNameCapacity> adapter(adapters.Get()); adapter.Next();) {
    UniqueKey key;
    if (key.Open(adapters.Get(), adapter.Name(), KEY_ALL_ACCESS) == ERROR_SUCCESS)
      platform::RegDeleteValueW(key.Get(), kRecordValue);
  }
  return ERROR_SUCCESS;
}

bool ImposeOrder(HKEY classKey, const char16_t* instanceName, MultiStringView imList, MultiStringView devIdList) {
  char16_t path[kLinkagePathCapacity];
  if (!Join(path, instanceName, kLinkageSuffix)) return false;
  UniqueKey linkage;
  if (const LSTATUS rc = linkage.Open(classKey, path, KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "ImposeOrder %S open rc=%u", static_cast<const char16_t*>(path), rc);
    return false;
  }
  RootDevice rootDevice;
  if (rootDevice.Read(linkage.Get(), kRootDeviceValue, REG_MULTI_SZ, kRootDeviceLimit) != ERROR_SUCCESS) {
    linkage.Close();
    LogMessage(g_ModuleLog, SEV_INFO, "No RootDevice: %S", instanceName);
    return false;
  }
  Complete(rootDevice, [] { LogMessage(g_ModuleLog, SEV_INFO, "Fix malformed RootDevice "); });
  UpperBind upperBind;
  if (upperBind.Read(linkage.Get(), kUpperBindValue, REG_MULTI_SZ, kUpperBindLimit) != ERROR_SUCCESS) {
    linkage.Close();
    LogMessage(g_ModuleLog, SEV_ERROR, "ImposeOrder: no UpperBind: %S", instanceName);
    return false;
  }
  Complete(upperBind, [] { LogMessage(g_ModuleLog, SEV_INFO, "Fix malformed UpperBind "); });
  linkage.Close();

  // A stack with more entries than the table holds keeps its settings. Entries that are GUIDs never get there: 13 of
  // them fill what is read.
  Stack stack;
  bool sorted = false;
  if (rootDevice.List().Count() <= kMaxStackEntries) {
    Rank(classKey, rootDevice.List(), devIdList, stack);
    sorted = stack.count > 2 && Sort(rootDevice.text, stack);
  }
  if (!sorted) {
    LogMessage(g_ModuleLog, SEV_INFO, "--keep settings to %S", instanceName);
    OutputBindOrders(classKey, rootDevice.List(), upperBind.List());
    return false;
  }
  LogMessage(g_ModuleLog, SEV_INFO, "++REORDER %S", instanceName);
  // Nothing below is touched until the new top is stored: a stack is reached through its top alone.
  const bool stored =
      SetOrder(classKey, rootDevice.text, rootDevice.bytes, upperBind.text, upperBind.bytes) == ERROR_SUCCESS;
  if (stored) RewriteLowerLevels(classKey, stack, rootDevice.bytes, imList);
  OutputBindOrders(classKey, rootDevice.List(), upperBind.List());
  return stored;
}

LSTATUS SetOrder(HKEY classKey, const char16_t* rootDevice, DWORD rootBytes, const char16_t* upperBind,
                 DWORD upperBytes) {
  const std::u16string_view first = rootDevice;
  SubkeyEnumeration<kSetOrderPathCapacity> instance(classKey, kLinkageSuffix);
  while (instance.Next()) {
    UniqueKey linkage;
    if (const LSTATUS rc = linkage.Open(classKey, instance.Path(), KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
      LogMessage(g_ModuleLog, SEV_ERROR, "SetOrder: %S open rc=%u", instance.Path(), rc);
      continue;
    }
    RootDevice stored;
    if (stored.Read(linkage.Get(), kRootDeviceValue, REG_MULTI_SZ, kRootDeviceLimit) != ERROR_SUCCESS ||
        !EqualNoCase(stored.text, first))
      continue;
    LogMessage(g_ModuleLog, SEV_INFO, "-%S", instance.Path());
    if (const LSTATUS rc = SetExactValue(linkage.Get(), kRootDeviceValue, REG_MULTI_SZ, rootDevice, rootBytes);
        rc != ERROR_SUCCESS)
      LogMessage(g_ModuleLog, SEV_ERROR, "SetOrder: set RootDevice rc=%u", rc);
    const LSTATUS rc = SetExactValue(linkage.Get(), kUpperBindValue, REG_MULTI_SZ, upperBind, upperBytes);
    if (rc != ERROR_SUCCESS) LogMessage(g_ModuleLog, SEV_ERROR, "SetOrder: set UpperBind rc=%u", rc);
    return rc;
  }
  LogMessage(g_ModuleLog, SEV_ERROR, "SetOrder: can't locate %S", rootDevice);
  return instance.Code();
}

void OutputBindOrders(HKEY classKey, MultiStringView rootDevice, MultiStringView upperBind) {
  LogMultiSz(u"  UpperBind: ", upperBind);
  char16_t record[kRecordCapacity + 1] = {};  // the final NUL has room of its own
  MultiStringBuilder services(record, std::size(record));
  std::u16string_view last;
  for (const std::u16string_view entry : rootDevice) {
    char16_t* const service = services.Cursor();
    const LSTATUS rc = FindSvcFromGuid(classKey, entry, service, static_cast<DWORD>(services.Room()));
    if (rc == ERROR_SUCCESS) {
      LogMessage(g_ModuleLog, SEV_INFO, "  RootDevice %S %S", entry.data(), static_cast<const char16_t*>(service));
      services.Advance(std::u16string_view(service).size());
    } else if (rc != ERROR_NOT_FOUND) {
      LogMessage(g_ModuleLog, SEV_ERROR, "OutputBindOrders: can not continue rc=%u", rc);
      return;
    } else if (services.Append(entry)) {
      LogMessage(g_ModuleLog, SEV_INFO, "  RootDevice %S", entry.data());
    } else {
      LogMessage(g_ModuleLog, SEV_ERROR, "OutputBindOrders: buffer limit error");
      return;
    }
    last = entry;
  }
  if (!upperBind.Contains(kTcpipService) || last.empty() || !MultiStringView(record).Contains(kFilterService)) return;
  UniqueKey adapters;
  if (OpenBase(adapters, kAdaptersKey, KEY_ALL_ACCESS, "OutputBindOrders: open ZTL param adapters rc=%u") !=
      ERROR_SUCCESS)
    return;
  UniqueKey adapter;
  if (const LSTATUS rc = adapter.Open(adapters.Get(), last.data(), KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "OutputBindOrders: open ZTL param adapter key %S rc=%u", last.data(), rc);
    return;
  }
  const auto bytes = static_cast<DWORD>((services.Cursor() + 1 - record) * 2);
  if (const LSTATUS rc = platform::RegSetValueExW(adapter.Get(), kRecordValue, 0, REG_MULTI_SZ,
                                                  reinterpret_cast<const BYTE*>(record), bytes);
      rc != ERROR_SUCCESS)
    LogMessage(g_ModuleLog, SEV_ERROR, "OutputBindOrders: save ZTL adapter ImOrder rc=%u", rc);
}

}  // namespace ztl
