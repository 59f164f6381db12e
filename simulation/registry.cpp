#include "simulation/registry.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

namespace simulation {
namespace {

constexpr LSTATUS ERROR_NOACCESS = 998;
constexpr DWORD DELETE_ACCESS = 0x00010000;

struct PredefinedRoot {
  std::uint32_t number;
  const char16_t* path;
};
constexpr PredefinedRoot kPredefinedRoots[] = {
    {0x80000000u, u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes"},  // HKEY_CLASSES_ROOT
    {0x80000001u, u"HKEY_CURRENT_USER"},
    {0x80000002u, u"HKEY_LOCAL_MACHINE"},
    {0x80000003u, u"HKEY_USERS"},
    {0x80000005u, u"HKEY_CURRENT_CONFIG"},
};

const PredefinedRoot* FindPredefinedRoot(HKEY key) {
  for (const PredefinedRoot& root : kPredefinedRoots)
    if (key == PredefinedKey(root.number)) return &root;
  return nullptr;
}

// Below zero, zero or above as `upper`, which is in upper case, comes before, equals or comes after `text`.
int CompareToUpper(std::u16string_view upper, std::u16string_view text) {
  const std::size_t common = std::min(upper.size(), text.size());
  for (std::size_t i = 0; i < common; ++i)
    if (const int difference = upper[i] - UpperCase(text[i])) return difference;
  return upper.size() < text.size() ? -1 : upper.size() > text.size();
}

bool EqualWithoutCase(std::u16string_view a, std::u16string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char16_t x, char16_t y) { return x == y || UpperCase(x) == UpperCase(y); });
}

// Where the subkey `name` is, or would be inserted.
std::size_t SubkeyPlace(const RegistryKey& key, std::u16string_view name) {
  const auto place = std::lower_bound(
      key.subkeys.begin(), key.subkeys.end(), name,
      [](const auto& subkey, std::u16string_view text) { return CompareToUpper(subkey->upperName, text) < 0; });
  return static_cast<std::size_t>(place - key.subkeys.begin());
}

bool IsSubkeyAt(const RegistryKey& key, std::size_t place, std::u16string_view name) {
  return place < key.subkeys.size() && CompareToUpper(key.subkeys[place]->upperName, name) == 0;
}

// Where the subkey is that enumerates at an index that there is: the volatile ones come last.
std::size_t EnumeratedPlace(const RegistryKey& key, std::size_t index) {
  for (const bool isVolatile : {false, true})
    for (std::size_t place = 0; place < key.subkeys.size(); ++place)
      if (key.subkeys[place]->isVolatile == isVolatile && index-- == 0) return place;
  return 0;
}

// Where the value `name` is; their number when there is none.
std::size_t ValuePlace(const RegistryKey& key, std::u16string_view name) {
  const auto place = std::find_if(key.values.begin(), key.values.end(),
                                  [name](const RegistryValue& value) { return EqualWithoutCase(value.name, name); });
  return static_cast<std::size_t>(place - key.values.begin());
}

// The target of a link, and any other key itself; null when there is none.
RegistryKey* Follow(RegistryKey* key) {
  if (!key || !key->link) return key;
  return key->link->deleted ? nullptr : key->link.get();
}

// The names in a path, one after the other; doubled and trailing backslashes are skipped.
class PathNames {
 public:
  explicit PathNames(const char16_t* path) : rest_(path) {}

  std::optional<std::u16string_view> Next() {
    while (*rest_ == u'\\') ++rest_;
    if (!*rest_) return std::nullopt;
    const char16_t* const begin = rest_;
    while (*rest_ && *rest_ != u'\\') ++rest_;
    return std::u16string_view(begin, static_cast<std::size_t>(rest_ - begin));
  }

