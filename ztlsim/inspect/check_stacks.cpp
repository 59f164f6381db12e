#include "ztlsim/inspect/check_stacks.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

#include "module/names.h"
#include "module/order/class_lookups.h"
#include "module/order/order_im.h"
#include "platform/registry_key.h"
#include "platform/text.h"
#include "simulation/upper_case.h"
#include "ztlsim/inspect/value_text.h"

namespace ztlsim {

using namespace platform;

using Names = std::vector<std::u16string>;

PassComparison::PassComparison(const simulation::Registry& original, simulation::Machine& machine,
                               const MachineState& before, Findings& findings)
    : original_(original), machine_(machine), before_(before), findings_(findings) {
  RunPass();
}

void PassComparison::RunPass() {
  const std::u16string adapters = kLocalMachine + ztl::kAdaptersKey;
  adaptersKeyIsMissing_ = machine_.registry.Find(adapters) == nullptr;
  if (machine_.registry.Find(kLocalMachine + ztl::kParametersKey) != nullptr)
    for (const AdapterStack& stack : before_.stacks)
      if (!stack.entries.empty() && stack.Adapter().size() < ztl::kAdapterNameCapacity)
        machine_.registry.Create(adapters + u'\\' + stack.Adapter());
  std::uint8_t changed = 0;
  const bool ran = ztl::OrderIM(&changed) == ERROR_SUCCESS;
  after_ = ReadMachineState(machine_, &before_);
  const std::u16string path = FullPath(machine_, ztl::kAdaptersKey) + u'\\';
  for (RegistryChange& change : CompareRegistries(original_, machine_.registry)) {
    if (change.keyCreated) createdKeys_.insert(change.key);
    if (change.key.starts_with(path) && change.name && EqualNoCase(*change.name, ztl::kRecordValue))
      recordChanges_.push_back(std::move(change));
  }
  if (const auto* const key = machine_.registry.Find(adapters); ran && key != nullptr)
    for (const auto& adapter : key->subkeys)
      if (const auto* const record = adapter->FindValue(ztl::kRecordValue))
        records_[simulation::UpperCase(adapter->name)] = ListOf(*record);
}

void PassComparison::CheckStacks() {
  UniqueKey classKey;
  if (classKey.Open(HKEY_LOCAL_MACHINE, ztl::kNetAdapterClassKey, KEY_ALL_ACCESS) != ERROR_SUCCESS) return;
  const std::size_t first = findings_.Count();
  for (const StackPair& pair : PairStacks(before_.stacks, after_.stacks)) {
    if (!pair.before) continue;
    const AdapterStack& stack = *pair.before;
    const std::u16string linkage = LinkagePath(machine_, stack.top);
    for (std::size_t level = 0; level < stack.entries.size(); ++level) CheckStackEntry(classKey.Get(), stack, level);
    if (!stack.entries.empty())
      CheckStackOrder(pair, linkage);
    else if (!findings_.HasUnreadableValue(linkage))
      findings_.Add(FindingKind::MissingRootDevice, linkage, ztl::kRootDeviceValue,
                    "A transport is bound above, but there is no stack",
                    "A pass leaves the instance out, and its adapter has no record");
  }
  findings_.SortByKey(first);
}

// Compares the stack with what the pass makes of it, and with the record that it writes.
void PassComparison::CheckStackOrder(const StackPair& pair, const std::u16string& linkage) {
  const AdapterStack& stack = *pair.before;
  const Names names = RecordOf(stack);
  const Names sorted = pair.after ? RecordOf(*pair.after) : Names();
  const Names& record = records_[simulation::UpperCase(stack.Adapter())];
  const bool hasKey = !createdKeys_.contains(FullPath(machine_, ztl::kAdaptersKey) + u'\\' + stack.Adapter());
  if (sorted != names)
    findings_.Add(FindingKind::StackOutOfOrder, linkage, ztl::kRootDeviceValue,
                  "The stack is out of order: " + Chain(names),
                  "A pass changes it to " + Chain(sorted) +
                      (hasKey && record == sorted ? ", and the adapter's record with it" : ""));
  else if (record != names && std::is_permutation(record.begin(), record.end(), names.begin(), names.end()))
    findings_.Add(FindingKind::StackNotStored, linkage, ztl::kRootDeviceValue,
                  "The stack is out of order: " + Chain(names),
                  "A pass cannot store " + Chain(record) +
                      ", because no search finds an instance whose RootDevice begins with the new top; "
                      "the adapter's record will disagree with the stack");
  else
    return;
  reportedAdapters_.insert(simulation::UpperCase(stack.Adapter()));
}

void PassComparison::CheckStackEntry(HKEY classKey, const AdapterStack& stack, std::size_t level) {
  const StackEntry& entry = stack.entries[level];
  const bool last = level + 1 == stack.entries.size();
  if (entry.instance.empty()) {
    findings_.Add(
        FindingKind::MissingInstance, LinkagePath(machine_, stack.top), ztl::kRootDeviceValue,
        "The stack " + Chain(RecordOf(stack)) + " names " + Quoted(entry.guid) + ", and there is no such instance",
        !last ? "A pass leaves that entry where it stands and moves no driver past it"
              : "A pass that sorts the stack cannot store what is bound to that adapter");
    return;
  }
  const std::u16string instance = FullPath(machine_, ztl::kNetAdapterClassKey) + u'\\' + entry.instance;
  if (!entry.service.empty() || findings_.HasUnreadableValue(instance)) return;
  char16_t service[64];
  const LSTATUS rc = ztl::FindSvcFromGuid(classKey, entry.guid, service, std::size(service));
  if (rc != ERROR_NOT_FOUND) {
    reportedAdapters_.insert(simulation::UpperCase(stack.Adapter()));
    findings_.Add(
        FindingKind::UnownedInstance, instance, std::nullopt,
        rc == ERROR_FILE_NOT_FOUND ? "It stands in a stack, but has no MatchingDeviceId"
                                   : "It stands in a stack, but its Ndi key has no Service",
        std::string(last ? "The" : "A pass moves no driver past it, and the") + " adapter of its stack has no record");
  } else if (!last) {
    findings_.Add(FindingKind::UnownedInstance, instance, std::nullopt,
                  "It stands in a stack, but belongs to no installed driver",
                  "A pass moves no driver past it, and cannot rewrite what stands below it");
  }
}

void PassComparison::CheckRecords() {
  for (const RegistryChange& change : recordChanges_) CheckRecord(change);
}

void PassComparison::CheckRecord(const RegistryChange& change) {
  const std::string before = change.before ? Chain(ListOf(*change.before)) : "";
  const std::string after = change.after ? Chain(ListOf(*change.after)) : "";
  if (createdKeys_.contains(change.key)) {
    if (adaptersKeyIsMissing_)
      findings_.Add(FindingKind::MissingKey, FullPath(machine_, ztl::kAdaptersKey), std::nullopt, "The key is missing",
                    "No adapter record is written");
    else
      findings_.Add(FindingKind::RecordWithoutKey, change.key, std::nullopt,
                    "The adapter of the stack " + after + " has no key here",
                    "A pass cannot write its record: create the key");
    return;
  }
  if (reportedAdapters_.contains(simulation::UpperCase(change.key.substr(change.key.rfind(u'\\') + 1)))) return;
  if (!change.before)
    findings_.Add(FindingKind::MissingRecord, change.key, *change.name, "The adapter has no record of its stack",
                  "A pass writes " + after);
  else if (!change.after)
    findings_.Add(FindingKind::StaleRecord, change.key, *change.name,
                  "It says " + before + ", but no stack leads to a record here", "A pass deletes it");
  else
    findings_.Add(
        FindingKind::StaleRecord, change.key, *change.name,
        before == after ? "It is not stored as a pass stores it" : "It says " + before + ", which is not the stack",
        "A pass changes it to " + after);
}

}  // namespace ztlsim
