#include "ztlsim/inspect/check_values.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "module/names.h"
#include "module/order/order_im.h"
#include "module/repair/check_bind_loop.h"
#include "module/repair/excluded_macs.h"
#include "platform/registry_key.h"
#include "ztlsim/inspect/value_text.h"

namespace ztlsim {

using namespace platform;

namespace {

enum class Place { Instance, InstanceLinkage, InstanceNdi, Network, ServiceNdi, TransportNdi, Parameters };

// A value that the module reads, up to `limit` bytes and of that type alone; else it counts as missing.
struct ValueRule {
  Place place;
  const char16_t* name;
  DWORD type;
  DWORD limit;
  const char* ifMissing;  // what that leads to
};
constexpr DWORD kStringLimit = sizeof(StringValue::text);
constexpr ValueRule kValues[] = {
    {Place::Instance, ztl::kNetCfgInstanceIdValue, REG_SZ, kStringLimit,
     "A stack that names this instance does not find it"},
    {Place::Instance, ztl::kMatchingDeviceIdValue, REG_SZ, kStringLimit,
     "Its driver is not moved, and its stack has no record"},
    {Place::Instance, ztl::kFilterInfIdValue, REG_SZ, ztl::kLongStringLimit, "A binding loop here is not seen"},
    {Place::InstanceLinkage, ztl::kRootDeviceValue, REG_MULTI_SZ, ztl::kRootDeviceLimit,
     "A pass cannot sort the stack, nor rewrite this instance"},
    {Place::InstanceLinkage, ztl::kUpperBindValue, REG_MULTI_SZ, ztl::kUpperBindLimit,
     "Nothing counts as bound above: if it is the top of a stack, that is left out"},
    {Place::InstanceNdi, ztl::kServiceValue, REG_SZ, kStringLimit, "A physical adapter has no record without it"},
    {Place::Network, ztl::kFilterClassesValue, REG_MULTI_SZ, ztl::kClassListCapacity * 2,
     "No filter class is known: the classes in IMOrder are passed over"},
    {Place::ServiceNdi, ztl::kServiceValue, REG_SZ, kStringLimit, "The driver is not found"},
    {Place::ServiceNdi, ztl::kFilterClassValue, REG_SZ, kStringLimit, "The driver belongs to no filter class"},
    {Place::ServiceNdi, ztl::kFilterDeviceInfIdValue, REG_SZ, kStringLimit,
     "The driver is not moved, and none moves past it"},
    {Place::TransportNdi, ztl::kServiceValue, REG_SZ, kStringLimit,
     "A stack that only this transport is bound to is left out"},
    {Place::Parameters, ztl::kExcludedMacsValue, REG_MULTI_SZ, ztl::kExcludedMacsLimit, "No adapter is excluded"},
    {Place::Parameters, ztl::kImOrderValue, REG_MULTI_SZ, ztl::kOrderLimit, "The order is taken as \"Others\" alone"}};

bool IsRead(HKEY key, const ValueRule& rule) {
  if (rule.type == REG_SZ && rule.limit == kStringLimit) return StringValue().Read(key, rule.name) == ERROR_SUCCESS;
  return ValueBuffer<1024>().Read(key, rule.name, rule.type, rule.limit) == ERROR_SUCCESS;
}

// A name that a search cannot take in ends it. That does no harm when what is looked for is not there.
template <std::size_t Capacity>
void CheckKeyNames(simulation::Machine& machine, const char16_t* path, std::u16string_view suffix, Findings& findings) {
  UniqueKey key;
  if (key.Open(HKEY_LOCAL_MACHINE, path, KEY_READ) != ERROR_SUCCESS) return;
  SubkeyEnumeration<Capacity> names(key.Get(), suffix);
  std::size_t count = 0;
  while (names.Next()) ++count;
  const auto hidden = std::span(machine.registry.Find(kLocalMachine + path)->subkeys).subspan(count);
  if (names.Code() == ERROR_MORE_DATA && std::any_of(hidden.begin(), hidden.end(), [suffix](const auto& subkey) {
        return suffix.empty() || subkey->FindSubkey(suffix.substr(1)) != nullptr;
      }))
    findings.Add(FindingKind::LongKeyName, FullPath(machine, path + (u'\\' + hidden.front()->name)), std::nullopt,
                 "The name of this key is longer than the " + std::to_string(Capacity - 1 - suffix.size()) +
                     " characters that searches take in",
                 "Searches end here: neither this key nor those behind it are found");
}

std::vector<std::u16string> SubkeyPaths(simulation::Machine& machine, const std::u16string& path) {
  std::vector<std::u16string> paths;
  if (const auto* const key = machine.registry.Find(kLocalMachine + path))
    for (const auto& subkey : key->subkeys) paths.push_back(path + u'\\' + subkey->name);
  return paths;
}

// A multi-string that is read: its entries, each with its NUL, one NUL more, and nothing else but NULs.
void CheckListForm(const std::u16string& key, const simulation::RegistryValue& value, Findings& findings) {
  const std::size_t characters = value.data.size() / 2;
  std::size_t needed = 1;
  for (const std::u16string& entry : ListOf(value)) needed += entry.size() + 1;
  auto add = [&](const std::string& text, const char* consequence) {
    findings.Add(FindingKind::MalformedMultiString, key, value.name, text, consequence);
  };
  const std::span data(value.data.data(), characters * 2);
  const auto rest = data.subspan(std::min(needed, characters) * 2);
  if (std::any_of(rest.begin(), rest.end(), [](BYTE byte) { return byte != 0; }))
    add("Entries stand behind an empty one", "A pass does not see them");
  else if (value.data.size() % 2 != 0)
    add("It has an odd number of bytes", "A pass reads it without the last one");
  else if (needed > characters && characters > 0)
    add("It lacks " + std::to_string(needed - characters) + " of the NULs at its end",
        "A pass reads it as if it were complete");
}

void CheckValuesOf(simulation::Machine& machine, Place place, const std::u16string& path, Findings& findings) {
  UniqueKey key;
  if (key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ) != ERROR_SUCCESS) return;
  const std::u16string fullPath = machine.registry.PathOf(key.Get());
  const simulation::RegistryKey& stored = *machine.registry.Find(fullPath);
  for (const ValueRule& rule : kValues) {
    const auto* const value = rule.place == place ? stored.FindValue(rule.name) : nullptr;
    if (value == nullptr) continue;
    if (IsRead(key.Get(), rule)) {
      if (rule.type == REG_MULTI_SZ) CheckListForm(fullPath, *value, findings);
      continue;
    }
    const std::string size = std::to_string(value->data.size()) + " bytes";
    findings.Add(FindingKind::UnreadableValue, fullPath, rule.name,
                 value->type != rule.type
                     ? "It is of type " + TypeName(value->type) + ", and read as " + TypeName(rule.type)
                 : value->data.size() > rule.limit
                     ? "It has " + size + ", and at most " + std::to_string(rule.limit) + " are read"
                     : "The text is not ended within its " + size,
                 rule.ifMissing);
  }
}

}  // namespace