 private:
  const char16_t* rest_;
};

bool IsEmpty(const char16_t* text) { return !text || !*text; }

// The names of a full path, with the target of HKEY_CLASSES_ROOT in its place.
std::u16string WithoutAlias(std::u16string_view fullPath) {
  constexpr std::u16string_view kAlias = u"HKEY_CLASSES_ROOT";
  const std::u16string_view hive = fullPath.substr(0, fullPath.find(u'\\'));
  std::u16string path(fullPath);
  if (EqualWithoutCase(hive, kAlias)) path.replace(0, kAlias.size(), kPredefinedRoots[0].path);
  return path;
}

std::u16string FullPath(const RegistryKey& key) {
  std::u16string path = key.name;
  for (const RegistryKey* above = key.parent; above && above->parent; above = above->parent)
    path.insert(0, above->name + u'\\');
  return path;
}

// Marks the key and everything below it as deleted and takes the tree apart, so that no destructor has keys below it to
// destroy: no recursion, however deep the tree is, and no link that keeps a key above it alive.
void Detach(std::shared_ptr<RegistryKey> top) {
  std::vector<std::shared_ptr<RegistryKey>> pending;
  pending.push_back(std::move(top));
  while (!pending.empty()) {
    const std::shared_ptr<RegistryKey> key = std::move(pending.back());
    pending.pop_back();
    key->deleted = true;
    key->parent = nullptr;
    std::move(key->subkeys.begin(), key->subkeys.end(), std::back_inserter(pending));
    key->subkeys.clear();
  }
}

bool IsText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

char16_t CharacterAt(const BYTE* data) {
  char16_t character;
  std::memcpy(&character, data, sizeof character);
  return character;
}

LSTATUS ReadValue(const RegistryValue& value, DWORD* type, BYTE* data, DWORD* dataBytes) {
  if (type) *type = value.type;
  if (!dataBytes) return ERROR_SUCCESS;
  const std::size_t size = value.data.size();
  const std::size_t capacity = std::exchange(*dataBytes, static_cast<DWORD>(size));
  if (!data) return ERROR_SUCCESS;
  if (size > capacity) return ERROR_MORE_DATA;
  std::copy(value.data.begin(), value.data.end(), data);
  if (IsText(value.type) && size >= 2 && capacity - size >= 2 && CharacterAt(data + size - 2))
    std::fill_n(data + size, 2, BYTE{0});
  return ERROR_SUCCESS;
}

// For a capacity in characters that is larger than the name.
void CopyName(const std::u16string& name, char16_t* buffer, DWORD* length) {
  std::memcpy(buffer, name.c_str(), (name.size() + 1) * sizeof(char16_t));
  *length = static_cast<DWORD>(name.size());
}

}  // namespace

std::size_t RegistryKey::Levels() const {
  std::size_t levels = 0;
  for (const RegistryKey* above = parent; above && above->parent; above = above->parent) ++levels;
  return levels;
}

RegistryValues::Vector& RegistryValues::Edit() {
  if (!shared_)
    shared_ = std::make_shared<Vector>();
  else if (shared_.use_count() != 1)
    shared_ = std::make_shared<Vector>(*shared_);
  return *shared_;
}

RegistryKey* RegistryKey::FindSubkey(std::u16string_view subkey) const {
  const std::size_t place = SubkeyPlace(*this, subkey);
  return IsSubkeyAt(*this, place, subkey) ? subkeys[place].get() : nullptr;
}

const RegistryValue* RegistryKey::FindValue(std::u16string_view value) const {
  const std::size_t place = ValuePlace(*this, value);
  return place == values.size() ? nullptr : &values[place];
}

RegistryKey& RegistryKey::CreateSubkey(std::u16string_view subkey) {
  const std::size_t place = SubkeyPlace(*this, subkey);
  if (IsSubkeyAt(*this, place, subkey)) {
    RegistryKey& existing = *subkeys[place];
    if (existing.link && existing.link->deleted) existing.link.reset();
    return existing;
  }
  auto created = std::make_shared<RegistryKey>();
  created->name = subkey;
  created->upperName = UpperCase(subkey);
  created->parent = this;
  created->isVolatile = isVolatile;
  return **subkeys.insert(subkeys.begin() + static_cast<std::ptrdiff_t>(place), std::move(created));
}

void RegistryKey::SetValue(std::u16string_view value, DWORD type, std::vector<BYTE> data) {
  const std::size_t place = ValuePlace(*this, value);
  RegistryValues::Vector& own = values.Edit();
  if (place == own.size()) {
    own.push_back({std::u16string(value), type, std::move(data)});
  } else {
    own[place].type = type;
    own[place].data = std::move(data);
  }
}

bool RegistryKey::DeleteValue(std::u16string_view value) {
  const std::size_t place = ValuePlace(*this, value);
  if (place == values.size()) return false;
  RegistryValues::Vector& own = values.Edit();
  own.erase(own.begin() + static_cast<std::ptrdiff_t>(place));
  return true;
}

bool RegistryKey::DeleteSubkey(std::u16string_view subkey) {
  const std::size_t place = SubkeyPlace(*this, subkey);
  if (!IsSubkeyAt(*this, place, subkey)) return false;
  std::shared_ptr<RegistryKey> removed = std::move(subkeys[place]);
  subkeys.erase(subkeys.begin() + static_cast<std::ptrdiff_t>(place));
  Detach(std::move(removed));
  return true;
}

