#include "ztlsim/inspect/check.h"

#include <algorithm>
#include <map>
#include <set>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

#include "module/names.h"
#include "module/order/order_im.h"
#include "module/repair/check_bind_loop.h"
#include "module/repair/excluded_macs.h"
#include "platform/registry_key.h"
#include "ztlsim/inspect/bindings.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/inspect/stacks.h"
#include "ztlsim/inspect/value_text.h"
#include "ztlsim/inspection.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {

using namespace platform;

namespace {

const std::u16string kMachine = u"HKEY_LOCAL_MACHINE\\";

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
    {Place::Instance, u"NetCfgInstanceId", REG_SZ, kStringLimit, "A stack that names this instance does not find it"},
    {Place::Instance, u"MatchingDeviceId", REG_SZ, kStringLimit,
     "Its driver is not moved, and its stack has no record"},
    {Place::Instance, u"FilterInfId", REG_SZ, ztl::kLongStringLimit, "A binding loop here is not seen"},
    {Place::InstanceLinkage, u"RootDevice", REG_MULTI_SZ, ztl::kRootDeviceLimit,
     "A pass cannot sort the stack, nor rewrite this instance"},
    {Place::InstanceLinkage, u"UpperBind", REG_MULTI_SZ, ztl::kUpperBindLimit,
     "Nothing counts as bound above: if it is the top of a stack, that is left out"},
    {Place::InstanceNdi, u"Service", REG_SZ, kStringLimit, "A physical adapter has no record without it"},
    {Place::Network, u"FilterClasses", REG_MULTI_SZ, ztl::kClassListCapacity * 2,
     "No filter class is known: the classes in IMOrder are passed over"},
    {Place::ServiceNdi, u"Service", REG_SZ, kStringLimit, "The driver is not found"},
    {Place::ServiceNdi, u"FilterClass", REG_SZ, kStringLimit, "The driver belongs to no filter class"},
    {Place::ServiceNdi, u"FilterDeviceInfId", REG_SZ, kStringLimit, "The driver is not moved, and none moves past it"},
    {Place::TransportNdi, u"Service", REG_SZ, kStringLimit, "A stack that only this transport is bound to is left out"},
    {Place::Parameters, u"ExcludedMacs", REG_MULTI_SZ, ztl::kExcludedMacsLimit, "No adapter is excluded"},
    {Place::Parameters, ztl::kImOrderValue, REG_MULTI_SZ, ztl::kOrderLimit, "The order is taken as \"Others\" alone"}};

std::u16string LastName(const std::u16string& path) { return path.substr(path.rfind(u'\\') + 1); }

bool Contains(const std::vector<std::u16string>& list, std::u16string_view text) {
  return std::any_of(list.begin(), list.end(), [text](const auto& entry) { return EqualNoCase(entry, text); });
}

std::string Quote(std::u16string_view text) { return "\"" + Utf16ToUtf8(text) + "\""; }

using Names = std::vector<std::u16string>;

std::string Chain(const Names& names) {
  std::string chain;
  for (const std::u16string& name : names) chain += (chain.empty() ? "" : " > ") + Utf16ToUtf8(name);
  return chain.empty() ? "nothing" : chain;
}

// What a record calls the entries of a stack.
Names NamesOf(const AdapterStack& stack) {
  Names names;
  for (const StackEntry& entry : stack.entries) names.push_back(entry.service.empty() ? entry.guid : entry.service);
  return names;
}

bool IsRead(HKEY key, const ValueRule& rule) {
  if (rule.type == REG_SZ && rule.limit == kStringLimit) return StringValue().Read(key, rule.name) == ERROR_SUCCESS;
  return ValueBuffer<1024>().Read(key, rule.name, rule.type, rule.limit) == ERROR_SUCCESS;
}

bool HasDeviceId(std::u16string_view name) {
  std::u16string service(name);
  char16_t deviceId[ztl::kDevIdListCapacity];
  return ztl::GetFilterDeviceInfId(service.data(), deviceId, ztl::kDevIdListCapacity) != 0;
}

