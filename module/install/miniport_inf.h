// Installs the miniport's INF from the package that the filter was installed from.
//
// The package's directory is recorded in the filter's own INF as the system has stored it, so that one is found first,
// among all INF files of the Windows directory. Texts that are handed out are freed with CoTaskMemFree by the receiver;
// the pointer is null when there is none.
#pragma once

#include "platform/setup_files.h"
#include "platform/types.h"

namespace ztl {

// How well an INF's version fits the installed driver's, 1 the best.
constexpr int RankOf(platform::DWORD installed, platform::DWORD installedBuild, platform::DWORD version,
                     platform::DWORD build) {
  if (installed == version) return installedBuild == build ? 1 : 2;
  return installed >> 16 == version >> 16 ? 3 : 4;
}

// Finds the filter's INF and installs "ztl2000m.inf" from its media root directory. 0, or the COM failure code of the
// first step that failed.
platform::HRESULT HrCopyMiniportInf();

// The full path of the INF in `infDirectory` that fits the installed driver best, into `*infPath`. Returns 0 or a COM
// failure code: that of ERROR_FILE_NOT_FOUND when no INF is the filter's. After that of ERROR_NOT_ENOUGH_MEMORY a path
// may have been found all the same.
platform::HRESULT HrGetProtocolInf(const char16_t* infDirectory, char16_t** infPath);

// Keeps in a multi-string of file names, in a buffer of `capacity` characters, those that begin with "oem" and, after
// them, those that begin with "zt". Returns `list`; it is unchanged when memory runs out.
char16_t* OptFileSearch(char16_t* list, platform::DWORD capacity);

// The component id of an INF: field 2 of the first line of its models section. A COM failure code when it cannot be
// opened or read.
platform::HRESULT HrGetPnpID(const char16_t* infPath, char16_t** pnpId);

// Whether an INF's component id is the filter's.
bool IsFilterInf(const char16_t* infPath);

// Field `fieldIndex` of the first line of a section, or of its line with the key when `key` is not null. Returns 0,
// the COM failure code of the call that failed, or that of ERROR_NOT_ENOUGH_MEMORY.
platform::HRESULT HrGetKeyValue(platform::HINF inf, const char16_t* section, const char16_t* key,
                                platform::DWORD fieldIndex, char16_t** value);

}  // namespace ztl
