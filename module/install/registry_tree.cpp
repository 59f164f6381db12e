#include "module/install/registry_tree.h"

#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/registry_key.h"
#include "platform/text.h"

namespace ztl {

using namespace platform;

namespace {

constexpr DWORD kNameCapacity = 260;  // characters
constexpr DWORD kDataCapacity = 520;  // bytes

// One value as it was enumerated.
struct Value {
  char16_t name[kNameCapacity];
  DWORD type;
  BYTE data[kDataCapacity];
  DWORD bytes;
};

bool StaysAsItIs(HKEY destination, const Value& source) {
  BYTE data[kDataCapacity];
  DWORD bytes = sizeof(data);
  DWORD type = REG_NONE;
  return platform::RegQueryValueExW(destination, source.name, nullptr, &type, data, &bytes) == ERROR_SUCCESS &&
         type == source.type;
}

// Kept out of the recursion: its buffers would stand on the stack once for every level.
[[gnu::noinline]] void CopyValues(HKEY source, HKEY destination, DWORD overwrite) {
  for (DWORD index = 0;; ++index) {
    Value value;
    DWORD nameLength = kNameCapacity;
    value.bytes = kDataCapacity;
    const LSTATUS rc =
        platform::RegEnumValueW(source, index, value.name, &nameLength, nullptr, &value.type, value.data, &value.bytes);
    if (rc != ERROR_SUCCESS) {
      if (rc != ERROR_NO_MORE_ITEMS) LogMessage(g_ModuleLog, SEV_ERROR, "CopyRegTree: RegEnumValue rc=%x", rc);
      return;
    }
    if (overwrite == 0 && StaysAsItIs(destination, value)) continue;
    if (const LSTATUS set = SetExactValue(destination, value.name, value.type, value.data, value.bytes);
        set != ERROR_SUCCESS)
      LogMessage(g_ModuleLog, SEV_ERROR, "CopyRegTree: RegSetValueEx rc=%x", set);
  }
}

}  // namespace

LSTATUS DeleteKey(HKEY parentKey, const char16_t* subkeyName) {
  LogMessage(g_ModuleLog, SEV_INFO, "DeleteKey %S", subkeyName);
  UniqueKey key;
  if (const LSTATUS rc = key.Open(parentKey, subkeyName, KEY_ALL_ACCESS); rc == ERROR_SUCCESS) {
    char16_t name[kNameCapacity];
    LSTATUS enumerated = ERROR_SUCCESS;
    for (DWORD index = 0; enumerated == ERROR_SUCCESS;) {
      DWORD length = kNameCapacity;
      enumerated = platform::RegEnumKeyExW(key.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
      // Where a subkey went, the next one has taken its place.
      if (enumerated == ERROR_SUCCESS && DeleteKey(key.Get(), name) != ERROR_SUCCESS) ++index;
    }
    if (enumerated != ERROR_NO_MORE_ITEMS)
      LogMessage(g_ModuleLog, SEV_ERROR, "DeleteKey: RegEnumKey rc=%x", enumerated);
    key.Close();
  } else if (rc != ERROR_FILE_NOT_FOUND) {
    LogMessage(g_ModuleLog, SEV_ERROR, "DeleteKey: RegOpenKeyEx rc=%x", rc);
  }
  const LSTATUS rc = platform::RegDeleteKeyW(parentKey, subkeyName);
  if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND)
    LogMessage(g_ModuleLog, SEV_ERROR, "DeleteKey: RegDeleteKey rc=%x", rc);
  return rc;
}

void CopyRegTree(HKEY sourceParent, const char16_t* sourceSubkey, HKEY destinationParent,
                 const char16_t* destinationSubkey, DWORD overwrite) {
  TraceLine(u"--> CopyRegTree: %s %s\n", sourceSubkey, destinationSubkey);
  UniqueKey source;
  if (const LSTATUS rc = source.Open(sourceParent, sourceSubkey, KEY_ALL_ACCESS); rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "CopyRegTree: RegOpenKeyEx rc=%x", rc);
    return;
  }
  UniqueKey destination;
  if (const LSTATUS rc =
          platform::RegCreateKeyExW(destinationParent, destinationSubkey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                    KEY_ALL_ACCESS, nullptr, destination.Receive(), nullptr);
      rc != ERROR_SUCCESS) {
    LogMessage(g_ModuleLog, SEV_ERROR, "CopyRegTree: RegCreateKeyEx rc=%x", rc);
    return;
  }
  CopyValues(source.Get(), destination.Get(), overwrite);
  SubkeyEnumeration<kNameCapacity> subkey(source.Get());
  while (subkey.Next())
    if (!EqualNoCase(subkey.Name(), kAdapters))
      CopyRegTree(source.Get(), subkey.Name(), destination.Get(), subkey.Name(), overwrite);
  if (subkey.Code() != ERROR_NO_MORE_ITEMS)
    LogMessage(g_ModuleLog, SEV_ERROR, "CopyRegTree: RegEnumKey rc=%x", subkey.Code());
}

}  // namespace ztl
