#include "ztlsim/inspect/stacks.h"

#include <algorithm>
#include <map>

#include "module/names.h"
#include "module/order/order_im.h"
#include "platform/registry_key.h"
#include "ztlsim/inspect/adapter_instances.h"
#include "ztlsim/inspection.h"

namespace ztlsim {

using namespace platform;

namespace {

std::vector<std::u16string> ToVector(MultiStringView list) {
  std::vector<std::u16string> entries;
  for (const std::u16string_view entry : list) entries.emplace_back(entry);
  return entries;
}

std::u16string Fold(std::u16string_view text) {
  std::u16string folded(text);
  for (char16_t& character : folded) character = FoldCase(character);
  return folded;
}

// What a report shows of an instance has limits of its own.
constexpr std::size_t kLongestInstanceName = 63;                   // characters; a longer one ends the search
constexpr std::size_t kDescriptionLimit = 255 * sizeof(char16_t);  // bytes; a larger one counts as missing

// The instances by the name that stacks call them by: their instance GUID, else the first entry of their own
// "RootDevice", which differs for some of the system's own. The first of several with the same name.
class InstancesByName {
 public:
  explicit InstancesByName(HKEY classKey) : instances_(ReadAdapterInstances(classKey)) {
    for (AdapterInstance& instance : instances_) {
      if (instance.subkey.size() > kLongestInstanceName) break;
      if (instance.descriptionBytes > kDescriptionLimit) instance.description.clear();
      if (const auto& stack = instance.rootDevice)
        byRootDevice_.try_emplace(stack->empty() ? std::u16string() : Fold(stack->front()), &instance);
      if (instance.guid) byGuid_.try_emplace(Fold(*instance.guid), &instance);
    }
  }
  InstancesByName(const InstancesByName&) = delete;
  InstancesByName& operator=(const InstancesByName&) = delete;

  // Null when there is none of the folded name.
  const AdapterInstance* Find(const std::u16string& folded) const {
    if (const auto found = byGuid_.find(folded); found != byGuid_.end()) return found->second;
    const auto found = byRootDevice_.find(folded);
    return found == byRootDevice_.end() ? nullptr : found->second;
  }

 private:
  std::vector<AdapterInstance> instances_;
  std::map<std::u16string, const AdapterInstance*> byGuid_;
  std::map<std::u16string, const AdapterInstance*> byRootDevice_;
};

// The services that own the entries, by folded name, as they were found so far.
using Owners = std::map<std::u16string, std::u16string>;

AdapterStack ReadStack(HKEY classKey, const char16_t* top, const InstancesByName& instances, Owners& owners) {
  AdapterStack stack{.top = top, .entries = {}};
  UniqueKey linkage;
  ValueBuffer<ztl::kRootDeviceCapacity> rootDevice;
  if (linkage.Open(classKey, (stack.top + u"\\Linkage").c_str(), KEY_READ) != ERROR_SUCCESS ||
      rootDevice.Read(linkage.Get(), ztl::kRootDeviceValue, REG_MULTI_SZ, ztl::kRootDeviceLimit) != ERROR_SUCCESS)
    return stack;
  for (const std::u16string_view guid : rootDevice.List()) {
    StackEntry& entry = stack.entries.emplace_back();
    entry.guid = guid;
    const std::u16string folded = Fold(guid);
    if (const auto [owner, isNew] = owners.try_emplace(folded); isNew) {
      char16_t service[64];
      if (ztl::FindSvcFromGuid(classKey, guid, service, 64) == ERROR_SUCCESS) owner->second = service;
    }
    entry.service = owners[folded];
    if (const AdapterInstance* const instance = instances.Find(folded)) {
      entry.instance = instance->subkey;
      entry.description = instance->description;
      entry.upperBind = instance->upperBind;
    }
  }
  return stack;
}

void ReadOrder(MachineState& state) {
  UniqueKey parameters;
  ValueBuffer<260> order;
  state.orderIsSet = parameters.Open(HKEY_LOCAL_MACHINE, ztl::kParametersKey, KEY_READ) == ERROR_SUCCESS &&
                     order.Read(parameters.Get(), ztl::kImOrderValue, REG_MULTI_SZ, ztl::kOrderLimit) == ERROR_SUCCESS;
  state.configuredOrder = state.orderIsSet ? ToVector(order.List()) : std::vector<std::u16string>{u"Others"};
  char16_t ownClass[32];
  DWORD capacity = std::size(ownClass);
  if (ztl::GetFilterClass(ztl::kFilterService, ownClass, &capacity) != ERROR_SUCCESS) return;
  state.ownClass = ownClass;
  char16_t imList[ztl::kImListCapacity];
  char16_t devIdList[ztl::kDevIdListCapacity];
  ztl::BuildImOrder(ownClass, imList, devIdList);
  state.imList = ToVector(imList);
  state.devIdList = ToVector(devIdList);
}

std::vector<std::u16string> MissingKeys() {
  std::vector<std::u16string> missing;
  for (const char16_t* path : {ztl::kNetAdapterClassKey, ztl::kNetServiceClassKey, ztl::kNetTransClassKey,
                               ztl::kControlNetworkKey, ztl::kParametersKey}) {
    UniqueKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, path, KEY_READ) != ERROR_SUCCESS)
      missing.push_back(u"HKEY_LOCAL_MACHINE\\" + std::u16string(path));
  }
  return missing;
}

