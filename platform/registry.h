// The registry operations (winreg.h). Every one is synchronous and returns a system error code.
//
// Key and value names compare without regard to case. Lengths are in characters for names and in bytes for data.
#pragma once

#include "platform/types.h"

namespace platform {

// Value types (winnt.h).
constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_DWORD_BIG_ENDIAN = 5;
constexpr DWORD REG_LINK = 6;
constexpr DWORD REG_MULTI_SZ = 7;
constexpr DWORD REG_RESOURCE_LIST = 8;
constexpr DWORD REG_FULL_RESOURCE_DESCRIPTOR = 9;
constexpr DWORD REG_RESOURCE_REQUIREMENTS_LIST = 10;
constexpr DWORD REG_QWORD = 11;

// Access rights of a key (winnt.h).
constexpr DWORD KEY_QUERY_VALUE = 0x0001;
constexpr DWORD KEY_SET_VALUE = 0x0002;
constexpr DWORD KEY_CREATE_SUB_KEY = 0x0004;
constexpr DWORD KEY_ENUMERATE_SUB_KEYS = 0x0008;
constexpr DWORD KEY_READ = 0x20019;
constexpr DWORD KEY_ALL_ACCESS = 0xF003F;

// Options and dispositions of RegCreateKeyExW (winnt.h).
constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
constexpr DWORD REG_OPTION_VOLATILE = 1;
constexpr DWORD REG_CREATED_NEW_KEY = 1;
constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// A predefined root: the 32-bit number, sign-extended to the size of a handle.
inline HKEY PredefinedKey(std::uint32_t number) {
  return reinterpret_cast<HKEY>(static_cast<std::intptr_t>(static_cast<std::int32_t>(number)));
}
inline const HKEY HKEY_CLASSES_ROOT = PredefinedKey(0x80000000u);
inline const HKEY HKEY_CURRENT_USER = PredefinedKey(0x80000001u);
inline const HKEY HKEY_LOCAL_MACHINE = PredefinedKey(0x80000002u);
inline const HKEY HKEY_USERS = PredefinedKey(0x80000003u);
inline const HKEY HKEY_CURRENT_CONFIG = PredefinedKey(0x80000005u);

// Opens the key at `subKey` (a path of any number of levels below `key`; null or empty: `key` itself once more).
// ERROR_FILE_NOT_FOUND when a level is missing, ERROR_ACCESS_DENIED when an access right of `access` is refused,
// ERROR_BAD_PATHNAME when the path starts with a backslash. `*result` is closed with RegCloseKey by the caller; it is
// null after a failure.
LSTATUS RegOpenKeyExW(HKEY key, const char16_t* subKey, DWORD options, DWORD access, HKEY* result);
// The same with the largest access that the caller is allowed.
LSTATUS RegOpenKeyW(HKEY key, const char16_t* subKey, HKEY* result);

// Creates the key at `subKey` with every missing level above it, or opens it. `options` is REG_OPTION_VOLATILE or 0;
// ERROR_CHILD_MUST_BE_VOLATILE for a lasting key below a volatile one. `*disposition` (may be null) becomes
// REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY.
LSTATUS RegCreateKeyExW(HKEY key, const char16_t* subKey, DWORD reserved, char16_t* className, DWORD options,
                        DWORD access, void* securityAttributes, HKEY* result, DWORD* disposition);

// The name of the subkey at `index`. `*nameLength` is the buffer's capacity in characters with the terminator (in) and
// the name's length without it (out). ERROR_MORE_DATA when the name does not fit (nothing is stored),
// ERROR_NO_MORE_ITEMS past the last subkey.
// `reserved`, `className`, `classLength` and `lastWriteTime` may be null.
LSTATUS RegEnumKeyExW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* reserved, char16_t* className,
                      DWORD* classLength, void* lastWriteTime);

// The value at `index`: name as in RegEnumKeyExW, type and data as in RegQueryValueExW (each may be null).
LSTATUS RegEnumValueW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* reserved, DWORD* type,
                      BYTE* data, DWORD* dataBytes);

// Type and data of the value `name` (null or empty: the default value). `*dataBytes` is the buffer's size (in) and the
// size of the stored data (out). A null `data` asks for the size alone, and `type` may be null; ERROR_MORE_DATA when
// the data is larger than the buffer.
// Text that is stored without a terminator gets one when the buffer has room for it; `*dataBytes` does not count it.
LSTATUS RegQueryValueExW(HKEY key, const char16_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataBytes);

// Writes `dataBytes` bytes of `data`. Windows completes text: when the last character of a text type is not a NUL and
// the character after `data` is one, that NUL is stored too. A caller that passes text without its terminator must
// therefore own the character after it, and decides with it what is stored.
LSTATUS RegSetValueExW(HKEY key, const char16_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD dataBytes);

LSTATUS RegDeleteValueW(HKEY key, const char16_t* name);  // ERROR_FILE_NOT_FOUND when there is no such value
LSTATUS RegDeleteKeyW(HKEY key, const char16_t* subKey);  // ERROR_ACCESS_DENIED when the key has subkeys
LSTATUS RegCloseKey(HKEY key);                            // ERROR_INVALID_HANDLE for anything but an open key

}  // namespace platform
