#include "ztlsim/inspect/finding_list.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

#include "module/names.h"
#include "platform/registry_key.h"
#include "platform/text.h"
#include "simulation/upper_case.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {

using namespace platform;

void Findings::Add(FindingKind kind, const std::u16string& key, const std::optional<std::u16string>& value,
                   const std::string& text, const std::string& consequence) {
  if (seen_.emplace(kind, key, text).second) list_.push_back({kind, key, value, text, consequence});
}

bool Findings::HasUnreadableValue(const std::u16string& key) const {
  return std::any_of(list_.begin(), list_.end(), [&](const Finding& finding) {
    return finding.kind == FindingKind::UnreadableValue && (finding.key + u'\\').starts_with(key + u'\\');
  });
}

void Findings::SortByKey(std::size_t first) {
  std::stable_sort(
      list_.begin() + static_cast<std::ptrdiff_t>(first), list_.end(),
      [](const Finding& a, const Finding& b) { return simulation::UpperCase(a.key) < simulation::UpperCase(b.key); });
}

std::u16string FullPath(const simulation::Machine& machine, const std::u16string& path) {
  assert(&simulation::Current() == &machine);
  UniqueKey key;
  if (key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ) != ERROR_SUCCESS) return kLocalMachine + path;
  return machine.registry.PathOf(key.Get());
}

std::u16string LinkagePath(const simulation::Machine& machine, const std::u16string& instance) {
  return FullPath(machine, ztl::kNetAdapterClassKey + (u'\\' + instance) + u"\\Linkage");
}

bool ContainsName(const std::vector<std::u16string>& list, std::u16string_view name) {
  return std::any_of(list.begin(), list.end(), [name](const auto& entry) { return EqualNoCase(entry, name); });
}

std::string Quoted(std::u16string_view text) { return "\"" + Utf16ToUtf8(text) + "\""; }

std::string Chain(const std::vector<std::u16string>& names) {
  std::string chain;
  for (const std::u16string& name : names) chain += (chain.empty() ? "" : " > ") + Utf16ToUtf8(name);
  return chain.empty() ? "nothing" : chain;
}

std::vector<std::u16string> RecordOf(const AdapterStack& stack) {
  std::vector<std::u16string> names;
  for (const StackEntry& entry : stack.entries) names.push_back(entry.service.empty() ? entry.guid : entry.service);
  return names;
}

}  // namespace ztlsim