// The stack of `after` over the same physical adapter as `stack`; null when there is none.
const AdapterStack* FindStack(const std::vector<AdapterStack>& after, const AdapterStack& stack) {
  // Sorting exchanges the entries above the physical adapter, so the same stack is the one with the same entries.
  auto sameEntries = [](const AdapterStack& a, const AdapterStack& b) {
    return std::is_permutation(a.entries.begin(), a.entries.end(), b.entries.begin(), b.entries.end(),
                               [](const auto& x, const auto& y) { return EqualNoCase(x.guid, y.guid); });
  };
  const AdapterStack* sameTop = nullptr;
  const AdapterStack* sameAdapter = nullptr;  // entries have left or joined it
  for (const AdapterStack& candidate : after) {
    const bool same = !stack.entries.empty() && EqualNoCase(candidate.Adapter(), stack.Adapter());
    if (same && sameEntries(candidate, stack)) return &candidate;
    if (same && sameAdapter == nullptr) sameAdapter = &candidate;
    if (candidate.top == stack.top) sameTop = &candidate;
  }
  return sameTop != nullptr ? sameTop : sameAdapter;
}

// Sets what has moved and changed between two stacks that have entries.
void CompareEntries(StackPair& pair) {
  const std::vector<StackEntry>& before = pair.before->entries;
  const std::vector<StackEntry>& after = pair.after->entries;
  for (std::size_t level = 0; level < after.size(); ++level) {
    const std::size_t height = after.size() - level;
    pair.moved.push_back(height > before.size() || before[before.size() - height].guid != after[level].guid);
  }
  pair.changed =
      before.size() != after.size() || before.front().upperBind != after.front().upperBind || pair.HasMoved();
}

}  // namespace

MachineState ReadMachineState(simulation::Machine& machine, const MachineState* before) {
  Inspection inspection(machine);
  MachineState state;
  state.missingKeys = MissingKeys();
  ReadOrder(state);
  UniqueKey classKey;
  char16_t transports[ztl::kTransportListCapacity];
  if (ztl::GetProto(transports) == ERROR_SUCCESS &&
      classKey.Open(HKEY_LOCAL_MACHINE, ztl::kNetAdapterClassKey, KEY_ALL_ACCESS) == ERROR_SUCCESS) {
    const InstancesByName instances(classKey.Get());
    Owners owners;
    if (before != nullptr)
      for (const AdapterStack& stack : before->stacks)
        for (const StackEntry& entry : stack.entries) owners.emplace(Fold(entry.guid), entry.service);
    for (SubkeyEnumeration<32> instance(classKey.Get()); instance.Next(); inspection.DropDebugOutput())
      if (ztl::IsTopBinding(classKey.Get(), instance.Name(), transports))
        state.stacks.push_back(ReadStack(classKey.Get(), instance.Name(), instances, owners));
  }
  return state;
}

bool StackPair::HasMoved() const { return std::find(moved.begin(), moved.end(), true) != moved.end(); }

std::vector<StackPair> PairStacks(const std::vector<AdapterStack>& before, const std::vector<AdapterStack>& after) {
  std::vector<StackPair> pairs;
  for (const AdapterStack& stack : before) {
    StackPair& pair = pairs.emplace_back();
    pair.before = stack;
    if (const AdapterStack* const found = FindStack(after, stack)) pair.after = *found;
    if (pair.after && !stack.entries.empty() && !pair.after->entries.empty()) CompareEntries(pair);
  }
  for (const AdapterStack& stack : after)
    if (FindStack(before, stack) == nullptr) pairs.emplace_back().after = stack;
  return pairs;
}

}  // namespace ztlsim
