// The basic types and codes of the platform boundary, under the operating system's own names.
//
// They are declared here, in namespace platform, with the operating system's sizes, so that the module's code is the
// same text and the same types on every system; only platform/windows/ sees <windows.h>. A file that needs both
// includes this header first: <windows.h> defines many of the constants' names as macros.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using BOOL = std::int32_t;
using HRESULT = std::int32_t;
using LSTATUS = std::int32_t;  // a system error code; 0 is success

struct HKEY__;
using HKEY = HKEY__*;
struct HWND__;
using HWND = HWND__*;

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];

  friend constexpr bool operator==(const GUID&, const GUID&) = default;
};
static_assert(sizeof(GUID) == 16);
using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

// System error codes (winerror.h).
constexpr LSTATUS ERROR_SUCCESS = 0;
constexpr LSTATUS ERROR_FILE_NOT_FOUND = 2;
constexpr LSTATUS ERROR_PATH_NOT_FOUND = 3;
constexpr LSTATUS ERROR_ACCESS_DENIED = 5;
constexpr LSTATUS ERROR_INVALID_HANDLE = 6;
constexpr LSTATUS ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr LSTATUS ERROR_INVALID_DATA = 13;
constexpr LSTATUS ERROR_GEN_FAILURE = 31;
constexpr LSTATUS ERROR_SHARING_VIOLATION = 32;
constexpr LSTATUS ERROR_NOT_SUPPORTED = 50;
constexpr LSTATUS ERROR_FILE_EXISTS = 80;
constexpr LSTATUS ERROR_INVALID_PARAMETER = 87;
constexpr LSTATUS ERROR_INSUFFICIENT_BUFFER = 122;
constexpr LSTATUS ERROR_NOT_LOCKED = 158;
constexpr LSTATUS ERROR_BAD_PATHNAME = 161;
constexpr LSTATUS ERROR_MORE_DATA = 234;
constexpr LSTATUS ERROR_NO_MORE_ITEMS = 259;
constexpr LSTATUS ERROR_DIRECTORY = 267;
constexpr LSTATUS ERROR_FILE_INVALID = 1006;
constexpr LSTATUS ERROR_KEY_DELETED = 1018;
constexpr LSTATUS ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
constexpr LSTATUS ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
constexpr LSTATUS ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
constexpr LSTATUS ERROR_CHILD_MUST_BE_VOLATILE = 1021;
constexpr LSTATUS ERROR_NOT_FOUND = 1168;

// COM result codes (winerror.h, netcfgx.h). A negative value is a failure.
constexpr HRESULT HresultFromBits(std::uint32_t bits) { return static_cast<HRESULT>(bits); }
constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = HresultFromBits(0x80004001);
constexpr HRESULT E_NOINTERFACE = HresultFromBits(0x80004002);
constexpr HRESULT E_POINTER = HresultFromBits(0x80004003);
constexpr HRESULT E_FAIL = HresultFromBits(0x80004005);
constexpr HRESULT E_OUTOFMEMORY = HresultFromBits(0x8007000E);
constexpr HRESULT E_INVALIDARG = HresultFromBits(0x80070057);
constexpr HRESULT CLASS_E_NOAGGREGATION = HresultFromBits(0x80040110);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = HresultFromBits(0x80040111);
constexpr HRESULT REGDB_E_CLASSNOTREG = HresultFromBits(0x80040154);
constexpr HRESULT CO_E_NOTINITIALIZED = HresultFromBits(0x800401F0);

constexpr bool Succeeded(HRESULT hr) { return hr >= 0; }
constexpr bool Failed(HRESULT hr) { return hr < 0; }

// A system error code as a COM result code: a positive code c becomes 0x80070000 | (c & 0xFFFF), any other stays.
constexpr HRESULT HresultFromError(LSTATUS code) {
  return code <= 0 ? code : HresultFromBits(0x80070000u | (static_cast<std::uint32_t>(code) & 0xFFFFu));
}

}  // namespace platform