Registry::Registry() : root_(std::make_shared<RegistryKey>()), nothing_(std::make_shared<RegistryKey>()) {}

Registry::~Registry() { Detach(std::move(root_)); }

RegistryKey* Registry::Find(std::u16string_view fullPath) {
  const std::u16string path = WithoutAlias(fullPath);
  PathNames names(path.c_str());
  RegistryKey* key = root_.get();
  while (const auto name = key ? names.Next() : std::nullopt) key = Follow(key->FindSubkey(*name));
  return key;
}

RegistryKey& Registry::Create(std::u16string_view fullPath) {
  const std::u16string path = WithoutAlias(fullPath);
  PathNames names(path.c_str());
  RegistryKey* key = root_.get();
  while (const auto name = names.Next()) key = Follow(&key->CreateSubkey(*name));
  return *key;
}

void Registry::Link(std::u16string_view linkPath, std::u16string_view targetPath) {
  RegistryKey& target = Create(targetPath);
  const std::size_t slash = linkPath.rfind(u'\\');
  RegistryKey& link = Create(linkPath.substr(0, slash)).CreateSubkey(linkPath.substr(slash + 1));
  link.link = target.shared_from_this();
}

std::unique_ptr<Registry> Registry::Copy() const {
  auto copy = std::make_unique<Registry>();
  std::vector<std::pair<const RegistryKey*, RegistryKey*>> pending{{root_.get(), copy->root_.get()}};
  std::vector<RegistryKey*> links;
  while (!pending.empty()) {
    const auto [from, to] = pending.back();
    pending.pop_back();
    RegistryKey* const parent = to->parent;
    *to = *from;
    to->parent = parent;
    if (to->link) links.push_back(to);
    for (std::shared_ptr<RegistryKey>& subkey : to->subkeys) {
      const RegistryKey* const original = subkey.get();
      subkey = std::make_shared<RegistryKey>();
      subkey->parent = to;
      pending.emplace_back(original, subkey.get());
    }
  }
  for (RegistryKey* const link : links) {
    const RegistryKey& target = *link->link;
    if (!target.deleted) {
      link->link = copy->Find(FullPath(target))->shared_from_this();
    } else {
      link->link = std::make_shared<RegistryKey>();
      link->link->deleted = true;
    }
  }
  return copy;
}

void Registry::CopyFrom(const Registry& other) { std::swap(root_, other.Copy()->root_); }

void Registry::Restart() {
  for (std::size_t slot = 0; slot < handles_.size(); ++slot)
    if (handles_[slot].key) Close(HandleValue(slot, handles_[slot].generation));
  std::vector<RegistryKey*> pending{root_.get()};
  while (!pending.empty()) {
    RegistryKey* const key = pending.back();
    pending.pop_back();
    std::erase_if(key->subkeys, [](const std::shared_ptr<RegistryKey>& subkey) {
      if (subkey->isVolatile) Detach(subkey);
      return subkey->isVolatile;
    });
    for (const auto& subkey : key->subkeys) pending.push_back(subkey.get());
  }
}

std::size_t Registry::OpenHandles() const { return handles_.size() - freeHandles_.size(); }

std::vector<std::u16string> Registry::OpenHandlePaths() const {
  std::vector<std::u16string> paths;
  for (const Handle& handle : handles_)
    if (handle.key) paths.push_back(FullPath(*handle.key));
  return paths;
}

std::u16string Registry::PathOf(HKEY key) const {
  if (const PredefinedRoot* const root = FindPredefinedRoot(key)) return root->path;
  const Handle* const handle = FindHandle(key);
  return handle ? FullPath(*handle->key) : std::u16string();
}

// A handle is four times a number made of the slot's number, counted from 1, and the slot's generation above it: never
// a predefined root (these have the highest bit set), and another one after each close.
constexpr unsigned kSlotBits = 24;
constexpr std::uintptr_t kMaxSlots = (std::uintptr_t{1} << kSlotBits) - 1;
static_assert(sizeof(HKEY) == 8);

HKEY Registry::HandleValue(std::size_t slot, std::uint32_t generation) {
  return reinterpret_cast<HKEY>((std::uintptr_t{generation} << kSlotBits | (slot + 1)) << 2);
}

const Registry::Handle* Registry::FindHandle(HKEY key) const {
  const std::size_t slot = (reinterpret_cast<std::uintptr_t>(key) >> 2 & kMaxSlots) - 1;
  if (slot >= handles_.size() || !handles_[slot].key) return nullptr;
  return HandleValue(slot, handles_[slot].generation) == key ? &handles_[slot] : nullptr;
}

