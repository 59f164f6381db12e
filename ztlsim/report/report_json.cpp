#include <nlohmann/json.hpp>

#include "module/log/format.h"
#include "ztlsim/inspect/value_text.h"
#include "ztlsim/report/report.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {

using Json = nlohmann::ordered_json;
using namespace platform;

namespace {

Json List(const std::vector<std::u16string>& texts) {
  Json list = Json::array();
  for (const std::u16string& text : texts) list.push_back(Utf16ToUtf8(text));
  return list;
}

Json StackEntries(const AdapterStack& stack) {
  Json entries = Json::array();
  for (const StackEntry& entry : stack.entries)
    entries.push_back({{"guid", Utf16ToUtf8(entry.guid)},
                       {"instance", Utf16ToUtf8(entry.instance)},
                       {"description", Utf16ToUtf8(entry.description)},
                       {"service", Utf16ToUtf8(entry.service)},
                       {"upper_bind", List(entry.upperBind)}});
  return entries;
}

// A multi-string as a list, text as text, a DWORD as a number, anything else as its bytes in hexadecimal.
Json ValueData(const std::optional<simulation::RegistryValue>& value) {
  if (!value) return nullptr;
  if (value->type == REG_SZ || value->type == REG_EXPAND_SZ) return Utf16ToUtf8(TextOf(*value));
  if (value->type == REG_MULTI_SZ) return List(ListOf(*value));
  if (const auto number = NumberOf(*value)) return *number;
  return HexadecimalOf(*value);
}

Json Changes(const std::vector<RegistryChange>& changes) {
  Json list = Json::array();
  for (const RegistryChange& change : changes) {
    const auto& value = change.after ? change.after : change.before;
    Json item = {{"key", Utf16ToUtf8(change.key)},
                 {"name", change.name ? Json(Utf16ToUtf8(*change.name)) : Json(nullptr)},
                 {"type", value ? Json(TypeName(value->type)) : Json("key")},
                 {"before", change.name ? ValueData(change.before) : Json(change.keyDeleted)},
                 {"after", change.name ? ValueData(change.after) : Json(change.keyCreated)}};
    if (change.before && change.after && item["before"] == item["after"]) {  // the type or the terminators alone
      item["before_raw"] = TypeName(change.before->type) + " " + HexadecimalOf(*change.before);
      item["after_raw"] = TypeName(change.after->type) + " " + HexadecimalOf(*change.after);
    }
    list.push_back(std::move(item));
  }
  return list;
}

Json Order(const MachineState& state) {
  return {{"configured_order", List(state.configuredOrder)},
          {"configured_order_set", state.orderIsSet},
          {"own_class", Utf16ToUtf8(state.ownClass)},
          {"im_list", List(state.imList)},
          {"devid_list", List(state.devIdList)}};
}

Json Stacks(const std::vector<AdapterStack>& stacks) {
  Json list = Json::array();
  for (const AdapterStack& stack : stacks)
    list.push_back(
        {{"adapter", Utf16ToUtf8(stack.Adapter())}, {"top", Utf16ToUtf8(stack.top)}, {"entries", StackEntries(stack)}});
  return list;
}

Json Stacks(const std::vector<StackPair>& pairs) {
  Json list = Json::array();
  for (const StackPair& pair : pairs) {
    const AdapterStack& stack = pair.before ? *pair.before : *pair.after;
    list.push_back({{"adapter", Utf16ToUtf8(stack.Adapter())},
                    {"top", Utf16ToUtf8(stack.top)},
                    {"before", pair.before ? StackEntries(*pair.before) : Json::array()},
                    {"after", pair.after ? StackEntries(*pair.after) : Json::array()}});
  }
  return list;
}

Json Paths(const BindingState& bindings) {
  Json list = Json::array();
  for (const BindingPath& path : bindings.paths)
    list.push_back({{"token", Utf16ToUtf8(path.token)}, {"enabled", path.enabled}});
  return list;
}

Json Loops(const BindingState& bindings) {
  Json list = Json::array();
  for (const BindLoopInstance& loop : bindings.loops) list.push_back(Utf16ToUtf8(loop.instance));
  return list;
}

Json Excluded(const BindingState& bindings) {
  Json list = Json::array();
  for (const ExcludedEntry& excluded : bindings.excluded)
    list.push_back({{"entry", Utf16ToUtf8(excluded.entry)}, {"adapters", List(excluded.adapters)}});
  return list;
}

std::string Hexadecimal(std::uint32_t number) {
  char text[16];
  ztl::Format(text, "0x%08X", number);
  return text;
}

std::string CodeText(std::uint32_t code) {  // as control codes are written
  char text[16];
  ztl::Format(text, "0x%x", code);
  return text;
}

Json DeviceRequests(const std::vector<simulation::DeviceRequest>& requests) {
  Json list = Json::array();
  for (const simulation::DeviceRequest& request : requests)
    list.push_back({{"code", CodeText(request.code)},
                    {"path", Utf16ToUtf8(request.path)},
                    {"length", request.bytes},
                    {"result", request.result}});
  return list;
}

Json Controls(const std::vector<simulation::Control>& controls) {
  Json list = Json::array();
  for (const simulation::Control& control : controls) {
    Json object = {{"class", Utf16ToUtf8(control.windowClass)}, {"text", Utf16ToUtf8(control.text)}};
    if (control.windowClass == u"Edit") object.update({{"id", control.id}, {"limit", control.limit}});
    list.push_back(object);
  }
  return list;
}

Json Page(const ShownPage& page) {
  return {{"title", Utf16ToUtf8(page.title)},
          {"opened", Controls(page.opened)},
          {"closed", Controls(page.closed)},
          {"apply_enabled", page.applyEnabled}};
}

Json InfFiles(const InfSearch& search) {
  const auto text = [](const std::optional<std::u16string>& t) { return t ? Json(Utf16ToUtf8(*t)) : Json(nullptr); };
  Json candidates = Json::array();
  for (const InfCandidate& candidate : search.candidates)
    candidates.push_back({{"path", Utf16ToUtf8(candidate.path)},
                          {"version", candidate.version.Text()},
                          {"rank", candidate.rank == 0 ? Json(nullptr) : Json(candidate.rank)}});
  return {{"driver_version", search.driver ? Json(search.driver->Text()) : Json(nullptr)},
          {"candidates", candidates},
          {"chosen", text(search.chosen)},
          {"media_root", text(search.mediaRoot)}};
}

std::string Print(const Json& object) { return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace

std::string FormatRunAsJson(const std::string& scenario, const ScenarioResult& result) {
  Json results = Json::object();
  for (const auto& [method, hr] : result.results) results[method] = Hexadecimal(static_cast<std::uint32_t>(hr));
  Json object = {{"scenario", scenario},
                 {"result", results},
                 {"reboot_required", result.RebootRequired()},
                 {"stacks", Stacks(result.stacks)}};
  object.update(Order(result.before));
  object["paths"] = {{"before", Paths(result.bindingsBefore)}, {"after", Paths(result.bindingsAfter)}};
  object["loops"] = {{"before", Loops(result.bindingsBefore)}, {"after", Loops(result.bindingsAfter)}};
  object["excluded"] = Excluded(result.bindingsBefore);
  object["changes"] = Changes(result.changes);
  object["pnp_reconfig"] = nullptr;
  if (!result.pnpReconfigs.empty()) {
    const simulation::PnpReconfig& request = result.pnpReconfigs.front();
    object["pnp_reconfig"] = {{"layer", static_cast<int>(request.layer)},
                              {"upper", Utf16ToUtf8(request.upper)},
                              {"lower", Utf16ToUtf8(request.lower)},
                              {"data", Utf16ToUtf8(TextOf({u"", REG_SZ, request.data}))}};
  }
  object["device_requests"] = DeviceRequests(result.deviceRequests);
  object["page"] = result.pages.empty() ? Json(nullptr) : Page(result.pages.front());
  if (result.pages.size() > 1) object["page"]["again"] = Controls(result.pages[1].opened);
  object["inf"] = result.inf ? InfFiles(*result.inf) : Json(nullptr);
  object["elapsed_ms"] = result.elapsedMilliseconds;
  object["standard_output"] = Utf16ToUtf8(result.standardOutput);
  object["log"] = result.log;
  object["drive_troubles"] = result.driveTroubles;
  if (result.asProcess) {
    object["debugger_output"] = result.debugOutput;
    object["engine_requests"] = Json::array();
    for (const simulation::EngineRequest& request : result.engineRequests)
      object["engine_requests"].push_back(request.text + " = " +
                                          Hexadecimal(static_cast<std::uint32_t>(request.result)));
  }
  return Print(object);
}

std::string FormatStateAsJson(const MachineState& state, const BindingState& bindings) {
  Json object = Order(state);
  object["stacks"] = Stacks(state.stacks);
  object["paths"] = Paths(bindings);
  object["loops"] = Loops(bindings);
  object["excluded"] = Excluded(bindings);
  return Print(object);
}

std::string FormatFindingsAsJson(const std::vector<Finding>& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings)
    list.push_back({{"kind", FindingName(finding.kind)},
                    {"key", Utf16ToUtf8(finding.key)},
                    {"value", finding.value ? Json(Utf16ToUtf8(*finding.value)) : Json(nullptr)},
                    {"text", finding.text},
                    {"consequence", finding.consequence}});
  return Print({{"findings", list}});
}

}  // namespace ztlsim
