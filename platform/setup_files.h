// INF files: listing, reading and installing them (setupapi.h), and single values of INF and initialization files
// (winbase.h).
//
// A failure leaves its reason in GetLastError: a code of winerror.h, or one of the 0xE0000000 family below. Capacities
// and sizes are counted in characters, with the terminator.
#pragma once

#include "platform/types.h"

namespace platform {

using HINF = void*;
inline const HINF INVALID_HINF = reinterpret_cast<HINF>(static_cast<std::intptr_t>(-1));

constexpr DWORD INF_STYLE_WIN4 = 2;  // a [Version] section with a signature of this style
constexpr DWORD SPOST_PATH = 1;      // the media location is a directory

// Codes of SetupAPI's own (setupapi.h). As COM result codes they stay as they are.
constexpr LSTATUS ERROR_EXPECTED_SECTION_NAME = HresultFromBits(0xE0000000);
constexpr LSTATUS ERROR_BAD_SECTION_NAME_LINE = HresultFromBits(0xE0000001);
constexpr LSTATUS ERROR_SECTION_NAME_TOO_LONG = HresultFromBits(0xE0000002);
constexpr LSTATUS ERROR_WRONG_INF_STYLE = HresultFromBits(0xE0000100);
constexpr LSTATUS ERROR_LINE_NOT_FOUND = HresultFromBits(0xE0000102);
constexpr LSTATUS ERROR_CLASS_MISMATCH = HresultFromBits(0xE0000201);

// A line of an open INF. Its members are the system's own.
struct INFCONTEXT {
  void* Inf;
  void* CurrentInf;
  UINT Section;
  UINT Line;
};
static_assert(sizeof(INFCONTEXT) == 24);

// The names of the INF files of `style` in a directory, as a multi-string. `size` receives what the whole list needs; a
// null `list` asks for that alone. Zero on failure; ERROR_INSUFFICIENT_BUFFER when `capacity` is too small.
BOOL SetupGetInfFileListW(const char16_t* directory, DWORD style, char16_t* list, DWORD capacity, DWORD* size);

// Opens an INF by its full path; the caller closes it. INVALID_HINF on failure. `infClass` null accepts any class;
// `errorLine`, when not null, receives the line of a syntax error, counted from 1.
HINF SetupOpenInfFileW(const char16_t* path, const char16_t* infClass, DWORD style, UINT* errorLine);
void SetupCloseInfFile(HINF inf);

// Finds the first line of a section, or its first line with the key when `key` is not null, in any letter case. Zero
// when there is none (ERROR_LINE_NOT_FOUND).
BOOL SetupFindFirstLineW(HINF inf, const char16_t* section, const char16_t* key, INFCONTEXT* line);

// A field of a line, its %strings% and the %numbers% of directories replaced; field 0 is the key. `size`, when not
// null, receives what the text needs; a null `text` asks for that alone. Zero on failure: ERROR_INVALID_PARAMETER when
// the line has no such field, ERROR_INSUFFICIENT_BUFFER when `capacity` is too small.
BOOL SetupGetStringFieldW(const INFCONTEXT* line, DWORD field, char16_t* text, DWORD capacity, DWORD* size);

// Copies an INF, named by its full path, into the INF directory under a name oemN.inf of its own, unless it is there
// already, and records the media location. `copyStyle` 0 copies it whatever is there. `destination` may be
// null; else it receives the new full path, whose file name `*component` points to, in `capacity` characters, of which
// `*size` are needed. Zero on failure.
BOOL SetupCopyOEMInfW(const char16_t* source, const char16_t* mediaLocation, DWORD mediaType, DWORD copyStyle,
                      char16_t* destination, DWORD capacity, DWORD* size, char16_t** component);

// The value of a key in a section of a file, without the quotes around it and without %strings% replaced; `fallback`
// when there is none. A text that does not fit is cut. Returns the length without the terminator.
DWORD GetPrivateProfileStringW(const char16_t* section, const char16_t* key, const char16_t* fallback, char16_t* text,
                               DWORD capacity, const char16_t* path);

}  // namespace platform
