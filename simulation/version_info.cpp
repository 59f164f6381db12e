// The simulated machine's version resources, read from real executables.
#include "platform/version_info.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "platform/text.h"
#include "simulation/bytes.h"
#include "simulation/machine.h"
#include "simulation/pe_image.h"

namespace platform {

using simulation::At;
using simulation::Bytes;
using simulation::From;
using simulation::Machine;
using simulation::Operation;

namespace {

// The system asks for room for the block in another character set too, with a mark in front of it.
constexpr std::size_t kConversionMark = 4;

BOOL Fail(LSTATUS code) {
  simulation::Current().lastError = static_cast<DWORD>(code);
  return 0;
}

// A version resource of a file; nothing, with the last error set, when there is none.
std::optional<std::string> ReadVersionResource(const char16_t* path) {
  LSTATUS rc;
  const std::optional<std::string> file = simulation::ReadFile(simulation::Current().files.RealPath(path), rc);
  if (!file) {
    Fail(rc);
    return std::nullopt;
  }
  const Bytes resource = simulation::VersionResource({reinterpret_cast<const BYTE*>(file->data()), file->size()});
  if (resource.empty()) {
    Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
    return std::nullopt;
  }
  return std::string(resource.begin(), resource.end());
}

// A node of a version block: its name, its value and what is below it. Every part ends where the memory does, and what
// is below it where the node does. The length of its value is not checked.
struct Node {
  std::u16string name;
  WORD valueLength;  // as the block has it; in characters for text
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
  // The end is known only of memory that GlobalAlloc returned.
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

}  // namespace platform
