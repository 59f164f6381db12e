#include "simulation/pe_image.h"

#include <algorithm>

namespace simulation {
namespace {

// Where the executable format keeps what is read of it, in bytes.
constexpr std::size_t kHeaderOffset = 0x3C;
constexpr std::size_t kFileHeader = 4, kOptionalHeader = 24;  // from the header's signature on
constexpr std::size_t kSectionHeader = 40, kMaxSections = 96;
constexpr std::size_t kResourceDirectory = 2;  // among the data directories
constexpr WORD kVersionType = 16, kVersionId = 1;
constexpr DWORD kSubdirectory = 0x80000000;

// The executable's bytes from an address on, as far as its section holds them; empty for an address outside.
Bytes AtAddress(Bytes file, Bytes sections, DWORD address) {
  for (; sections.size() >= kSectionHeader; sections = sections.subspan(kSectionHeader)) {
    const DWORD start = *At<DWORD>(sections, 12), size = *At<DWORD>(sections, 16);
    if (address < start || address - start >= size) continue;
    const Bytes raw = From(file, *At<DWORD>(sections, 20));
    return From(raw.first(std::min<std::size_t>(size, raw.size())), address - start);
  }
  return {};
}

// The entry of a resource directory with this id, or its first one. Nothing when there is none.
std::optional<DWORD> Entry(Bytes resources, std::size_t directory, std::optional<WORD> id) {
  const std::optional<WORD> named = At<WORD>(resources, directory + 12), numbered = At<WORD>(resources, directory + 14);
  if (!named || !numbered) return std::nullopt;
  const std::size_t count = std::size_t{*named} + *numbered;
  for (std::size_t i = id ? *named : 0; i < count; ++i) {
    const std::size_t entry = directory + 16 + i * 8;
    const std::optional<DWORD> target = At<DWORD>(resources, entry + 4);
    if (!target) return std::nullopt;
    if (!id || *At<DWORD>(resources, entry) == DWORD{*id}) return target;
  }
  return std::nullopt;
}

}  // namespace

Bytes VersionResource(Bytes file) {
  if (At<WORD>(file, 0) != WORD{0x5A4D}) return {};  // MZ
  const Bytes header = From(file, At<DWORD>(file, kHeaderOffset).value_or(0));
  if (At<DWORD>(header, 0) != DWORD{0x4550}) return {};  // PE
  const WORD sectionCount = At<WORD>(header, kFileHeader + 2).value_or(0);
  const WORD optionalSize = At<WORD>(header, kFileHeader + 16).value_or(0);
  const Bytes optional = From(header, kOptionalHeader);
  const WORD magic = At<WORD>(optional, 0).value_or(0);
  if (magic != 0x10B && magic != 0x20B) return {};  // 32 and 64 bits
  const std::size_t directories = magic == 0x10B ? 96 : 112;
  if (At<DWORD>(optional, directories - 4).value_or(0) <= kResourceDirectory) return {};
  const DWORD address = At<DWORD>(optional, directories + kResourceDirectory * 8).value_or(0);
  Bytes sections = From(optional, optionalSize);
  sections = sections.first(
      std::min({sections.size(), std::size_t{sectionCount} * kSectionHeader, kMaxSections * kSectionHeader}));

  const Bytes resources = AtAddress(file, sections, address);
  // Types, names, languages: three levels, whatever the tree contains.
  std::size_t place = 0;
  for (const int level : {1, 2, 3}) {
    const std::optional<WORD> id = level == 1   ? std::optional(kVersionType)
                                   : level == 2 ? std::optional(kVersionId)
                                                : std::nullopt;
    const std::optional<DWORD> entry = Entry(resources, place, id);
    if (!entry || ((*entry & kSubdirectory) != 0) != (level < 3)) return {};
    place = *entry & ~kSubdirectory;
  }
  const std::optional<DWORD> dataAddress = At<DWORD>(resources, place), size = At<DWORD>(resources, place + 4);
  if (!dataAddress || !size) return {};
  const Bytes data = AtAddress(file, sections, *dataAddress);
  return *size <= data.size() ? data.first(*size) : Bytes();
}

}  // namespace simulation
