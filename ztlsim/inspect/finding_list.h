// Collecting findings, and what all that find something share: the keys' full paths and the wording of names.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "simulation/machine.h"
#include "ztlsim/inspect/finding.h"
#include "ztlsim/inspect/stacks.h"

namespace ztlsim {

inline const std::u16string kLocalMachine = u"HKEY_LOCAL_MACHINE\\";

// The findings of one check, in the order in which they are added. A second one of the same kind, key and text is
// dropped.
class Findings {
 public:
  // The arguments are the members of the finding.
  void Add(FindingKind kind, const std::u16string& key, const std::optional<std::u16string>& value,
           const std::string& text, const std::string& consequence);

  // Whether an unreadable value of the key, a full path, or of a key below it has been added: it is the cause of what
  // is missing there.
  bool HasUnreadableValue(const std::u16string& key) const;

  std::size_t Count() const { return list_.size(); }
  // Puts those from number `first` (0 is the first) on in the order of their keys.
  void SortByKey(std::size_t first);

  std::vector<Finding> Take() { return std::move(list_); }

 private:
  std::vector<Finding> list_;
  std::set<std::tuple<FindingKind, std::u16string, std::string>> seen_;
};

// The full path of a key as the registry writes it, with links followed; of a key that is not there, as it is given.
// `path` is below HKEY_LOCAL_MACHINE. The machine is current.
std::u16string FullPath(const simulation::Machine& machine, const std::u16string& path);
// The full path of the linkage key of an adapter instance, by its subkey. The machine is current.
std::u16string LinkagePath(const simulation::Machine& machine, const std::u16string& instance);

// As the module compares names.
bool ContainsName(const std::vector<std::u16string>& list, std::u16string_view name);

std::string Quoted(std::u16string_view text);                     // UTF-8, in quotation marks
std::string Chain(const std::vector<std::u16string>& names);      // UTF-8: "A > B > C"; "nothing" for no names
std::vector<std::u16string> RecordOf(const AdapterStack& stack);  // what a record calls the entries of the stack

}  // namespace ztlsim
