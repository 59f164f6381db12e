// What can be wrong with a machine: the kinds of findings, a row each, and a finding.
#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <string>

namespace ztlsim {

enum class FindingKind {
  MissingKey,
  LongKeyName,
  UnreadableValue,
  MalformedMultiString,
  NoFilterClass,
  OrderEntryUnknown,
  OrderEntryDoesNotFit,
  ClassWithoutDrivers,
  MissingRootDevice,
  MissingInstance,
  UnownedInstance,
  StackOutOfOrder,
  StackNotStored,
  BindLoop,
  ExcludedEntryUnmatched,
  RecordWithoutKey,
  MissingRecord,
  StaleRecord
};

struct FindingRow {
  FindingKind kind;
  const char* name;  // short and stable
  const char* what;  // is wrong
};
inline constexpr FindingRow kFindingKinds[] = {
    {FindingKind::MissingKey, "missing-key", "a key that a pass starts from, or the adapter keys, is not there"},
    {FindingKind::LongKeyName, "long-key-name",
     "the name of a subkey is longer than searches take in, and they end at it"},
    {FindingKind::UnreadableValue, "unreadable-value",
     "a value is of another type or larger than what the module reads, so it counts as missing"},
    {FindingKind::MalformedMultiString, "malformed-multi-string",
     "a list lacks NULs at its end, has an odd number of bytes, or goes on after an empty entry"},
    {FindingKind::NoFilterClass, "no-filter-class", "the filter's service has no filter class: no pass runs"},
    {FindingKind::OrderEntryUnknown, "order-entry-unknown",
     "an \"IMOrder\" entry names nothing, a driver without device id, or a class that is not listed"},
    {FindingKind::OrderEntryDoesNotFit, "order-entry-does-not-fit",
     "the ordered lists have no room for what an \"IMOrder\" entry stands for"},
    {FindingKind::ClassWithoutDrivers, "class-without-drivers",
     "an \"IMOrder\" entry is a filter class without installed drivers"},
    {FindingKind::MissingRootDevice, "missing-root-device", "a transport is bound to an instance that has no stack"},
    {FindingKind::MissingInstance, "missing-instance", "a stack names an instance that does not exist"},
    {FindingKind::UnownedInstance, "unowned-instance", "the driver of an instance in a stack cannot be found"},
    {FindingKind::StackOutOfOrder, "stack-out-of-order", "a pass will sort the stack"},
    {FindingKind::StackNotStored, "stack-not-stored",
     "the stack is out of order, but a pass finds no instance to store its new top in"},
    {FindingKind::BindLoop, "bind-loop", "a filter is bound directly above its own virtual adapter"},
    {FindingKind::ExcludedEntryUnmatched, "excluded-entry-unmatched", "an \"ExcludedMacs\" entry matches no adapter"},
    {FindingKind::RecordWithoutKey, "record-without-key", "an adapter whose record would be written has no key for it"},
    {FindingKind::MissingRecord, "missing-record", "an adapter's record is not there"},
    {FindingKind::StaleRecord, "stale-record", "an adapter's record is not what a pass will write"},
};

// Whether the rows are in the order of the kinds, and none is missing.
constexpr bool EveryKindHasItsRow() {
  for (std::size_t i = 0; i < std::size(kFindingKinds); ++i)
    if (kFindingKinds[i].kind != static_cast<FindingKind>(i)) return false;
  return std::size(kFindingKinds) == static_cast<std::size_t>(FindingKind::StaleRecord) + 1;
}
static_assert(EveryKindHasItsRow());

constexpr const char* FindingName(FindingKind kind) { return kFindingKinds[static_cast<std::size_t>(kind)].name; }

struct Finding {
  FindingKind kind;
  std::u16string key;                   // full path, in the letter case of the registry
  std::optional<std::u16string> value;  // the value's name; unset when the finding is of the key
  // UTF-8 sentences without their full stops; control characters of the registry's texts are kept.
  std::string text;         // what is wrong
  std::string consequence;  // what will happen because of it
};

}  // namespace ztlsim
