// The simulated machine's version resources, read from real executables, and its movable memory.
#include "platform/version_info.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/text.h"
#include "simulation/machine.h"

namespace platform {

using simulation::Machine;
using simulation::Operation;

namespace {

using Bytes = std::span<const BYTE>;

// Where the executable format keeps what is read of it, in bytes.
constexpr std::size_t kHeaderOffset = 0x3C;
constexpr std::size_t kFileHeader = 4, kOptionalHeader = 24;  // from the header's signature on
constexpr std::size_t kSectionHeader = 40, kMaxSections = 96;
constexpr std::size_t kResourceDirectory = 2;  // among the data directories
constexpr WORD kVersionType = 16, kVersionId = 1;
constexpr DWORD kSubdirectory = 0x80000000;
// The system asks for room for the block in another character set too, with a mark in front of it.
constexpr std::size_t kConversionMark = 4;

BOOL Fail(LSTATUS code) {
  simulation::Current().lastError = static_cast<DWORD>(code);
  return 0;
}

Bytes From(Bytes bytes, std::size_t offset) { return bytes.subspan(std::min(offset, bytes.size())); }

// A number at an offset; nothing when it reaches beyond the end.
template <class Number>
std::optional<Number> At(Bytes bytes, std::size_t offset) {
  Number number;
  if (offset > bytes.size() || bytes.size() - offset < sizeof(number)) return std::nullopt;
  std::memcpy(&number, bytes.data() + offset, sizeof(number));
  return number;
}

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

// The version resource of an executable, in its first language. Empty when there is none.
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
  // Types, names, languages: three levels, whatever the tree says.
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

// A version resource of a file; nothing, with the last error set, when there is none.
std::optional<std::string> ReadVersionResource(const char16_t* path) {
  LSTATUS rc;
  const std::optional<std::string> file = simulation::ReadFile(simulation::Current().files.RealPath(path), rc);
  if (!file) {
    Fail(rc);
    return std::nullopt;
  }
  const Bytes resource = VersionResource({reinterpret_cast<const BYTE*>(file->data()), file->size()});
  if (resource.empty()) {
    Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
    return std::nullopt;
  }
  return std::string(resource.begin(), resource.end());
}

// A node of a version block: its name, its value and what is below it. Every part ends where the memory does, and what
// is below it where the node does; its value is believed.
struct Node {
  std::u16string name;
  WORD valueLength;  // as it is said; in characters for text
  std::size_t bytes;
  Bytes value;
  Bytes children;
};

constexpr std::size_t Aligned(std::size_t offset) { return (offset + 3) & ~std::size_t{3}; }

std::optional<Node> ReadNode(Bytes bytes) {
  const std::optional<WORD> length = At<WORD>(bytes, 0), valueLength = At<WORD>(bytes, 2), type = At<WORD>(bytes, 4);
  if (!length || !valueLength || !type) return std::nullopt;
  Node node = {.name = {}, .valueLength = *valueLength, .bytes = *length, .value = {}, .children = {}};
  std::size_t offset = 6;
  for (;; offset += 2) {
    const std::optional<char16_t> character = At<char16_t>(bytes, offset);
    if (!character) return std::nullopt;
    if (*character == u'\0') break;
    node.name.push_back(*character);
  }
  node.value = From(bytes, Aligned(offset + 2));
  const Bytes inside = bytes.first(std::min<std::size_t>(*length, bytes.size()));
  node.children = From(inside, Aligned(offset + 2) + Aligned(std::size_t{*valueLength} * (*type != 0 ? 2 : 1)));
  return node;
}

std::optional<Node> Child(const Node& parent, std::u16string_view name) {
  for (Bytes bytes = parent.children; !bytes.empty();) {
    std::optional<Node> node = ReadNode(bytes);
    if (!node || node->bytes == 0) return std::nullopt;
    if (EqualNoCase(node->name, name)) return node;
    bytes = From(bytes, Aligned(node->bytes));
  }
  return std::nullopt;
}

}  // namespace

DWORD GetFileVersionInfoSizeW(const char16_t* path, DWORD* unused) {
  if (unused != nullptr) *unused = 0;
  if (const auto code = simulation::Current().Enter(Operation::GetFileVersionInfoSizeW, {.name = path})) {
    Fail(*code);
    return 0;
  }
  const std::optional<std::string> resource = ReadVersionResource(path);
  return resource ? static_cast<DWORD>(Aligned(resource->size()) * 2 + kConversionMark) : 0;
}

BOOL GetFileVersionInfoW(const char16_t* path, DWORD, DWORD bytes, void* block) {
  if (const auto code = simulation::Current().Enter(Operation::GetFileVersionInfoW, {.name = path, .number2 = bytes}))
    return Fail(*code);
  const std::optional<std::string> resource = ReadVersionResource(path);
  if (!resource) return 0;
  std::memcpy(block, resource->data(), std::min<std::size_t>(bytes, resource->size()));
  return 1;
}

BOOL VerQueryValueW(const void* block, const char16_t* entry, void** value, UINT* length) {
  Machine& machine = simulation::Current();
  if (const auto code = machine.Enter(Operation::VerQueryValueW, {.name = entry})) return Fail(*code);
  const std::lock_guard lock(machine.mutex);
  // Only of the memory that was handed out is it known where it ends.
  const auto memory = std::find_if(machine.globalMemory.begin(), machine.globalMemory.end(),
                                   [block](const auto& each) { return each.second->bytes.data() == block; });
  if (memory == machine.globalMemory.end()) return Fail(ERROR_INVALID_PARAMETER);
  std::optional<Node> node = ReadNode(memory->second->bytes);
  for (std::u16string_view path(entry); node;) {
    path.remove_prefix(std::min(path.find_first_not_of(u'\\'), path.size()));
    if (path.empty()) break;
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    node = Child(*node, path.substr(0, end));
    path.remove_prefix(end);
  }
  if (!node) return Fail(ERROR_RESOURCE_TYPE_NOT_FOUND);
  *value = const_cast<BYTE*>(node->value.data());
  *length = node->valueLength;
  return 1;
}

HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes) {
  Machine& machine = simulation::Current();
  if (machine.Enter(Operation::GlobalAlloc, {.number = static_cast<std::int64_t>(bytes), .number2 = flags})) {
    Fail(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  auto memory = std::make_unique<simulation::GlobalMemory>();
  memory->bytes.resize(bytes);
  simulation::GlobalMemory* const handle = memory.get();
  const std::lock_guard lock(machine.mutex);
  machine.globalMemory.emplace(handle, std::move(memory));
  return handle;
}

void* GlobalLock(HGLOBAL memory) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GlobalLock);
  const std::lock_guard lock(machine.mutex);
  const auto found = machine.globalMemory.find(memory);
  if (code || found == machine.globalMemory.end()) {
    Fail(code.value_or(ERROR_INVALID_HANDLE));
    return nullptr;
  }
  ++found->second->locks;
  return found->second->bytes.data();
}

BOOL GlobalUnlock(HGLOBAL memory) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GlobalUnlock);
  const std::lock_guard lock(machine.mutex);
  const auto found = machine.globalMemory.find(memory);
  if (code || found == machine.globalMemory.end()) return Fail(code.value_or(ERROR_INVALID_HANDLE));
  if (found->second->locks == 0) return Fail(ERROR_NOT_LOCKED);
  return --found->second->locks != 0 ? 1 : Fail(ERROR_SUCCESS);
}

HGLOBAL GlobalFree(HGLOBAL memory) {
  Machine& machine = simulation::Current();
  const auto code = machine.Enter(Operation::GlobalFree);
  const std::lock_guard lock(machine.mutex);
  const bool isKnown = machine.globalMemory.erase(memory) == 1;
  if (code || (!isKnown && memory != nullptr)) {
    Fail(code.value_or(ERROR_INVALID_HANDLE));
    return memory;
  }
  return nullptr;
}

}  // namespace platform
