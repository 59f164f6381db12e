#include <nlohmann/json.hpp>

#include "log/format.h"
#include "ztlsim/report.h"
#include "ztlsim/text_encoding.h"
#include "ztlsim/value_text.h"

namespace ztlsim {

using Json = nlohmann::ordered_json;
using namespace platform;

namespace {

Json List(const std::vector<std::u16string>& texts) {
  Json list = Json::array();
  for (const std::u16string& text : texts) list.push_back(Utf16ToUtf8(text));
  return list;
}

Json StackEntries(const AdapterStack* stack) {
  Json entries = Json::array();
  if (stack == nullptr) return entries;
  for (const StackEntry& entry : stack->entries)
    entries.push_back({{"guid", Utf16ToUtf8(entry.guid)},
                       {"instance", Utf16ToUtf8(entry.instance)},
                       {"description", Utf16ToUtf8(entry.description)},
                       {"service", Utf16ToUtf8(entry.service)},
                       {"upper_bind", List(entry.upperBind)}});
  return entries;
}

// A multi-string as a list, text as text, a DWORD as a number, anything else as its bytes in hexadecimal.
Json ValueData(const std::optional<simulated::RegistryValue>& value) {
  if (!value) return nullptr;
  const std::vector<BYTE>& data = value->data;
  if (value->type == REG_SZ || value->type == REG_EXPAND_SZ) return Utf16ToUtf8(TextOf(*value));
  if (value->type == REG_MULTI_SZ) return List(ListOf(*value));
  if (value->type == REG_DWORD && data.size() == 4)
    return data[0] | data[1] << 8 | data[2] << 16 | std::uint32_t{data[3]} << 24;
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

Json Stacks(const MachineState& before, const MachineState* after) {
  Json stacks = Json::array();
  for (const AdapterStack& stack : before.stacks) {
    Json item = {{"adapter", Utf16ToUtf8(stack.Adapter())}, {"top", Utf16ToUtf8(stack.top)}};
    if (after == nullptr) {
      item["entries"] = StackEntries(&stack);
    } else {
      item["before"] = StackEntries(&stack);
      item["after"] = StackEntries(FindStack(after->stacks, stack));
    }
    stacks.push_back(std::move(item));
  }
  if (after != nullptr)
    for (const AdapterStack& stack : after->stacks)
      if (FindStack(before.stacks, stack) == nullptr)
        stacks.push_back({{"adapter", Utf16ToUtf8(stack.Adapter())},
                          {"top", Utf16ToUtf8(stack.top)},
                          {"before", Json::array()},
                          {"after", StackEntries(&stack)}});
  return stacks;
}

std::string Print(const Json& object) { return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace

std::string FormatRunAsJson(const std::string& scenario, const ScenarioResult& result) {
  Json results = Json::object();
  for (const auto& [method, hr] : result.results) {
    char text[16];
    ztl::Format(text, "0x%08X", hr);
    results[method] = text;
  }
  Json object = {{"scenario", scenario},
                 {"result", results},
                 {"reboot_required", result.RebootRequired()},
                 {"stacks", Stacks(result.before, &result.after)}};
  object.update(Order(result.before));
  object["changes"] = Changes(result.changes);
  object["pnp_reconfig"] = nullptr;
  if (!result.pnpReconfigs.empty()) {
    const simulated::PnpReconfig& request = result.pnpReconfigs.back();
    object["pnp_reconfig"] = {{"layer", static_cast<int>(request.layer)},
                              {"upper", Utf16ToUtf8(request.upper)},
                              {"lower", Utf16ToUtf8(request.lower)},
                              {"data", Utf16ToUtf8(TextOf({u"", REG_SZ, request.data}))}};
  }
  object["log"] = result.log;
  return Print(object);
}

std::string FormatStateAsJson(const MachineState& state) {
  Json object = Order(state);
  object["stacks"] = Stacks(state, nullptr);
  return Print(object);
}

}  // namespace ztlsim