// Runs on a machine of its own, made from the registry in question.
class Checker {
 public:
  explicit Checker(const simulation::Registry& registry) : original_(registry) {
    machine_.registry.CopyFrom(registry);
    inspection_.emplace(machine_);
  }

  std::vector<Finding> Run() {
    before_ = ReadMachineState(machine_);
    bindings_ = ReadBindings(machine_);
    Keys();
    Values();
    if (before_.orderIsSet && !before_.ownClass.empty()) Order();
    Pass();
    Stacks();
    Bindings();
    Records();
    return std::move(findings_);
  }

 private:
  void Add(FindingKind kind, const std::u16string& key, const std::optional<std::u16string>& value,
           const std::string& text, const std::string& consequence) {
    if (seen_.emplace(kind, key, text).second) findings_.push_back({kind, key, value, text, consequence});
  }
  // Whether a value that is not read, in the key or below it, has been reported as the cause already.
  bool Unreadable(const std::u16string& key) const {
    return std::any_of(findings_.begin(), findings_.end(), [&](const Finding& finding) {
      return finding.kind == FindingKind::UnreadableValue && (finding.key + u'\\').starts_with(key + u'\\');
    });
  }

  // As the registry writes it, with links followed.
  std::u16string FullPath(const std::u16string& path) const {
    UniqueKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ) != ERROR_SUCCESS) return kMachine + path;
    return machine_.registry.PathOf(key.Get());
  }
  std::u16string LinkagePath(const std::u16string& instance) const {
    return FullPath(ztl::kNetAdapterClassKey + (u'\\' + instance) + u"\\Linkage");
  }

  void Keys() {
    static constexpr std::pair<const char16_t*, const char*> kNeeded[] = {
        {ztl::kNetAdapterClassKey, "A pass finds no stack and deletes the adapter records"},
        {ztl::kControlNetworkKey, "No driver and no filter class is known: a pass ends at once"},
        {ztl::kNetServiceClassKey, "No driver is known: a pass ends at once"},
        {ztl::kNetTransClassKey, "No transport is known: a pass deletes the adapter records and ends"},
        {ztl::kParametersKey, "The order is taken as \"Others\" alone, and no adapter record is written"}};
    std::u16string missing = u" ";  // what is below a missing key is not reported
    for (const auto& [path, consequence] : kNeeded)
      if (Contains(before_.missingKeys, kMachine + path) && !std::u16string_view(path).starts_with(missing))
        Add(FindingKind::MissingKey, kMachine + (missing = path), std::nullopt, "The key is missing", consequence);
    KeyNames<ztl::kSetOrderPathCapacity>(ztl::kNetAdapterClassKey, ztl::kLinkageSuffix);
    KeyNames<ztl::kComponentNameCapacity>(ztl::kNetServiceClassKey, ztl::kNdiSuffix);
    KeyNames<ztl::kComponentNameCapacity>(ztl::kNetTransClassKey, ztl::kNdiSuffix);
    KeyNames<ztl::kAdapterNameCapacity>(ztl::kAdaptersKey, {});
  }

  // A name that a search cannot take in ends it. That does no harm when what is looked for does not stand there.
  template <std::size_t Capacity>
  void KeyNames(const char16_t* path, std::u16string_view suffix) {
    UniqueKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, path, KEY_READ) != ERROR_SUCCESS) return;
    SubkeyEnumeration<Capacity> names(key.Get(), suffix);
    std::size_t count = 0;
    while (names.Next()) ++count;
    const auto hidden = std::span(machine_.registry.Find(kMachine + path)->subkeys).subspan(count);
    if (names.Code() == ERROR_MORE_DATA && std::any_of(hidden.begin(), hidden.end(), [suffix](const auto& subkey) {
          return suffix.empty() || subkey->FindSubkey(suffix.substr(1)) != nullptr;
        }))
      Add(FindingKind::LongKeyName, FullPath(path + (u'\\' + hidden.front()->name)), std::nullopt,
          "The name of this key is longer than the " + std::to_string(Capacity - 1 - suffix.size()) +
              " characters that searches take in",
          "Searches end here: neither this key nor those behind it are found");
  }

  void Values() {
    for (const std::u16string& path : Subkeys(ztl::kNetAdapterClassKey)) {
      ValuesOf(Place::Instance, path);
      ValuesOf(Place::InstanceLinkage, path + u"\\Linkage");
      ValuesOf(Place::InstanceNdi, path + u"\\Ndi");
    }
    ValuesOf(Place::Network, ztl::kControlNetworkKey);
    for (const std::u16string& path : Subkeys(ztl::kNetServiceClassKey)) ValuesOf(Place::ServiceNdi, path + u"\\Ndi");
    for (const std::u16string& path : Subkeys(ztl::kNetTransClassKey)) ValuesOf(Place::TransportNdi, path + u"\\Ndi");
    ValuesOf(Place::Parameters, ztl::kParametersKey);
    const std::u16string services = FullPath(ztl::kNetServiceClassKey);
    if (before_.ownClass.empty() && !Unreadable(services) &&
        !Contains(before_.missingKeys, kMachine + ztl::kNetServiceClassKey))
      Add(FindingKind::NoFilterClass, services, std::nullopt,
          "No component of the service ZTL has a filter class that is read",
          "A pass ends at once: nothing is sorted, and no adapter record is changed");
  }

  std::vector<std::u16string> Subkeys(const std::u16string& path) {
    std::vector<std::u16string> paths;
    if (const auto* const key = machine_.registry.Find(kMachine + path))
      for (const auto& subkey : key->subkeys) paths.push_back(path + u'\\' + subkey->name);
    return paths;
  }

  void ValuesOf(Place place, const std::u16string& path) {
    UniqueKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ) != ERROR_SUCCESS) return;
    const std::u16string fullPath = machine_.registry.PathOf(key.Get());
    const simulation::RegistryKey& stored = *machine_.registry.Find(fullPath);
    for (const ValueRule& rule : kValues) {
      const auto* const value = rule.place == place ? stored.FindValue(rule.name) : nullptr;
      if (value == nullptr) continue;
      if (IsRead(key.Get(), rule)) {
        if (rule.type == REG_MULTI_SZ) Form(fullPath, *value);
        continue;
      }
      const std::string size = std::to_string(value->data.size()) + " bytes";
      Add(FindingKind::UnreadableValue, fullPath, rule.name,
          value->type != rule.type ? "It is of type " + TypeName(value->type) + ", and read as " + TypeName(rule.type)
          : value->data.size() > rule.limit
              ? "It has " + size + ", and at most " + std::to_string(rule.limit) + " are read"
              : "The text is not ended within its " + size,
          rule.ifMissing);
    }
  }

  // A multi-string that is read: its entries, each with its NUL, one NUL more, and nothing else but NULs.
  void Form(const std::u16string& key, const simulation::RegistryValue& value) {
    const std::size_t characters = value.data.size() / 2;
    std::size_t needed = 1;
    for (const std::u16string& entry : ListOf(value)) needed += entry.size() + 1;
    auto add = [&](const std::string& text, const char* consequence) {
      Add(FindingKind::MalformedMultiString, key, value.name, text, consequence);
    };
    const std::span data(value.data.data(), characters * 2);
    const auto behind = data.subspan(std::min(needed, characters) * 2);
    if (std::any_of(behind.begin(), behind.end(), [](BYTE byte) { return byte != 0; }))
      add("Entries stand behind an empty one", "A pass does not see them");
    else if (value.data.size() % 2 != 0)
      add("It has an odd number of bytes", "A pass reads it without the last one");
    else if (needed > characters && characters > 0)
      add("It lacks " + std::to_string(needed - characters) + " of the NULs at its end",
          "A pass reads it as if it were complete");
  }

  void Order() {
    bool ended = false;
    for (const std::u16string& entry : before_.configuredOrder) {
      if (ended) return;
      // It stands for the filter's own class at least, as long as that class is known.
      if (EqualNoCase(entry, ztl::kOthers))
        ended = ztl::IsFilterClass(before_.ownClass) && !ClassDrivers(entry, before_.ownClass);
      else if (ztl::IsFilterClass(entry))
        ended = !ClassDrivers(entry, entry);
      else if (HasDeviceId(entry))
        Fit(entry, {entry});
      else
        Unknown(entry);
    }
  }
  void AddOrder(FindingKind kind, const std::u16string& entry, const std::string& text,
                const std::string& consequence) {
    Add(kind, FullPath(ztl::kParametersKey), ztl::kImOrderValue, "The entry " + Quote(entry) + " " + text, consequence);
  }

  // False when the module's lists end at the entry.
  bool ClassDrivers(const std::u16string& entry, const std::u16string& className) {
    char16_t services[ztl::kClassServicesCapacity] = {};
    if (ztl::ReturnFilterClassIMs(className, services, ztl::kClassServicesCapacity) != ERROR_SUCCESS) {
      AddOrder(FindingKind::OrderEntryDoesNotFit, entry,
               "stands for the class " + Quote(className) + ", whose drivers' names fill more than " +
                   std::to_string(ztl::kClassServicesCapacity - 1) + " characters",
               "The order ends before this entry: the drivers of this one and those behind it are not moved");
      return false;
    }
    const MultiStringView drivers(services);
    if (drivers.Empty() && entry == className)
      AddOrder(FindingKind::ClassWithoutDrivers, entry, "is a filter class that no installed driver belongs to",
               "It has no effect until such a driver is installed");
    Names own;
    for (const std::u16string_view driver : drivers)
      if (!Contains(before_.configuredOrder, driver) && HasDeviceId(driver)) own.emplace_back(driver);
    Fit(entry, own);
    return true;
  }

  void Fit(const std::u16string& entry, Names drivers) {
    std::erase_if(drivers, [this](const std::u16string& driver) { return Contains(before_.imList, driver); });
    if (!drivers.empty())
      AddOrder(FindingKind::OrderEntryDoesNotFit, entry,
               "stands for drivers that the order has no room for: " + Chain(drivers),
               "They are not moved, and none moves past them: shorten the order to " +
                   std::to_string(ztl::kImListCapacity - 1) + " characters of services and " +
                   std::to_string(ztl::kDevIdListCapacity - 1) + " of device ids");
  }

  void Unknown(const std::u16string& entry) {
    char16_t services[ztl::kClassServicesCapacity] = {};
    char16_t ownClass[ztl::kClassListCapacity];
    DWORD capacity = ztl::kClassListCapacity;
    if (ztl::ReturnFilterClassIMs(entry, services, ztl::kClassServicesCapacity) != ERROR_SUCCESS || *services != 0)
      AddOrder(FindingKind::OrderEntryUnknown, entry, "is a class of drivers that FilterClasses does not list",
               "A pass passes over it: add the class to FilterClasses");
    else if (ztl::GetFilterClass(entry.c_str(), ownClass, &capacity) == ERROR_NOT_FOUND)
      AddOrder(FindingKind::OrderEntryUnknown, entry, "names no filter class and no installed driver",
               "A pass passes over it: correct or remove it");
    else if (!Unreadable(FullPath(ztl::kNetServiceClassKey)))
      AddOrder(FindingKind::OrderEntryUnknown, entry, "names a driver without FilterDeviceInfId",
               "The driver is not moved, and none moves past it");
  }

  // Lets a pass run, with a key for every adapter, and takes down what it changes.
  void Pass() {
    const std::u16string adapters = kMachine + ztl::kAdaptersKey;
    noAdaptersKey_ = machine_.registry.Find(adapters) == nullptr;
    if (machine_.registry.Find(kMachine + ztl::kParametersKey) != nullptr)
      for (const AdapterStack& stack : before_.stacks)
        if (!stack.entries.empty() && stack.Adapter().size() < ztl::kAdapterNameCapacity)
          machine_.registry.Create(adapters + u'\\' + stack.Adapter());
    std::uint8_t changed = 0;
    const bool ran = ztl::OrderIM(&changed) == ERROR_SUCCESS;
    after_ = ReadMachineState(machine_, &before_);
    const std::u16string path = FullPath(ztl::kAdaptersKey) + u'\\';
    for (RegistryChange& change : CompareRegistries(original_, machine_.registry)) {
      if (change.keyCreated) created_.insert(change.key);
      if (change.key.starts_with(path) && change.name && EqualNoCase(*change.name, ztl::kRecordValue))
        records_.push_back(std::move(change));
    }
    if (const auto* const key = machine_.registry.Find(adapters); ran && key != nullptr)
      for (const auto& adapter : key->subkeys)
        if (const auto* const record = adapter->FindValue(ztl::kRecordValue))
          written_[simulation::UpperCase(adapter->name)] = ListOf(*record);
  }

  void Stacks() {
    UniqueKey classKey;
    if (classKey.Open(HKEY_LOCAL_MACHINE, ztl::kNetAdapterClassKey, KEY_ALL_ACCESS) != ERROR_SUCCESS) return;
    const auto first = std::ssize(findings_);
    for (const StackPair& pair : PairStacks(before_.stacks, after_.stacks)) {
      if (!pair.before) continue;
      const AdapterStack& stack = *pair.before;
      const std::u16string linkage = LinkagePath(stack.top);
      for (std::size_t level = 0; level < stack.entries.size(); ++level) Entry(classKey.Get(), stack, level);
      if (!stack.entries.empty())
        Compare(pair, linkage);
      else if (!Unreadable(linkage))
        Add(FindingKind::MissingRootDevice, linkage, u"RootDevice", "A transport is bound above, but there is no stack",
            "A pass leaves the instance out, and its adapter has no record");
    }
    std::stable_sort(findings_.begin() + first, findings_.end(), [](const Finding& a, const Finding& b) {
      return simulation::UpperCase(a.key) < simulation::UpperCase(b.key);
    });
  }

  // Compares the stack with what a pass makes of it, and with the record that it writes.
  void Compare(const StackPair& pair, const std::u16string& linkage) {
    const AdapterStack& stack = *pair.before;
    const Names names = NamesOf(stack);
    const Names sorted = pair.after ? NamesOf(*pair.after) : Names();
    const Names& record = written_[simulation::UpperCase(stack.Adapter())];
    const bool hasKey = !created_.contains(FullPath(ztl::kAdaptersKey) + u'\\' + stack.Adapter());
    if (sorted != names)
      Add(FindingKind::StackOutOfOrder, linkage, u"RootDevice", "The stack is out of order: " + Chain(names),
          "A pass changes it to " + Chain(sorted) +
              (hasKey && record == sorted ? ", and the adapter's record with it" : ""));
    else if (record != names && std::is_permutation(record.begin(), record.end(), names.begin(), names.end()))
      Add(FindingKind::StackNotStored, linkage, u"RootDevice", "The stack is out of order: " + Chain(names),
          "A pass cannot store " + Chain(record) +
              ", because no search finds an instance whose RootDevice begins with the new top; "
              "the adapter's record will disagree with the stack");
    else
      return;
    reported_.insert(simulation::UpperCase(stack.Adapter()));
  }

  void Entry(HKEY classKey, const AdapterStack& stack, std::size_t level) {
    const StackEntry& entry = stack.entries[level];
    const bool last = level + 1 == stack.entries.size();
    if (entry.instance.empty()) {
      Add(FindingKind::MissingInstance, LinkagePath(stack.top), u"RootDevice",
          "The stack " + Chain(NamesOf(stack)) + " names " + Quote(entry.guid) + ", and there is no such instance",
          !last ? "A pass leaves that entry where it stands and moves no driver past it"
                : "A pass that sorts the stack cannot store what is bound to that adapter");
      return;
    }
    const std::u16string instance = FullPath(ztl::kNetAdapterClassKey) + u'\\' + entry.instance;
    if (!entry.service.empty() || Unreadable(instance)) return;
    char16_t service[64];
    const LSTATUS rc = ztl::FindSvcFromGuid(classKey, entry.guid, service, std::size(service));
    if (rc != ERROR_NOT_FOUND) {
      reported_.insert(simulation::UpperCase(stack.Adapter()));
      Add(FindingKind::UnownedInstance, instance, std::nullopt,
          rc == ERROR_FILE_NOT_FOUND ? "It stands in a stack, but has no MatchingDeviceId"
                                     : "It stands in a stack, but its Ndi key has no Service",
          std::string(last ? "The" : "A pass moves no driver past it, and the") +
              " adapter of its stack has no record");
    } else if (!last) {
      Add(FindingKind::UnownedInstance, instance, std::nullopt,
          "It stands in a stack, but belongs to no installed driver",
          "A pass moves no driver past it, and cannot rewrite what stands below it");
    }
  }

  void Bindings() {
    for (const BindLoopInstance& loop : bindings_.loops)
      Add(FindingKind::BindLoop, LinkagePath(loop.instance), u"UpperBind",
          Quote(loop.service) + " is bound directly above its own virtual adapter " + Quote(loop.description),
          loop.repairable ? "The next transaction disables and enables again its binding path to the adapter underneath"
                          : "The next transaction finds it and cannot repair it: no interface link of the adapter "
                            "underneath leads to a binding path of the driver");
    for (const ExcludedEntry& excluded : bindings_.excluded)
      if (excluded.adapters.empty())
        Add(FindingKind::ExcludedEntryUnmatched, FullPath(ztl::kParametersKey), u"ExcludedMacs",
            "The entry " + Quote(excluded.entry) + " matches the DeviceInstanceID of no adapter",
            "It excludes nothing: correct or remove it");
  }

  void Records() {
    for (const RegistryChange& change : records_) {
      const std::string before = change.before ? Chain(ListOf(*change.before)) : "";
      const std::string after = change.after ? Chain(ListOf(*change.after)) : "";
      if (created_.contains(change.key)) {
        if (noAdaptersKey_)
          Add(FindingKind::MissingKey, FullPath(ztl::kAdaptersKey), std::nullopt, "The key is missing",
              "No adapter record is written");
        else
          Add(FindingKind::RecordWithoutKey, change.key, std::nullopt,
              "The adapter of the stack " + after + " has no key here",
              "A pass cannot write its record: create the key");
        continue;
      }
      if (reported_.contains(simulation::UpperCase(LastName(change.key)))) continue;
      if (!change.before)
        Add(FindingKind::MissingRecord, change.key, *change.name, "The adapter has no record of its stack",
            "A pass writes " + after);
      else if (!change.after)
        Add(FindingKind::StaleRecord, change.key, *change.name,
            "It says " + before + ", but no stack leads to a record here", "A pass deletes it");
      else
        Add(FindingKind::StaleRecord, change.key, *change.name,
            before == after ? "It is not stored as a pass stores it" : "It says " + before + ", which is not the stack",
            "A pass changes it to " + after);
    }
  }

  const simulation::Registry& original_;
  simulation::Machine machine_;
  std::optional<Inspection> inspection_;
  MachineState before_;
  MachineState after_;
  BindingState bindings_;
  std::map<std::u16string, Names> written_;  // the records after a pass, by the upper-cased adapter
  std::vector<RegistryChange> records_;      // the adapter records that a pass changes
  std::set<std::u16string> created_;         // keys that were made for the pass
  std::set<std::u16string> reported_;  // adapters, upper-cased, whose record changes for a cause that was reported
  bool noAdaptersKey_ = false;
  std::vector<Finding> findings_;
  std::set<std::tuple<FindingKind, std::u16string, std::string>> seen_;
};

}  // namespace

std::vector<Finding> CheckMachine(const simulation::Registry& registry) { return Checker(registry).Run(); }

}  // namespace ztlsim
