#include "platform/registry.h"

#include "platform/windows/cast.h"

namespace platform {

using windows::Os;

LSTATUS RegOpenKeyExW(HKEY key, const char16_t* subKey, DWORD options, DWORD access, HKEY* result) {
  *result = nullptr;
  return ::RegOpenKeyExW(Os(key), Os(subKey), options, access, Os(result));
}

LSTATUS RegOpenKeyW(HKEY key, const char16_t* subKey, HKEY* result) {
  *result = nullptr;
  return ::RegOpenKeyW(Os(key), Os(subKey), Os(result));
}

LSTATUS RegCreateKeyExW(HKEY key, const char16_t* subKey, DWORD reserved, char16_t* className, DWORD options,
                        DWORD access, void* securityAttributes, HKEY* result, DWORD* disposition) {
  *result = nullptr;
  return ::RegCreateKeyExW(Os(key), Os(subKey), reserved, Os(className), options, access,
                           static_cast<SECURITY_ATTRIBUTES*>(securityAttributes), Os(result), Os(disposition));
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* reserved, char16_t* className,
                      DWORD* classLength, void* lastWriteTime) {
  return ::RegEnumKeyExW(Os(key), index, Os(name), Os(nameLength), Os(reserved), Os(className), Os(classLength),
                         static_cast<FILETIME*>(lastWriteTime));
}

LSTATUS RegEnumValueW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* reserved, DWORD* type,
                      BYTE* data, DWORD* dataBytes) {
  return ::RegEnumValueW(Os(key), index, Os(name), Os(nameLength), Os(reserved), Os(type), data, Os(dataBytes));
}

LSTATUS RegQueryValueExW(HKEY key, const char16_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataBytes) {
  return ::RegQueryValueExW(Os(key), Os(name), Os(reserved), Os(type), data, Os(dataBytes));
}

LSTATUS RegSetValueExW(HKEY key, const char16_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD dataBytes) {
  return ::RegSetValueExW(Os(key), Os(name), reserved, type, data, dataBytes);
}

LSTATUS RegDeleteValueW(HKEY key, const char16_t* name) { return ::RegDeleteValueW(Os(key), Os(name)); }

LSTATUS RegDeleteKeyW(HKEY key, const char16_t* subKey) { return ::RegDeleteKeyW(Os(key), Os(subKey)); }

LSTATUS RegCloseKey(HKEY key) { return ::RegCloseKey(Os(key)); }

}  // namespace platform
