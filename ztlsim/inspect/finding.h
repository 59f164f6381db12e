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

// An error stays after the next pass, or affects traffic; a warning is what the next pass mends.
enum class Severity { Error, Warning, Note };

constexpr const char* SeverityName(Severity severity) {
  return severity == Severity::Error ? "error" : severity == Severity::Warning ? "warning" : "note";
}

struct FindingRow {
  FindingKind kind;
  const char* name;  // short and stable
  Severity severity;
  const char* what;  // is wrong
  const char* consequence;
};
inline constexpr FindingRow kFindingKinds[] = {
    {FindingKind::MissingKey, "missing-key", Severity::Error,
     "a key that a pass starts from, or the adapter keys, is not there",
     "the passes that need it end without a change; no adapter record is written without its keys"},
    {FindingKind::LongKeyName, "long-key-name", Severity::Error, "the name of a subkey is longer than searches take in",
     "searches end at it: what follows it is not found"},
    {FindingKind::UnreadableValue, "unreadable-value", Severity::Error,
     "a value is of another type or larger than what the module reads", "it counts as missing"},
    {FindingKind::MalformedMultiString, "malformed-multi-string", Severity::Error,
     "a list lacks NULs at its end, has an odd number of bytes, or goes on after an empty entry",
     "entries after an empty one are not seen; the rest is read as it is"},
    {FindingKind::NoFilterClass, "no-filter-class", Severity::Error, "the filter's service has no filter class",
     "no order pass runs"},
    {FindingKind::OrderEntryUnknown, "order-entry-unknown", Severity::Error,
     "an \"IMOrder\" entry names nothing, a driver without device id, or a class that is not listed",
     "a pass skips it"},
    {FindingKind::OrderEntryDoesNotFit, "order-entry-does-not-fit", Severity::Error,
     "the ordered lists have no room for what an \"IMOrder\" entry stands for",
     "its drivers are not moved, and none moves past them"},
    {FindingKind::ClassWithoutDrivers, "class-without-drivers", Severity::Note,
     "an \"IMOrder\" entry is a filter class without installed drivers",
     "it has no effect until such a driver is installed"},
    {FindingKind::MissingRootDevice, "missing-root-device", Severity::Error,
     "a transport is bound to an instance that has no stack",
     "a pass leaves the instance out, and its adapter has no record"},
    {FindingKind::MissingInstance, "missing-instance", Severity::Error, "a stack names an instance that does not exist",
     "a pass moves no driver past it; at the bottom of a stack, what is bound there cannot be stored"},
    {FindingKind::UnownedInstance, "unowned-instance", Severity::Error,
     "the driver of an instance in a stack cannot be found",
     "a pass moves no driver past it, or the adapter has no record"},
    {FindingKind::StackOutOfOrder, "stack-out-of-order", Severity::Warning, "the stack is not in the configured order",
     "a pass will sort it"},
    {FindingKind::StackNotStored, "stack-not-stored", Severity::Error,
     "the stack is not in the configured order, but a pass finds no instance to store its new top in",
     "the adapter's record will disagree with the stack"},
    {FindingKind::BindLoop, "bind-loop", Severity::Error, "a filter is bound directly above its own virtual adapter",
     "the next transaction repairs it where it finds the binding path"},
    {FindingKind::ExcludedEntryUnmatched, "excluded-entry-unmatched", Severity::Note,
     "an \"ExcludedMacs\" entry matches no adapter", "it excludes nothing"},
    {FindingKind::RecordWithoutKey, "record-without-key", Severity::Error,
     "an adapter whose record would be written has no key for it", "a pass cannot write the record"},
    {FindingKind::MissingRecord, "missing-record", Severity::Warning, "an adapter's record is not there",
     "a pass writes it"},
    {FindingKind::StaleRecord, "stale-record", Severity::Warning, "an adapter's record is not what a pass will write",
     "a pass changes or deletes it"},
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
