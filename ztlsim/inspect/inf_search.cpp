#include "ztlsim/inspect/inf_search.h"

#include <utility>

#include "module/install/miniport_inf.h"
#include "module/install/versions.h"
#include "module/names.h"
#include "platform/multi_string.h"
#include "platform/system_info.h"
#include "platform/task_text.h"
#include "ztlsim/inspection.h"

namespace ztlsim {

using namespace platform;

namespace {

constexpr UINT kDirectoryCapacity = 260;

// The text that a function of the module returns, if it does.
template <class Function, class... Arguments>
std::optional<std::u16string> TextFrom(Function function, Arguments... arguments) {
  char16_t* text = nullptr;
  function(arguments..., &text);
  const TaskText owner(text);
  return text != nullptr ? std::optional<std::u16string>(text) : std::nullopt;
}

std::optional<std::u16string> MediaRootOf(const std::u16string& inf) {
  const HINF file = SetupOpenInfFileW(inf.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
  if (file == INVALID_HINF) return std::nullopt;
  auto mediaRoot = TextFrom(ztl::HrGetKeyValue, file, u"InfSourcePathInfo", u"OriginalInfSourcePath", DWORD{1});
  SetupCloseInfFile(file);
  return mediaRoot;
}

}  // namespace

std::string FileVersion::Text() const {
  return std::to_string(packed >> 24) + "." + std::to_string(packed >> 16 & 0xFF) + "." +
         std::to_string(packed >> 8 & 0xFF) + "." + std::to_string(build);
}

InfSearch SearchInfFiles(simulation::Machine& machine) {
  const Inspection inspection(machine);
  InfSearch search;
  char16_t directory[kDirectoryCapacity] = {};
  if (GetSystemDirectoryW(directory, kDirectoryCapacity) < kDirectoryCapacity) {
    FileVersion driver = {};
    driver.packed = ztl::GetFileVersion(directory, ztl::kDriverFile, &driver.build);
    if (driver.packed != 0) search.driver = driver;
  }
  if (GetSystemWindowsDirectoryW(directory, kDirectoryCapacity) >= kDirectoryCapacity) return search;
  const std::u16string infDirectory = std::u16string(directory) + u"\\Inf\\";
  DWORD size = 0;
  if (!SetupGetInfFileListW(infDirectory.c_str(), INF_STYLE_WIN4, nullptr, 0, &size)) return search;
  std::u16string list(size, u'\0');
  if (!SetupGetInfFileListW(infDirectory.c_str(), INF_STYLE_WIN4, list.data(), size, nullptr)) return search;
  ztl::OptFileSearch(list.data(), size);
  for (const std::u16string_view name : MultiStringView(list.data(), size)) {
    InfCandidate candidate = {.path = infDirectory + std::u16string(name), .version = {}, .rank = 0};
    if (!ztl::IsFilterInf(candidate.path.c_str())) continue;
    FileVersion& version = candidate.version;
    version.packed = ztl::GetInfVersion(candidate.path.c_str(), &version.build);
    if (search.driver)
      candidate.rank = ztl::RankOf(search.driver->packed, search.driver->build, version.packed, version.build);
    search.candidates.push_back(std::move(candidate));
  }
  search.chosen = TextFrom(ztl::HrGetProtocolInf, infDirectory.c_str());
  if (search.chosen) search.mediaRoot = MediaRootOf(*search.chosen);
  return search;
}

}  // namespace ztlsim
