#include "ztlsim/input/registry_merger.h"

#include <algorithm>
#include <utility>

namespace ztlsim {

using platform::BYTE;
using platform::DWORD;
using simulation::RegistryKey;
using simulation::RegistryValue;
using simulation::UpperCase;

namespace {

// From these numbers on, keys get a form in which each name is found and deleted at once.
constexpr std::size_t kManySubkeys = 4096;
constexpr std::size_t kManyValues = 64;

const std::u16string kGone(1, u'\0');  // the name of a deleted value whose place is still taken; none has it else

}  // namespace

RegistryMerger::Subkeys* RegistryMerger::ManySubkeys(RegistryKey& key) {
  if (key.subkeys.size() >= kManySubkeys) {
    Subkeys& many = manySubkeys_[&key];
    for (auto& subkey : std::exchange(key.subkeys, {})) {
      const std::u16string_view name = subkey->upperName;
      many.emplace(name, std::move(subkey));
    }
    return &many;
  }
  const auto found = manySubkeys_.find(&key);
  return found == manySubkeys_.end() ? nullptr : &found->second;
}

RegistryMerger::Places* RegistryMerger::ManyValues(RegistryKey& key) {
  if (key.values.size() < kManyValues) return nullptr;
  const auto [many, isNew] = manyValues_.try_emplace(&key);
  if (isNew) {
    for (std::size_t i = 0; i < key.values.size(); ++i) many->second.emplace(UpperCase(key.values[i].name), i);
  }
  return &many->second;
}

RegistryKey* RegistryMerger::FindSubkey(RegistryKey& key, std::u16string_view name) {
  const Subkeys* const many = ManySubkeys(key);
  if (many == nullptr) return key.FindSubkey(name);
  const auto found = many->find(UpperCase(name));
  return found == many->end() ? nullptr : found->second.get();
}

RegistryKey& RegistryMerger::CreateKey(const Path& path) {
  RegistryKey* key = &root_;
  for (const std::u16string_view name : path) {
    RegistryKey* subkey = FindSubkey(*key, name);
    if (subkey == nullptr) {
      subkey = &key->CreateSubkey(name);
      if (const auto many = manySubkeys_.find(key); many != manySubkeys_.end()) {
        many->second.emplace(subkey->upperName, std::move(key->subkeys.front()));
        key->subkeys.clear();
      }
    }
    if (subkey->link && subkey->link->deleted) subkey->link.reset();
    key = subkey->link ? subkey->link.get() : subkey;
  }
  return *key;
}

void RegistryMerger::DeleteKey(const Path& path) {
  RegistryKey* parent = &root_;
  RegistryKey* key = parent;
  for (const std::u16string_view name : path) {
    parent = key->link ? key->link.get() : key;
    key = parent->deleted ? nullptr : FindSubkey(*parent, name);
    if (key == nullptr) return;
  }
  Flush(*key);
  if (Subkeys* const many = ManySubkeys(*parent)) parent->subkeys.push_back(many->extract(key->upperName).mapped());
  parent->DeleteSubkey(path.back());
}

void RegistryMerger::SetValue(RegistryKey& key, const std::u16string& name, DWORD type, std::vector<BYTE> data) {
  Places* const many = ManyValues(key);
  if (many == nullptr) return key.SetValue(name, type, std::move(data));
  const auto [place, isNew] = many->emplace(UpperCase(name), key.values.size());
  if (isNew) {
    key.values.Edit().push_back({name, type, std::move(data)});
  } else {
    RegistryValue& value = key.values.Edit()[place->second];
    value.type = type;
    value.data = std::move(data);
  }
}

void RegistryMerger::DeleteValue(RegistryKey& key, const std::u16string& name) {
  if (Places* const many = ManyValues(key)) {
    if (const auto place = many->extract(UpperCase(name))) key.values.Edit()[place.mapped()] = {kGone, 0, {}};
  } else {
    key.DeleteValue(name);
  }
}

void RegistryMerger::Flush(RegistryKey& top) {
  if (manySubkeys_.empty() && manyValues_.empty()) return;
  std::vector<RegistryKey*> pending{&top};
  while (!pending.empty()) {
    RegistryKey& key = *pending.back();
    pending.pop_back();
    if (const auto many = manySubkeys_.extract(&key)) {
      for (auto& [name, subkey] : many.mapped()) key.subkeys.push_back(std::move(subkey));
      std::sort(key.subkeys.begin(), key.subkeys.end(),
                [](const auto& a, const auto& b) { return a->upperName < b->upperName; });
    }
    if (manyValues_.erase(&key) != 0)
      std::erase_if(key.values.Edit(), [](const RegistryValue& value) { return value.name == kGone; });
    for (const auto& subkey : key.subkeys) pending.push_back(subkey.get());
  }
}

}  // namespace ztlsim
