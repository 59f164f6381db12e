#include "platform/setup_files.h"

#include "platform/windows/cast.h"
// After <windows.h>.
#include <setupapi.h>

namespace platform {

using windows::Os;

namespace {

static_assert(sizeof(INFCONTEXT) == sizeof(::INFCONTEXT));
::INFCONTEXT* Os(INFCONTEXT* line) { return reinterpret_cast<::INFCONTEXT*>(line); }

}  // namespace

BOOL SetupGetInfFileListW(const char16_t* directory, DWORD style, char16_t* list, DWORD capacity, DWORD* size) {
  return ::SetupGetInfFileListW(Os(directory), style, Os(list), capacity, Os(size));
}

HINF SetupOpenInfFileW(const char16_t* path, const char16_t* infClass, DWORD style, UINT* errorLine) {
  return ::SetupOpenInfFileW(Os(path), Os(infClass), style, errorLine);
}

void SetupCloseInfFile(HINF inf) { ::SetupCloseInfFile(inf); }

BOOL SetupFindFirstLineW(HINF inf, const char16_t* section, const char16_t* key, INFCONTEXT* line) {
  return ::SetupFindFirstLineW(inf, Os(section), Os(key), Os(line));
}

BOOL SetupGetStringFieldW(const INFCONTEXT* line, DWORD field, char16_t* text, DWORD capacity, DWORD* size) {
  return ::SetupGetStringFieldW(Os(const_cast<INFCONTEXT*>(line)), field, Os(text), capacity, Os(size));
}

BOOL SetupCopyOEMInfW(const char16_t* source, const char16_t* mediaLocation, DWORD mediaType, DWORD copyStyle,
                      char16_t* destination, DWORD capacity, DWORD* size, char16_t** component) {
  return ::SetupCopyOEMInfW(Os(source), Os(mediaLocation), mediaType, copyStyle, Os(destination), capacity, Os(size),
                            reinterpret_cast<wchar_t**>(component));
}

DWORD GetPrivateProfileStringW(const char16_t* section, const char16_t* key, const char16_t* fallback, char16_t* text,
                               DWORD capacity, const char16_t* path) {
  return ::GetPrivateProfileStringW(Os(section), Os(key), Os(fallback), Os(text), capacity, Os(path));
}

}  // namespace platform
