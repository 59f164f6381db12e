#include "module/install/registry_tree.h"

#include "module/log/log_facility.h"
#include "module/names.h"
#include "platform/locale.h"
#include "platform/registry_key.h"

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

LSTATUS DeleteTree(HKEY parent, const char16_t* name, DeletionReport report) {
  report(DeletionStep::Start, name, ERROR_SUCCESS);
  UniqueKey key;
  if (const LSTATUS rc = key.Open(parent, name, KEY_ALL_ACCESS); rc == ERROR_SUCCESS) {
    char16_t subkey[kNameCapacity];
    LSTATUS enumerated = ERROR_SUCCESS;
    for (DWORD index = 0; enumerated == ERROR_SUCCESS;) {
      DWORD length = kNameCapacity;
      enumerated = platform::RegEnumKeyExW(key.Get(), index, subkey, &length, nullptr, nullptr, nullptr, nullptr);
      // Where a subkey went, the next one has taken its place.
      if (enumerated == ERROR_SUCCESS && DeleteTree(key.Get(), subkey, report) != ERROR_SUCCESS) ++index;
    }
    if (enumerated != ERROR_NO_MORE_ITEMS) report(DeletionStep::Enumerate, name, enumerated);
    key.Close();
  } else if (rc != ERROR_FILE_NOT_FOUND) {
    report(DeletionStep::Open, name, rc);
  }
  const LSTATUS rc = platform::RegDeleteKeyW(parent, name);
  if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) report(DeletionStep::Delete, name, rc);
  return rc;
}

LSTATUS DeleteKey(HKEY parentKey, const char16_t* subkeyName) {
  return DeleteTree(parentKey, subkeyName, [](DeletionStep step, const char16_t* name, LSTATUS rc) {
    switch (step) {
      case DeletionStep::Start:
        LogMessage(g_ModuleLog, SEV_INFO, "DeleteKey %S", name);
        break;
      case DeletionStep::Open:
        LogMessage(g_ModuleLog, SEV_ERROR, "DeleteKey: RegOpenKeyEx rc=%x", rc);
        break;
      case DeletionStep::Enumerate:
        LogMessage(g_ModuleLog, SEV_ERROR, "DeleteKey: RegEnumKey rc=%x", rc);
        break;
      case DeletionStep::Delete:
        LogMessage(g_ModuleLog, SEV_ERROR, "DeleteKey: RegDeleteKey rc=%x", rc);
        break;
    }
  });
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
    if (platform::lstrcmpiW(subkey.Name(), kAdapters) != 0)
      CopyRegTree(source.Get(), subkey.Name(), destination.Get(), subkey.Name(), overwrite);
  if (subkey.Code() != ERROR_NO_MORE_ITEMS)
    LogMessage(g_ModuleLog, SEV_ERROR, "CopyRegTree: RegEnumKey rc=%x", subkey.Code());
}

}  // namespace ztl
