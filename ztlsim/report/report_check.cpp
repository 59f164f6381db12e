#include <nlohmann/json.hpp>

#include "ztlsim/report/report.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {

std::string FormatFindings(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    std::u16string place = finding.key;
    if (finding.value) place += u", " + *finding.value;
    text += Printable(Utf16ToUtf8(place) + ": " + finding.text + ". " + finding.consequence + ". [" +
                      FindingName(finding.kind) + "]");
    text += "\n";
  }
  if (findings.empty()) return "No findings.\n";
  return text + std::to_string(findings.size()) + (findings.size() == 1 ? " finding\n" : " findings\n");
}

std::string FormatFindingsAsJson(const std::vector<Finding>& findings) {
  using Json = nlohmann::ordered_json;
  Json list = Json::array();
  for (const Finding& finding : findings)
    list.push_back({{"kind", FindingName(finding.kind)},
                    {"key", Utf16ToUtf8(finding.key)},
                    {"value", finding.value ? Json(Utf16ToUtf8(*finding.value)) : Json(nullptr)},
                    {"text", finding.text},
                    {"consequence", finding.consequence}});
  return Json({{"findings", list}}).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace ztlsim
