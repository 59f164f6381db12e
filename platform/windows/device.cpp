#include "platform/device.h"

#include "platform/windows/cast.h"

namespace platform {

using windows::Os;

HANDLE CreateFileW(const char16_t* name, DWORD access, DWORD shareMode, void* securityAttributes, DWORD disposition,
                   DWORD flags, HANDLE templateFile) {
  return ::CreateFileW(Os(name), access, shareMode, static_cast<::SECURITY_ATTRIBUTES*>(securityAttributes),
                       disposition, flags, templateFile);
}

BOOL DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputBytes, void* output, DWORD outputBytes,
                     DWORD* returned, void* overlapped) {
  return ::DeviceIoControl(device, code, input, inputBytes, output, outputBytes, Os(returned),
                           static_cast<::OVERLAPPED*>(overlapped));
}

BOOL CloseHandle(HANDLE handle) { return ::CloseHandle(handle); }

}  // namespace platform
