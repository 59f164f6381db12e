#include "ztlsim/inspect/value_text.h"

#include <algorithm>
#include <iterator>

#include "module/log/format.h"
#include "platform/multi_string.h"

namespace ztlsim {
namespace {

std::u16string Characters(const simulation::RegistryValue& value) {
  std::u16string text(value.data.size() / 2, u'\0');
  std::copy_n(value.data.begin(), text.size() * 2, reinterpret_cast<platform::BYTE*>(text.data()));
  return text;
}

}  // namespace

std::string TypeName(platform::DWORD type) {
  static const char* const kNames[] = {"REG_NONE",
                                       "REG_SZ",
                                       "REG_EXPAND_SZ",
                                       "REG_BINARY",
                                       "REG_DWORD",
                                       "REG_DWORD_BIG_ENDIAN",
                                       "REG_LINK",
                                       "REG_MULTI_SZ",
                                       "REG_RESOURCE_LIST",
                                       "REG_FULL_RESOURCE_DESCRIPTOR",
                                       "REG_RESOURCE_REQUIREMENTS_LIST",
                                       "REG_QWORD"};
  return type < std::size(kNames) ? kNames[type] : std::to_string(type);
}

std::u16string TextOf(const simulation::RegistryValue& value) {
  const std::u16string text = Characters(value);
  return text.substr(0, text.find(u'\0'));
}

std::vector<std::u16string> ListOf(const simulation::RegistryValue& value) {
  const std::u16string text = Characters(value);
  std::vector<std::u16string> list;
  for (const std::u16string_view entry : platform::MultiStringView(text.data(), text.size())) list.emplace_back(entry);
  return list;
}

std::optional<std::uint32_t> NumberOf(const simulation::RegistryValue& value) {
  if (value.type != platform::REG_DWORD || value.data.size() != 4) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = 4; i-- > 0;) number = number << 8 | value.data[i];
  return number;
}

std::string HexadecimalOf(const simulation::RegistryValue& value) {
  std::string hexadecimal;
  for (const platform::BYTE byte : value.data) {
    char digits[3];
    ztl::Format(digits, "%02x", byte);
    hexadecimal += digits;
  }
  return hexadecimal;
}

}  // namespace ztlsim