void CheckKeys(simulation::Machine& machine, const MachineState& state, Findings& findings) {
  static constexpr std::pair<const char16_t*, const char*> kNeeded[] = {
      {ztl::kNetAdapterClassKey, "A pass finds no stack and deletes the adapter records"},
      {ztl::kControlNetworkKey, "No driver and no filter class is known: a pass ends at once"},
      {ztl::kNetServiceClassKey, "No driver is known: a pass ends at once"},
      {ztl::kNetTransClassKey, "No transport is known: a pass deletes the adapter records and ends"},
      {ztl::kParametersKey, "The order is taken as \"Others\" alone, and no adapter record is written"}};
  std::u16string missing = u" ";  // what is below a missing key is not reported
  for (const auto& [path, consequence] : kNeeded)
    if (ContainsName(state.missingKeys, kLocalMachine + path) && !std::u16string_view(path).starts_with(missing))
      findings.Add(FindingKind::MissingKey, kLocalMachine + (missing = path), std::nullopt, "The key is missing",
                   consequence);
  CheckKeyNames<ztl::kSetOrderPathCapacity>(machine, ztl::kNetAdapterClassKey, ztl::kLinkageSuffix, findings);
  CheckKeyNames<ztl::kComponentNameCapacity>(machine, ztl::kNetServiceClassKey, ztl::kNdiSuffix, findings);
  CheckKeyNames<ztl::kComponentNameCapacity>(machine, ztl::kNetTransClassKey, ztl::kNdiSuffix, findings);
  CheckKeyNames<ztl::kAdapterNameCapacity>(machine, ztl::kAdaptersKey, {}, findings);
}

void CheckValues(simulation::Machine& machine, const MachineState& state, Findings& findings) {
  for (const std::u16string& path : SubkeyPaths(machine, ztl::kNetAdapterClassKey)) {
    CheckValuesOf(machine, Place::Instance, path, findings);
    CheckValuesOf(machine, Place::InstanceLinkage, path + u"\\Linkage", findings);
    CheckValuesOf(machine, Place::InstanceNdi, path + u"\\Ndi", findings);
  }
  CheckValuesOf(machine, Place::Network, ztl::kControlNetworkKey, findings);
  for (const std::u16string& path : SubkeyPaths(machine, ztl::kNetServiceClassKey))
    CheckValuesOf(machine, Place::ServiceNdi, path + u"\\Ndi", findings);
  for (const std::u16string& path : SubkeyPaths(machine, ztl::kNetTransClassKey))
    CheckValuesOf(machine, Place::TransportNdi, path + u"\\Ndi", findings);
  CheckValuesOf(machine, Place::Parameters, ztl::kParametersKey, findings);
  const std::u16string services = FullPath(machine, ztl::kNetServiceClassKey);
  if (state.ownClass.empty() && !findings.HasUnreadableValue(services) &&
      !ContainsName(state.missingKeys, kLocalMachine + ztl::kNetServiceClassKey))
    findings.Add(FindingKind::NoFilterClass, services, std::nullopt,
                 "No component of the service ZTL has a filter class that is read",
                 "A pass ends at once: nothing is sorted, and no adapter record is changed");
}

}  // namespace ztlsim
