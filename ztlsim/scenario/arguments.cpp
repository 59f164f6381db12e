#include "ztlsim/scenario/arguments.h"

#include <charconv>
#include <string_view>
#include <system_error>

#include "module/notify/property_page.h"
#include "simulation/text_encoding.h"

namespace ztlsim {

using namespace platform;
using simulation::Utf8ToUtf16;

namespace {

// The whole text as a number.
template <class Number>
bool ReadNumber(std::string_view text, Number& number, int base) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

// "{8-4-4-4-12}" in hexadecimal, with or without the braces.
std::optional<GUID> ParseGuid(std::string text) {
  if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
  if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-') return std::nullopt;
  const std::string_view view = text;
  GUID guid = {};
  bool ok = ReadNumber(view.substr(0, 8), guid.Data1, 16) && ReadNumber(view.substr(9, 4), guid.Data2, 16) &&
            ReadNumber(view.substr(14, 4), guid.Data3, 16);
  for (std::size_t i = 0; i < 8; ++i)
    ok = ok && ReadNumber(view.substr(i < 2 ? 19 + 2 * i : 20 + 2 * i, 2), guid.Data4[i], 16);
  return ok ? std::optional(guid) : std::nullopt;
}

std::optional<PathNotice> ParsePathNotice(const std::string& text) {
  const std::size_t equals = text.rfind('=');
  if (equals == text.npos || equals == 0) return std::nullopt;
  const std::string state = text.substr(equals + 1);
  if (state != "on" && state != "off" && state != "error") return std::nullopt;
  return PathNotice{.token = Utf8ToUtf16(text.substr(0, equals)),
                    .enabled = state == "on"    ? S_OK
                               : state == "off" ? S_FALSE
                                                : E_FAIL};
}

// In hexadecimal after 0x.
std::optional<DWORD> ParseFlag(const std::string& text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  DWORD flag = 0;
  return ReadNumber(std::string_view(text).substr(isHexadecimal ? 2 : 0), flag, isHexadecimal ? 16 : 10)
             ? std::optional(flag)
             : std::nullopt;
}

using Expected = std::optional<std::string>;

Expected ReadPath(const std::string& text, CallOptions& calls) {
  const auto path = ParsePathNotice(text);
  if (!path) return "TOKEN=on, TOKEN=off or TOKEN=error";
  calls.paths.push_back(*path);
  return std::nullopt;
}

Expected ReadChange(const std::string& text, CallOptions& calls) {
  calls.changeFlag = ParseFlag(text);
  return calls.changeFlag ? Expected() : "a number of 32 bits";
}

Expected ReadAdapter(const std::string& text, CallOptions& calls) {
  calls.adapter = ParseGuid(text);
  return calls.adapter ? Expected() : "{8-4-4-4-12} hexadecimal digits";
}

template <int Control>
Expected ReadPageText(const std::string& text, CallOptions& calls) {
  calls.page.texts.emplace_back(Control, Utf8ToUtf16(text));
  return std::nullopt;
}

Expected ReadPageButton(const std::string& text, CallOptions& calls) {
  if (text != "ok" && text != "apply" && text != "cancel") return "ok, apply or cancel";
  calls.page.button = text == "ok" ? PageButton::Ok : text == "apply" ? PageButton::Apply : PageButton::Cancel;
  return std::nullopt;
}

Expected ReadAgain(const std::string&, CallOptions& calls) {
  calls.pageAgain = true;
  return std::nullopt;
}

}  // namespace

const CallOption kNotifyOptions[2] = {
    {"--path", "TOKEN=on|off|error", "tell of a binding path in this state", ReadPath, true},
    {"--change", "FLAG", "the change flag of what is told", ReadChange},
};
const CallOption kPropertiesOptions[5] = {
    {"--adapter", "GUID", "of this adapter's connection", ReadAdapter},
    {"--param1", "TEXT", "type this as the first parameter", ReadPageText<ztl::kParam1Control>},
    {"--bundle-id", "TEXT", "type this as the bundle identifier", ReadPageText<ztl::kBundleIdControl>},
    {"--page", "ok|cancel|apply", "press this button; ok when not given", ReadPageButton},
    {"--again", "", "open the page a second time, and cancel it", ReadAgain},
};

}  // namespace ztlsim