// The key of a handle that was opened with the rights `access`, or of a predefined root. `create` chooses what is done
// for a root that has no key yet: create it, or find an empty key that is part of no tree.
LSTATUS Registry::Resolve(HKEY key, DWORD access, bool create, RegistryKey** found) {
  if (const Handle* const handle = FindHandle(key)) {
    if (handle->key->deleted) return ERROR_KEY_DELETED;
    if ((handle->access & access) != access) return ERROR_ACCESS_DENIED;
    *found = handle->key.get();
    return ERROR_SUCCESS;
  }
  const PredefinedRoot* const root = FindPredefinedRoot(key);
  if (!root) return ERROR_INVALID_HANDLE;
  PathNames names(root->path);
  RegistryKey* at = root_.get();
  while (const auto name = at ? names.Next() : std::nullopt)
    at = Follow(create ? &at->CreateSubkey(*name) : at->FindSubkey(*name));
  *found = at ? at : nothing_.get();
  return ERROR_SUCCESS;
}

LSTATUS Registry::Grant(RegistryKey& key, DWORD access, HKEY* result) {
  DWORD granted = access & ~MAXIMUM_ALLOWED;
  if (granted & key.denied) return ERROR_ACCESS_DENIED;
  if (access & MAXIMUM_ALLOWED) {
    granted |= KEY_ALL_ACCESS & ~key.denied;
    if (!granted) return ERROR_ACCESS_DENIED;
  }
  std::size_t slot = handles_.size();
  if (!freeHandles_.empty()) {
    slot = freeHandles_.back();
    freeHandles_.pop_back();
  } else if (slot < kMaxSlots) {
    handles_.emplace_back();
  } else {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  handles_[slot].key = key.shared_from_this();
  handles_[slot].access = granted;
  handles_[slot].enumerated = 0;
  *result = HandleValue(slot, handles_[slot].generation);
  return ERROR_SUCCESS;
}

LSTATUS Registry::Open(HKEY key, const char16_t* subKey, DWORD access, HKEY* result) {
  if (!result) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, 0, false, &at)) return status;
  if (IsEmpty(subKey)) {
    if (!FindPredefinedRoot(key)) return Grant(*at, access, result);
    *result = key;  // as in Windows, a predefined root opens as itself
    return ERROR_SUCCESS;
  }
  if (*subKey == u'\\') return ERROR_BAD_PATHNAME;
  const Handle* const handle = FindHandle(key);
  std::size_t likelyPlace = handle ? handle->enumerated : 0;
  PathNames names(subKey);
  while (const auto name = names.Next()) {
    if (name->size() > kMaxKeyName) return ERROR_INVALID_PARAMETER;
    const bool isThere = IsSubkeyAt(*at, likelyPlace, *name);
    at = Follow(isThere ? at->subkeys[likelyPlace].get() : at->FindSubkey(*name));
    if (!at) return ERROR_FILE_NOT_FOUND;
    likelyPlace = 0;
  }
  return Grant(*at, access, result);
}

// As in Windows, the rights of `key` itself do not count: creating and deleting look at the keys of the tree.
LSTATUS Registry::CreateKey(HKEY key, const char16_t* subKey, DWORD options, DWORD access, HKEY* result,
                            DWORD* disposition) {
  if (!result || (options & ~REG_OPTION_VOLATILE)) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  DWORD outcome = REG_OPENED_EXISTING_KEY;
  if (IsEmpty(subKey)) {
    if (const LSTATUS status = Open(key, subKey, access, result)) return status;
  } else {
    if (*subKey == u'\\') return ERROR_BAD_PATHNAME;
    RegistryKey* at;
    if (const LSTATUS status = Resolve(key, 0, true, &at)) return status;
    PathNames names(subKey);
    while (const auto name = names.Next()) {
      if (name->size() > kMaxKeyName) return ERROR_INVALID_PARAMETER;
      RegistryKey* below = Follow(at->FindSubkey(*name));
      if (!below) {
        if (at->denied & KEY_CREATE_SUB_KEY) return ERROR_ACCESS_DENIED;
        if (at->isVolatile && !(options & REG_OPTION_VOLATILE)) return ERROR_CHILD_MUST_BE_VOLATILE;
        if (at->Levels() >= kMaxKeyLevels) return ERROR_INVALID_PARAMETER;
        below = &at->CreateSubkey(*name);
        below->isVolatile = options & REG_OPTION_VOLATILE;
        at->hasVolatileSubkeys = at->hasVolatileSubkeys || (below->isVolatile && !at->isVolatile);
        outcome = REG_CREATED_NEW_KEY;
      }
      at = below;
    }
    if (const LSTATUS status = Grant(*at, access, result)) return status;
  }
  if (disposition) *disposition = outcome;
  return ERROR_SUCCESS;
}

