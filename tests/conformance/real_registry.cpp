#include "tests/conformance/real_registry.h"

#include <stdexcept>

#include "platform/registry_key.h"
#include "simulation/text_encoding.h"

namespace ztl_conformance {

using namespace platform;
using simulation::Utf16ToUtf8;
using simulation::Utf8ToUtf16;

namespace {

constexpr DWORD kNameCapacity = 16384;

void Check(LSTATUS rc, const std::string& path) {
  if (rc != ERROR_SUCCESS) throw std::runtime_error("registry code " + std::to_string(rc) + " at " + path);
}

void ReadBelow(HKEY key, const std::string& path, std::vector<RealKey>& keys) {
  const std::size_t at = keys.size();
  keys.push_back({path, {}});
  std::u16string name(kNameCapacity, u'\0');
  LSTATUS rc = ERROR_SUCCESS;
  for (DWORD index = 0;; ++index) {
    DWORD length = kNameCapacity;
    DWORD bytes = 0;
    rc = RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, &bytes);
    if (rc == ERROR_NO_MORE_ITEMS) break;
    Check(rc, path);
    RealValue value{Utf16ToUtf8(name.substr(0, length)), REG_NONE, std::vector<BYTE>(bytes)};
    if (bytes == 0) value.data.reserve(1);  // a null pointer would ask for the size alone
    Check(RegQueryValueExW(key, name.c_str(), nullptr, &value.type, value.data.data(), &bytes), path);
    keys[at].values.push_back(std::move(value));
  }
  SubkeyEnumeration<256> subkey(key);
  while (subkey.Next()) {
    const std::string below = path + "\\" + Utf16ToUtf8(subkey.Name());
    UniqueKey opened;
    Check(opened.Open(key, subkey.Name(), KEY_READ), below);
    ReadBelow(opened.Get(), below, keys);
  }
  if (subkey.Code() != ERROR_NO_MORE_ITEMS) Check(subkey.Code(), path);
}

}  // namespace

std::vector<RealKey> ReadTree(const std::string& path) {
  std::vector<RealKey> keys;
  UniqueKey key;
  const LSTATUS rc = key.Open(HKEY_LOCAL_MACHINE, Utf8ToUtf16(path).c_str(), KEY_READ);
  if (rc == ERROR_FILE_NOT_FOUND) return keys;
  Check(rc, path);
  ReadBelow(key.Get(), path, keys);
  return keys;
}

void SetValue(const std::string& path, const RealValue& value) {
  UniqueKey key;
  Check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, Utf8ToUtf16(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_ALL_ACCESS, nullptr, key.Receive(), nullptr),
        path);
  std::vector<BYTE> data = value.data;
  data.insert(data.end(), 2, 0xFF);  // a NUL there would be stored with unterminated text
  Check(RegSetValueExW(key.Get(), Utf8ToUtf16(value.name).c_str(), 0, value.type, data.data(),
                       static_cast<DWORD>(value.data.size())),
        path);
}

}  // namespace ztl_conformance
