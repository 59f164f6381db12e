#include <algorithm>
#include <string_view>

#include "module/install/control_device.h"
#include "module/log/format.h"
#include "platform/text.h"
#include "ztlsim/inspect/value_text.h"
#include "ztlsim/report/report.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {
namespace {

constexpr std::size_t kColumnWidth = 44;  // of the left one; wider entries push the right one away
constexpr std::string_view kMoved = " *";
constexpr std::string_view kYellow = "\x1b[33m";
constexpr std::string_view kPlain = "\x1b[0m";

std::string Join(const std::vector<std::u16string>& texts, std::string_view separator) {
  std::string joined;
  for (const std::u16string& text : texts) {
    if (!joined.empty()) joined += separator;
    joined += Printable(text);
  }
  return joined.empty() ? "(none)" : joined;
}

// The subkey, the description and the owner of an instance. A virtual adapter is described by the adapter that it was
// made for and by itself: below that adapter's heading, itself is enough.
std::string EntryName(const StackEntry& entry, const AdapterStack* below = nullptr) {
  std::u16string name = entry.description.empty() ? entry.guid : entry.description;
  if (below != nullptr) {
    const std::u16string prefix = below->entries.back().description + u" - ";
    if (prefix.size() > 3 && name.starts_with(prefix)) name.erase(0, prefix.size());
  }
  std::string text = entry.instance.empty() ? "" : Printable(entry.instance) + " ";
  text += Printable(name);
  if (!entry.service.empty()) text += " (" + Printable(entry.service) + ")";
  if (entry.instance.empty()) text += " [no such instance]";
  return text;
}

std::size_t Width(std::string_view text) {  // in characters: bytes that start one
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Pad(std::string text, std::size_t width) {
  const std::size_t used = Width(text);
  if (used < width) text.append(width - used, ' ');
  return text;
}

// What is bound above an instance, and the instances below as a small tree.
std::vector<std::string> Tree(const AdapterStack& stack) {
  std::vector<std::string> lines;
  lines.push_back(Join(stack.entries.front().upperBind, ", "));
  for (std::size_t level = 0; level < stack.entries.size(); ++level)
    lines.push_back(std::string(level * 2, ' ') + "└ " + EntryName(stack.entries[level], &stack));
  return lines;
}

// The stack's heading: its physical adapter.
std::string Heading(const AdapterStack& stack) {
  if (stack.entries.empty())
    return Printable(stack.top) + ": no stack (its RootDevice is missing, empty or of another type)\n";
  return EntryName(stack.entries.back()) + "\n";
}

std::string OneLine(const AdapterStack& stack) {
  return EntryName(stack.entries.back()) + ": " + Join(stack.entries.front().upperBind, ", ") + "\n";
}

std::string SideBySide(const StackPair& pair, bool colour) {
  const std::vector<std::string> left = Tree(*pair.before);
  const std::vector<std::string> right = Tree(*pair.after);
  std::size_t width = kColumnWidth;
  for (const std::string& line : left) width = std::max(width, Width(line) + 2);
  std::string text = "  " + Pad("before", width) + "after\n";
  for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    std::string line = "  " + Pad(i < left.size() ? left[i] : "", width);
    if (i < right.size()) {
      const bool moved = i > 0 && pair.moved[i - 1];
      if (moved && colour) line += kYellow;
      line += right[i];
      if (moved) line += kMoved;
      if (moved && colour) line += kPlain;
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string Order(const MachineState& state) {
  std::string text;
  for (const std::u16string& key : state.missingKeys) text += "Missing key: " + Printable(key) + "\n";
  text += "Configured order:     " + Join(state.configuredOrder, ", ");
  text += state.orderIsSet ? "\n" : " (IMOrder is not set)\n";
  text += "Filter's own class:   " + (state.ownClass.empty() ? "(none)" : Printable(state.ownClass)) + "\n";
  text += "Intermediate drivers: ";
  if (state.imList.empty()) text += "(none)";
  for (std::size_t i = 0; i < state.imList.size(); ++i) {
    if (i > 0) text += " > ";
    text += Printable(state.imList[i]);
    if (i < state.devIdList.size()) text += " (" + Printable(state.devIdList[i]) + ")";
  }
  return text + "\n\n";
}

std::string Hexadecimal(platform::HRESULT hr) {
  char text[16];
  ztl::Format(text, "0x%08X", hr);
  return text;
}

std::string Raw(const simulation::RegistryValue& value) { return TypeName(value.type) + " " + HexadecimalOf(value); }

std::string ValueText(const simulation::RegistryValue& value) {
  if (const auto number = NumberOf(value)) return std::to_string(*number);
  if (value.type == platform::REG_MULTI_SZ) return Join(ListOf(value), ", ");
  if (value.type == platform::REG_SZ) return Printable(TextOf(value));
  return HexadecimalOf(value);
}

// Each changed value as it was and as it is.
std::string Changes(const std::vector<RegistryChange>& changes) {
  std::string text = changes.empty() ? "" : "\nRegistry changes:\n";
  const std::u16string* key = nullptr;
  for (const RegistryChange& change : changes) {
    if (key == nullptr || *key != change.key) text += "  " + Printable(change.key) + "\n";
    key = &change.key;
    if (!change.name) {
      text += change.keyCreated ? "    + (key)\n" : "    - (key)\n";
      continue;
    }
    const std::string name = change.name->empty() ? "(default)" : Printable(*change.name);
    const bool sameText = change.before && change.after && ValueText(*change.before) == ValueText(*change.after);
    const auto shown = sameText ? Raw : ValueText;  // a change of the type, or of the terminators alone
    if (change.before) text += "    - " + name + ": " + shown(*change.before) + "\n";
    if (change.after) text += "    + " + name + ": " + shown(*change.after) + "\n";
  }
  return text;
}

std::string PathLine(const BindingPath& path) {
  return (path.enabled ? "  enabled   " : "  disabled  ") + Printable(path.token) + "  " + Printable(path.adapter) +
         "\n";
}

// Paths that the filter stands on come first.
std::string Paths(const BindingState& bindings) {
  std::string text = bindings.paths.empty() ? "" : "\nBinding paths of the filter:\n";
  for (const bool enabled : {true, false})
    for (const BindingPath& path : bindings.paths)
      if (path.enabled == enabled) text += PathLine(path);
  return text;
}

std::string ChangedPaths(const BindingState& before, const BindingState& after) {
  std::string text;
  for (const BindingPath& path : after.paths)
    for (const BindingPath& was : before.paths)
      if (was.token == path.token && was.enabled != path.enabled) text += PathLine(path);
  return text.empty() ? "" : "\nBinding paths changed:\n" + text;
}

std::string Excluded(const BindingState& bindings) {
  std::string text = bindings.excluded.empty() ? "" : "\nExcluded adapters (Windows before 6.0):\n";
  for (const ExcludedEntry& excluded : bindings.excluded) {
    text += "  " + Printable(excluded.entry) + ": ";
    text += excluded.adapters.empty() ? "matches nothing" : Join(excluded.adapters, ", ");
    text += "\n";
  }
  return text;
}

std::string Loops(const BindingState& bindings, std::string_view heading) {
  std::string text = bindings.loops.empty() ? "" : "\n" + std::string(heading) + "\n";
  for (const BindLoopInstance& loop : bindings.loops)
    text += "  " + Printable(loop.instance) + " " + Printable(loop.description) + ": its own driver, " +
            Printable(loop.service) + ", is bound directly above it" +
            (loop.repairable ? "\n" : ", and no link leads to the adapter underneath\n");
  return text;
}

const char* RequestName(std::uint32_t code) {
  return code == ztl::IOCTL_ZTL_RUNNING_VERSION       ? "its version"
         : code == ztl::IOCTL_ZTL_DESTROY_SYMLINK_KEY ? "destroy the link"
                                                      : "save the parameters into";
}

std::string Quoted(const std::u16string& text) { return "\"" + Printable(text) + "\""; }

// The edit controls of a page: what they showed, and what they held in the end.
std::string Pages(const std::vector<ShownPage>& pages) {
  std::string text;
  for (const ShownPage& page : pages) {
    text += "\nProperty page " + Quoted(page.title) + (&page == &pages.front() ? ":\n" : ", opened again:\n");
    for (std::size_t i = 0; i < page.opened.size(); ++i) {
      if (page.opened[i].windowClass != u"Edit") continue;
      const std::u16string label = i > 0 ? page.opened[i - 1].text : u"";
      text += "  " + Printable(label) + ": " + Quoted(page.opened[i].text);
      if (page.closed[i].text != page.opened[i].text) text += " -> " + Quoted(page.closed[i].text);
      text += "\n";
    }
  }
  return text;
}

std::string InfFiles(const InfSearch& search) {
  if (search.candidates.empty()) return "\nINF files of the filter: (none)\n";
  std::string text = "\nINF files of the filter, for " +
                     (search.driver ? "the driver " + search.driver->Text() : "no installed driver") + ":\n";
  for (const InfCandidate& candidate : search.candidates) {
    text += "  " + Printable(candidate.path) + ", version " + candidate.version.Text();
    if (candidate.rank != 0) text += ", rank " + std::to_string(candidate.rank);
    text += candidate.path == search.chosen ? ", chosen\n" : "\n";
  }
  return text + "  Media root: " + (search.mediaRoot ? Printable(*search.mediaRoot) : "(none)") + "\n";
}

}  // namespace

std::string FormatState(const MachineState& state, const BindingState& bindings) {
  std::string text = Order(state);
  for (const AdapterStack& stack : state.stacks) {
    if (stack.entries.size() == 1) {
      text += OneLine(stack);
      continue;
    }
    text += Heading(stack);
    if (!stack.entries.empty())
      for (const std::string& line : Tree(stack)) text += "  " + line + "\n";
  }
  if (state.stacks.empty()) text += "No adapter instance is bound to a transport.\n";
  return text + Paths(bindings) + Excluded(bindings) + Loops(bindings, "Binding loops:");
}

std::string FormatRun(const std::string& scenario, const ScenarioResult& result, bool colour) {
  std::string text = Order(result.before);
  std::size_t changed = 0, added = 0;
  bool isMarked = false;
  auto addTree = [&text](const AdapterStack& stack) {
    for (const std::string& line : Tree(stack)) text += "  " + line + "\n";
  };
  for (const StackPair& pair : result.stacks) {
    if (!pair.before) {
      if (pair.after->entries.empty()) continue;
      ++added;
      text += Heading(*pair.after) + "  (no transport was bound to it before)\n";
      addTree(*pair.after);
      continue;
    }
    if (pair.before->entries.size() == 1 && pair.after && pair.after->entries.size() == 1) {
      text += OneLine(*pair.before);
      continue;
    }
    text += Heading(*pair.before);
    if (pair.before->entries.empty()) continue;
    if (!pair.after || pair.after->entries.empty()) {
      addTree(*pair.before);
      text += "  after: no transport is bound to this stack any more\n";
      ++changed;
    } else if (pair.changed) {
      text += SideBySide(pair, colour);
      isMarked = isMarked || pair.HasMoved();
      ++changed;
    } else {
      addTree(*pair.before);
    }
  }
  text += "\n" + scenario + ": ";
  for (const auto& [method, hr] : result.results) text += method + " " + Hexadecimal(hr) + ", ";
  text += std::to_string(changed) + " of " + std::to_string(result.before.stacks.size()) + " stacks changed" +
          (added > 0 ? ", " + std::to_string(added) + " new" : "") +
          (isMarked && !colour ? " (moved entries: *)" : "") +
          (result.RebootRequired() ? ", a restart is required\n" : "\n");

  for (const auto& request : result.pnpReconfigs)
    text += "Reconfiguration sent: layer " + std::to_string(request.layer) + ", upper " + Printable(request.upper) +
            ", lower " + Printable(request.lower) + ", data \"" +
            Printable(TextOf({u"", platform::REG_SZ, request.data})) + "\"\n";
  for (const auto& request : result.deviceRequests)
    text += std::string("Request to the driver: ") + RequestName(request.code) +
            (request.path.empty() ? "" : " " + Printable(request.path)) + ", result " + std::to_string(request.result) +
            "\n";
  if (result.elapsedMilliseconds > 0)
    text += "Waited " + std::to_string(result.elapsedMilliseconds) + " ms for the write lock that another holds\n";
  if (!result.standardOutput.empty()) text += "Standard output: " + Printable(result.standardOutput) + "\n";
  text += Loops(result.bindingsBefore, "Binding loops before:") + Loops(result.bindingsAfter, "Binding loops after:");
  text += ChangedPaths(result.bindingsBefore, result.bindingsAfter);
  text += Pages(result.pages);
  if (result.inf) text += InfFiles(*result.inf);
  text += Changes(result.changes);
  text += "\nLog:\n";
  for (const std::string& message : result.log) text += "  " + Printable(message) + "\n";
  return text;
}

}  // namespace ztlsim