LSTATUS Registry::EnumKey(HKEY key, DWORD index, char16_t* name, DWORD* nameLength) {
  if (!name || !nameLength) return ERROR_INVALID_PARAMETER;
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, KEY_ENUMERATE_SUB_KEYS, false, &at)) return status;
  if (index >= at->subkeys.size()) return ERROR_NO_MORE_ITEMS;
  const std::size_t place = at->hasVolatileSubkeys ? EnumeratedPlace(*at, index) : index;
  const std::u16string& found = at->subkeys[place]->name;
  if (found.size() >= *nameLength) return ERROR_MORE_DATA;
  CopyName(found, name, nameLength);
  if (const Handle* const handle = FindHandle(key)) handle->enumerated = static_cast<DWORD>(place);
  return ERROR_SUCCESS;
}

LSTATUS Registry::EnumValue(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* type, BYTE* data,
                            DWORD* dataBytes) {
  if (!name || !nameLength || (data && !dataBytes)) return ERROR_INVALID_PARAMETER;
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, KEY_QUERY_VALUE, false, &at)) return status;
  if (index >= at->values.size()) return ERROR_NO_MORE_ITEMS;
  const RegistryValue& value = at->values[index];
  if (value.name.size() >= *nameLength) {
    ReadValue(value, type, nullptr, dataBytes);  // type and size alone
    return ERROR_MORE_DATA;
  }
  if (const LSTATUS status = ReadValue(value, type, data, dataBytes)) return status;
  CopyName(value.name, name, nameLength);
  return ERROR_SUCCESS;
}

LSTATUS Registry::QueryValue(HKEY key, const char16_t* name, DWORD* type, BYTE* data, DWORD* dataBytes) {
  if (data && !dataBytes) return ERROR_INVALID_PARAMETER;
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, KEY_QUERY_VALUE, false, &at)) return status;
  const RegistryValue* const value = at->FindValue(name ? name : u"");
  return value ? ReadValue(*value, type, data, dataBytes) : ERROR_FILE_NOT_FOUND;
}

LSTATUS Registry::SetValue(HKEY key, const char16_t* name, DWORD type, const BYTE* data, DWORD dataBytes) {
  if (!data && dataBytes) return ERROR_NOACCESS;
  if (name && std::u16string_view(name).size() > kMaxValueName) return ERROR_INVALID_PARAMETER;
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, KEY_SET_VALUE, true, &at)) return status;
  // The character after the data is looked at only when the last one of the data is no terminator.
  const BYTE* const next = data + std::size_t{dataBytes} / 2 * 2;
  if (IsText(type) && dataBytes >= 2 && CharacterAt(next - 2) && !CharacterAt(next)) dataBytes += 2;
  at->SetValue(name ? name : u"", type, std::vector<BYTE>(data, data + dataBytes));
  return ERROR_SUCCESS;
}

LSTATUS Registry::DeleteValue(HKEY key, const char16_t* name) {
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, KEY_SET_VALUE, false, &at)) return status;
  return at->DeleteValue(name ? name : u"") ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LSTATUS Registry::DeleteKey(HKEY key, const char16_t* subKey) {
  if (!subKey) return ERROR_INVALID_PARAMETER;
  RegistryKey* at;
  if (const LSTATUS status = Resolve(key, 0, false, &at)) return status;
  if (*subKey == u'\\') return ERROR_BAD_PATHNAME;
  bool isLink = false;
  PathNames names(subKey);
  while (const auto name = names.Next()) {
    RegistryKey* const below = at->FindSubkey(*name);
    isLink = below && below->link;
    at = Follow(below);
    if (!at) return ERROR_FILE_NOT_FOUND;
  }
  const bool isHive = !at->parent || !at->parent->parent;
  if (isLink || isHive || !at->subkeys.empty() || (at->denied & DELETE_ACCESS)) return ERROR_ACCESS_DENIED;
  at->parent->DeleteSubkey(at->name);
  return ERROR_SUCCESS;
}

LSTATUS Registry::Close(HKEY key) {
  const Handle* const found = FindHandle(key);
  if (!found) return FindPredefinedRoot(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
  const auto slot = static_cast<std::uint32_t>(found - handles_.data());
  handles_[slot].key.reset();
  ++handles_[slot].generation;
  freeHandles_.push_back(slot);
  return ERROR_SUCCESS;
}

}  // namespace simulation
