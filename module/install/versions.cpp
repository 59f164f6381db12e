#include "module/install/versions.h"

#include <cstdint>
#include <limits>
#include <utility>

#include "module/log/log_facility.h"
#include "platform/setup_files.h"
#include "platform/task_text.h"
#include "platform/text.h"
#include "platform/version_info.h"

namespace ztl {

using namespace platform;

namespace {

constexpr DWORD kPathCapacity = 260;
constexpr DWORD kDriverVerCapacity = 260;

constexpr bool IsSpace(char16_t c) {
  return (c >= u'\t' && c <= u'\r') || (c >= 0x2000 && c <= 0x200A) ||
         std::u16string_view(u" \x00A0\x1680\x2028\x2029\x202F\x205F\x3000").find(c) != std::u16string_view::npos;
}

// The value of a decimal digit in any script that the runtime knows; 10 for any other character.
constexpr unsigned DigitValue(char16_t c) {
  constexpr char16_t kZeros[] = {u'0',   0x0660, 0x06F0, 0x0966, 0x09E6, 0x0A66, 0x0AE6, 0x0B66, 0x0C66,
                                 0x0CE6, 0x0D66, 0x0E50, 0x0ED0, 0x0F20, 0x1040, 0x17E0, 0x1810, 0xFF10};
  for (const char16_t zero : kZeros)
    if (c >= zero && c < zero + 10) return static_cast<unsigned>(c - zero);
  return 10;
}

// The integer at the front of a text, as the runtime's _wtoi reads it; beyond 32 bits, the nearest that there is.
DWORD LeadingInteger(std::u16string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  const bool negative = text.starts_with(u'-');
  if (negative || text.starts_with(u'+')) text.remove_prefix(1);
  std::int64_t number = 0;
  for (; !text.empty() && DigitValue(text.front()) < 10; text.remove_prefix(1)) {
    number = number * 10 + DigitValue(text.front());
    if (number > std::numeric_limits<std::int32_t>::max())
      return static_cast<DWORD>(negative ? std::numeric_limits<std::int32_t>::min()
                                         : std::numeric_limits<std::int32_t>::max());
  }
  return static_cast<DWORD>(negative ? -number : number);
}

// A file's version block, in memory that is locked as long as the object lives.
class VersionBlock {
 public:
  VersionBlock() = default;
  ~VersionBlock() {
    if (data_ != nullptr) platform::GlobalUnlock(memory_);
    if (memory_ != nullptr) platform::GlobalFree(memory_);
  }
  VersionBlock(const VersionBlock&) = delete;
  VersionBlock& operator=(const VersionBlock&) = delete;

  bool Allocate(DWORD bytes) { return (memory_ = platform::GlobalAlloc(GMEM_MOVEABLE, bytes_ = bytes)) != nullptr; }
  // The memory is freed when it cannot be locked.
  bool Lock() {
    data_ = platform::GlobalLock(memory_);
    if (data_ == nullptr) platform::GlobalFree(std::exchange(memory_, nullptr));
    return data_ != nullptr;
  }

  // Null when the block cannot be read, or does not hold the whole root entry, whatever its lengths are.
  const VS_FIXEDFILEINFO* Read(const char16_t* path) {
    void* value = nullptr;
    UINT length = 0;
    if (!platform::GetFileVersionInfoW(path, 0, bytes_, data_) ||
        !platform::VerQueryValueW(data_, u"\\", &value, &length) || length < sizeof(VS_FIXEDFILEINFO))
      return nullptr;
    const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(value) - reinterpret_cast<std::uintptr_t>(data_);
    const bool isInside = bytes_ >= sizeof(VS_FIXEDFILEINFO) && offset <= bytes_ - sizeof(VS_FIXEDFILEINFO);
    return isInside ? static_cast<const VS_FIXEDFILEINFO*>(value) : nullptr;
  }

 private:
  HGLOBAL memory_ = nullptr;
  void* data_ = nullptr;
  DWORD bytes_ = 0;
};

}  // namespace

DWORD ParseVersion(std::u16string_view text, DWORD* build) {
  DWORD parts[4] = {};
  for (DWORD& part : parts) {
    part = LeadingInteger(text);
    if (&part == &parts[3] && build != nullptr) *build = part;
    const std::size_t dot = text.find(u'.');
    if (dot == text.npos) break;
    text.remove_prefix(dot + 1);
  }
  return PackVersion(parts[0], parts[1], parts[2]);
}

DWORD GetFileVersion(const char16_t* directory, const char16_t* fileName, DWORD* build) {
  char16_t path[kPathCapacity];
  if (!Join(path, directory, PathSeparator(directory), fileName)) return 0;
  DWORD unused = 0;
  const DWORD bytes = platform::GetFileVersionInfoSizeW(path, &unused);
  if (bytes == 0) return 0;
  VersionBlock block;
  if (!block.Allocate(bytes)) {
    LogMessage(g_ModuleLog, SEV_ERROR, "GetFileVersion no memory");
    return 0;
  }
  if (!block.Lock()) {
    LogMessage(g_ModuleLog, SEV_ERROR, "GetFileVersion can't lock memory");
    return 0;
  }
  DWORD version = 0;
  DWORD fourth = 0;
  if (const VS_FIXEDFILEINFO* const info = block.Read(path)) {
    version = PackVersion(info->dwFileVersionMS >> 16, info->dwFileVersionMS, info->dwFileVersionLS >> 16);
    fourth = info->dwFileVersionLS & 0xFFFF;
    if (build != nullptr) *build = fourth;
  }
  LogMessage(g_ModuleLog, SEV_INFO, "File Version <%u.%u.%u.%u> Build# %x Path <%S>", version >> 24,
             version >> 16 & 0xFF, version >> 8 & 0xFF, fourth, build != nullptr ? *build : 0,
             static_cast<const char16_t*>(path));
  return version;
}

DWORD GetInfVersion(const char16_t* infPath, DWORD* build) {
  char16_t text[kDriverVerCapacity] = {};
  platform::GetPrivateProfileStringW(u"Version", u"DriverVer", u"", text, kDriverVerCapacity, infPath);
  std::u16string_view value = text;
  DWORD version = 0;
  if (const std::size_t comma = value.find(u','); comma != value.npos) {
    value.remove_prefix(comma + 1);
    version = ParseVersion(value, build);
  }
  LogMessage(g_ModuleLog, SEV_INFO, "INF Version <%S> Build# %x Path <%S>", static_cast<const char16_t*>(text),
             build != nullptr ? *build : 0, infPath);
  return version;
}

}  // namespace ztl
