// The simulated machine's registry: a tree of keys that answers as Windows' registry does.
//
// Names compare without case and keep the case of their creation. Subkeys enumerate in the order of their upper-cased
// names, volatile ones after all others (so it seems on Windows; it is not proven), values in the order of their
// creation. Beside the boundary's operations (platform/registry.h), the tree can be
// filled, looked at and copied directly; none of that counts as a call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry.h"
#include "simulation/upper_case.h"

namespace simulation {

using namespace platform;

// Windows' limits.
constexpr std::size_t kMaxKeyName = 255;      // characters
constexpr std::size_t kMaxValueName = 16383;  // characters
constexpr std::size_t kMaxKeyLevels = 512;    // below the hive

constexpr DWORD MAXIMUM_ALLOWED = 0x02000000;  // as an access right: every right that the key does not deny (winnt.h)

struct RegistryValue {
  std::u16string name;  // empty: the default value
  DWORD type = REG_NONE;
  std::vector<BYTE> data;

  friend bool operator==(const RegistryValue&, const RegistryValue&) = default;
};

// A key's values, in the order of their creation. Copies share them until one of the two changes.
class RegistryValues {
 public:
  using Vector = std::vector<RegistryValue>;

  RegistryValues() = default;
  RegistryValues(Vector values) : shared_(std::make_shared<Vector>(std::move(values))) {}
  Vector::const_iterator begin() const { return Get().begin(); }
  Vector::const_iterator end() const { return Get().end(); }
  std::size_t size() const { return Get().size(); }
  bool empty() const { return Get().empty(); }
  const RegistryValue& operator[](std::size_t index) const { return Get()[index]; }
  Vector& Edit();  // this object's own from here on; no copy may be made of it on another thread meanwhile

  friend bool operator==(const RegistryValues& a, const RegistryValues& b) {
    return a.shared_ == b.shared_ || a.Get() == b.Get();
  }

 private:
  const Vector& Get() const { return shared_ ? *shared_ : kNone; }

  static inline const Vector kNone{};

  std::shared_ptr<Vector> shared_;  // null while there was none
};

struct RegistryKey : std::enable_shared_from_this<RegistryKey> {
  std::u16string name;            // as created
  std::u16string upperName;       // what it is ordered and found by
  RegistryKey* parent = nullptr;  // null for the root of all and for a deleted key
  bool isVolatile = false;
  bool hasVolatileSubkeys = false;  // or has had, beside others
  bool deleted = false;
  DWORD denied = 0;  // rights that are refused, ERROR_ACCESS_DENIED
  RegistryValues values;
  std::vector<std::shared_ptr<RegistryKey>> subkeys;  // in the order of their upper-cased names
  std::shared_ptr<RegistryKey> link;                  // a symbolic link: to this key, itself no link

  std::size_t Levels() const;                               // below its hive, which has 0
  RegistryKey* FindSubkey(std::u16string_view name) const;  // one level; null when there is none; follows no link
  const RegistryValue* FindValue(std::u16string_view name) const;
  RegistryKey& CreateSubkey(std::u16string_view name);  // one level; the existing one when there is one
                                                        // (a new one below a volatile key is volatile)
  void SetValue(std::u16string_view name, DWORD type, std::vector<BYTE> data);
  bool DeleteValue(std::u16string_view name);
  bool DeleteSubkey(std::u16string_view name);  // with everything below it
};

class Registry {
 public:
  Registry();
  ~Registry();
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // The key of a full path such as u"HKEY_LOCAL_MACHINE\\SYSTEM\\Select" (links are followed; HKEY_CLASSES_ROOT is
  // HKEY_LOCAL_MACHINE\SOFTWARE\Classes). Find returns null when a level is missing; Create makes the missing levels.
  RegistryKey* Find(std::u16string_view fullPath);
  RegistryKey& Create(std::u16string_view fullPath);
  RegistryKey& Root() { return *root_; }
  const RegistryKey& Root() const { return *root_; }  // its subkeys are the hives, by their full names

  // Makes `linkPath` (not there yet) a link to the key at `targetPath` (created when missing), as CurrentControlSet
  // does. Once the target is deleted, the link counts as missing.
  void Link(std::u16string_view linkPath, std::u16string_view targetPath);

  std::unique_ptr<Registry> Copy() const;  // the tree, without its handles
  void CopyFrom(const Registry& other);    // the same in place of what is here; no handle may be open
  void Restart();                          // volatile keys vanish, open handles are closed

  std::size_t OpenHandles() const;                      // opened and not closed
  std::vector<std::u16string> OpenHandlePaths() const;  // the full path of each, for a test's message
  // Full path of an open or predefined key (of a deleted one: its name); empty for any other.
  std::u16string PathOf(HKEY key) const;

  // What the boundary's operations do once they have entered; the same contracts.
  LSTATUS Open(HKEY key, const char16_t* subKey, DWORD access, HKEY* result);
  LSTATUS CreateKey(HKEY key, const char16_t* subKey, DWORD options, DWORD access, HKEY* result, DWORD* disposition);
  LSTATUS EnumKey(HKEY key, DWORD index, char16_t* name, DWORD* nameLength);
  LSTATUS EnumValue(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, DWORD* type, BYTE* data,
                    DWORD* dataBytes);
  LSTATUS QueryValue(HKEY key, const char16_t* name, DWORD* type, BYTE* data, DWORD* dataBytes);
  LSTATUS SetValue(HKEY key, const char16_t* name, DWORD type, const BYTE* data, DWORD dataBytes);
  LSTATUS DeleteValue(HKEY key, const char16_t* name);
  LSTATUS DeleteKey(HKEY key, const char16_t* subKey);
  LSTATUS Close(HKEY key);

 private:
  struct Handle {
    std::shared_ptr<RegistryKey> key;  // null when the slot is free
    DWORD access = 0;
    std::uint32_t generation = 0;
    mutable DWORD enumerated = 0;  // the subkey that was enumerated last is mostly the one that is opened next
  };

  const Handle* FindHandle(HKEY key) const;  // null unless open
  LSTATUS Resolve(HKEY key, DWORD access, bool create, RegistryKey** found);
  LSTATUS Grant(RegistryKey& key, DWORD access, HKEY* result);
  static HKEY HandleValue(std::size_t slot, std::uint32_t generation);

  std::shared_ptr<RegistryKey> root_;
  std::shared_ptr<RegistryKey> nothing_;  // what a predefined root is read as while it has no key
  std::vector<Handle> handles_;
  std::vector<std::uint32_t> freeHandles_;
};

}  // namespace simulation
