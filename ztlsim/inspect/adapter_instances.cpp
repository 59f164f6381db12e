#include "ztlsim/inspect/adapter_instances.h"

#include <algorithm>
#include <utility>

#include "module/names.h"
#include "module/order/class_lookups.h"
#include "platform/registry_key.h"

namespace ztlsim {

using namespace platform;

namespace {

// A string value of any size, up to its first NUL. Empty when it is missing or of another type. `bytes` becomes its
// size.
std::u16string ReadString(HKEY key, const char16_t* name, std::size_t& bytes) {
  DWORD type = REG_NONE;
  DWORD size = 0;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS || type != REG_SZ) return {};
  std::u16string text((size + 1) / 2, u'\0');
  if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size) != ERROR_SUCCESS)
    return {};
  text.resize(std::min(text.size(), text.find(u'\0')));
  bytes = size;
  return text;
}

template <std::size_t Capacity>
std::optional<std::vector<std::u16string>> ReadList(HKEY key, const char16_t* name, DWORD limit) {
  ValueBuffer<Capacity> value;
  if (value.Read(key, name, REG_MULTI_SZ, limit) != ERROR_SUCCESS) return std::nullopt;
  std::vector<std::u16string> entries;
  for (const std::u16string_view entry : value.List()) entries.emplace_back(entry);
  return entries;
}

}  // namespace

std::vector<AdapterInstance> ReadAdapterInstances(HKEY classKey) {
  constexpr std::size_t kLongestKeyName = 255;
  std::vector<AdapterInstance> instances;
  for (SubkeyEnumeration<kLongestKeyName + 1> subkey(classKey); subkey.Next();) {
    UniqueKey key;
    if (key.Open(classKey, subkey.Name(), KEY_READ) != ERROR_SUCCESS) continue;
    AdapterInstance& instance = instances.emplace_back();
    instance.subkey = subkey.Name();
    instance.description = ReadString(key.Get(), u"DriverDesc", instance.descriptionBytes);
    std::size_t unused = 0;
    instance.devNodeId = ReadString(key.Get(), u"DeviceInstanceID", unused);
    if (StringValue guid; guid.Read(key.Get(), ztl::kNetCfgInstanceIdValue) == ERROR_SUCCESS) instance.guid = guid.text;
    UniqueKey linkage;
    if (linkage.Open(key.Get(), u"Linkage", KEY_READ) != ERROR_SUCCESS) continue;
    instance.rootDevice =
        ReadList<ztl::kRootDeviceCapacity>(linkage.Get(), ztl::kRootDeviceValue, ztl::kRootDeviceLimit);
    if (auto list = ReadList<ztl::kUpperBindCapacity>(linkage.Get(), ztl::kUpperBindValue, ztl::kUpperBindLimit))
      instance.upperBind = std::move(*list);
  }
  return instances;
}

}  // namespace ztlsim
