#include "simulation/netcfg_engine/stack_linkage.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <set>
#include <utility>

#include "platform/registry_key.h"
#include "simulation/upper_case.h"

namespace simulation {

namespace {

using Strings = std::vector<std::u16string>;

constexpr std::size_t kSubkeyCapacity = 256;  // the longest name of a key, and its terminator
constexpr std::size_t kUsualCapacity = 256;   // of most values; a larger one is asked for twice

// Reads values and remembers the first failure; what is missing, or of another type, reads as empty.
class Reader {
 public:
  explicit Reader(LSTATUS& error) : error_(error) {}

  bool Open(UniqueKey& key, HKEY parent, const char16_t* subkey) { return Note(key.Open(parent, subkey, KEY_READ)); }

  // `otherType` is set when there is a value of another type.
  std::u16string Data(HKEY key, const char16_t* name, DWORD type, bool* otherType = nullptr) {
    std::u16string text(kUsualCapacity, u'\0');
    DWORD storedType = REG_NONE;
    DWORD bytes = kUsualCapacity * sizeof(char16_t);
    auto query = [&] {
      return RegQueryValueExW(key, name, nullptr, &storedType, reinterpret_cast<BYTE*>(text.data()), &bytes);
    };
    LSTATUS rc = query();
    if (rc == ERROR_MORE_DATA) {
      text.assign((bytes + 1) / 2, u'\0');
      rc = query();
    }
    text.resize(Note(rc) && storedType == type ? (bytes + 1) / 2 : 0);
    if (otherType != nullptr && rc == ERROR_SUCCESS && storedType != type) *otherType = true;
    return text;
  }
  std::u16string String(HKEY key, const char16_t* name) {
    std::u16string text = Data(key, name, REG_SZ);
    text.resize(std::min(text.size(), text.find(u'\0')));
    return text;
  }
  std::u16string StringAt(HKEY key, const std::u16string& subkey, const char16_t* name) {
    UniqueKey below;
    return Open(below, key, subkey.c_str()) ? String(below.Get(), name) : std::u16string();
  }
  Strings List(HKEY key, const char16_t* name, bool& otherType) {
    Strings entries;
    const std::u16string text = Data(key, name, REG_MULTI_SZ, &otherType);
    for (const std::u16string_view entry : MultiStringView(text.data(), text.size())) entries.emplace_back(entry);
    return entries;
  }
  // The names of all subkeys.
  Strings Subkeys(HKEY key) {
    Strings names;
    SubkeyEnumeration<kSubkeyCapacity> subkey(key);
    while (subkey.Next()) names.emplace_back(subkey.Name());
    if (subkey.Code() != ERROR_NO_MORE_ITEMS) Note(subkey.Code());
    return names;
  }

 private:
  bool Note(LSTATUS rc) {
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND && error_ == ERROR_SUCCESS) error_ = rc;
    return rc == ERROR_SUCCESS;
  }

  LSTATUS& error_;
};

LSTATUS WriteString(HKEY key, const char16_t* name, const std::u16string& text) {
  return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>((text.size() + 1) * sizeof(char16_t)));
}

// Writes lists, and can put back what was there.
class ListWriter {
 public:
  LSTATUS Write(HKEY netClass, const std::u16string& instance, const char16_t* name, const Strings& entries) {
    Written old{{}, name, REG_NONE, {}};
    LSTATUS rc = RegCreateKeyExW(netClass, (instance + u"\\Linkage").c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_ALL_ACCESS, nullptr, old.key.Receive(), nullptr);
    DWORD bytes = 0;
    if (rc == ERROR_SUCCESS) rc = RegQueryValueExW(old.key.Get(), name, nullptr, &old.type, nullptr, &bytes);
    const bool isNew = rc == ERROR_FILE_NOT_FOUND;
    if (rc == ERROR_SUCCESS) {
      old.data.emplace(bytes);
      rc = RegQueryValueExW(old.key.Get(), name, nullptr, &old.type, old.data->data(), &bytes);
    }
    if (rc != ERROR_SUCCESS && !isNew) return rc;
    std::u16string text;
    for (const std::u16string& entry : entries) (text += entry) += u'\0';
    text += u'\0';
    rc = RegSetValueExW(old.key.Get(), name, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(text.data()),
                        static_cast<DWORD>(text.size() * sizeof(char16_t)));
    if (rc == ERROR_SUCCESS) written_.push_back(std::move(old));
    return rc;
  }
  void Undo() {
    for (; !written_.empty(); written_.pop_back()) {
      const Written& old = written_.back();
      if (old.data)
        SetExact(old);
      else
        RegDeleteValueW(old.key.Get(), old.name);
    }
  }

 private:
  struct Written {
    UniqueKey key;
    const char16_t* name;
    DWORD type;
    std::optional<std::vector<BYTE>> data;  // none where there was no value
  };

  // Windows would store a NUL that follows unterminated text with it.
  static void SetExact(const Written& old) {
    std::vector<BYTE> data = *old.data;
    const auto bytes = static_cast<DWORD>(data.size());
    data.insert(data.end(), sizeof(char16_t), BYTE{0xFF});
    RegSetValueExW(old.key.Get(), old.name, 0, old.type, data.data(), bytes);
  }

  std::vector<Written> written_;
};

bool Equal(std::u16string_view a, std::u16string_view b) { return UpperCase(a) == UpperCase(b); }

bool Contains(const Strings& list, std::u16string_view text) {
  return std::any_of(list.begin(), list.end(), [text](const auto& entry) { return Equal(entry, text); });
}

void AddOnce(Strings& list, std::u16string_view text) {
  if (!text.empty() && !Contains(list, text)) list.emplace_back(text);
}

// Whether two lists of interface names, separated by commas, share one. A missing list shares every other.
bool ShareInterface(std::u16string_view upperRange, std::u16string_view lowerRange) {
  if (upperRange.empty() || lowerRange.empty()) return true;
  auto split = [](std::u16string_view text) {
    Strings parts(1);
    for (const char16_t character : text)
      if (character == u',')
        parts.emplace_back();
      else if (character != u' ')
        parts.back() += character;
    return parts;
  };
  const Strings lower = split(lowerRange);
  const Strings upper = split(upperRange);
  return std::any_of(upper.begin(), upper.end(), [&lower](const auto& name) { return Contains(lower, name); });
}

// The transports that can be bound to an adapter: those that take one of the interfaces that it offers.
Strings TransportsFor(const AdapterInstance& adapter, LSTATUS& error) {
  Strings transports;
  Reader reader(error);
  UniqueKey netClass;
  UniqueKey netTrans;
  if (!reader.Open(netClass, HKEY_LOCAL_MACHINE, kNetClassKey) ||
      !reader.Open(netTrans, HKEY_LOCAL_MACHINE, kNetTransKey))
    return transports;
  const std::u16string offered = reader.StringAt(netClass.Get(), adapter.subkey + u"\\Ndi\\Interfaces", u"UpperRange");
  for (const std::u16string& component : reader.Subkeys(netTrans.Get()))
    if (ShareInterface(offered, reader.StringAt(netTrans.Get(), component + u"\\Ndi\\Interfaces", u"LowerRange")))
      AddOnce(transports, reader.StringAt(netTrans.Get(), component + u"\\Ndi", u"Service"));
  return transports;
}

std::u16string Number(const char* format, unsigned number) {
  char text[40];
  const int length = std::snprintf(text, sizeof(text), format, number);
  return {text, text + length};
}

void RemoveInstanceKey(const std::u16string& instance) {
  UniqueKey netClass;
  if (netClass.Open(HKEY_LOCAL_MACHINE, kNetClassKey, KEY_ALL_ACCESS) != ERROR_SUCCESS) return;
  for (const char16_t* const below : {u"\\Linkage", u"\\Ndi", u""})
    RegDeleteKeyW(netClass.Get(), (instance + below).c_str());
}

}  // namespace

bool ReadString(HKEY key, const char16_t* name, std::u16string& text) {
  DWORD type = REG_NONE;
  DWORD bytes = 0;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS || type != REG_SZ) return false;
  LSTATUS error = ERROR_SUCCESS;
  text = Reader(error).String(key, name);
  return error == ERROR_SUCCESS;
}

StackLinkage StackLinkage::Read() {
  StackLinkage linkage;
  Reader reader(linkage.error_);
  UniqueKey netService;
  UniqueKey netClass;
  UniqueKey key;
  UniqueKey below;
  if (reader.Open(netService, HKEY_LOCAL_MACHINE, kNetServiceKey))
    for (const std::u16string& component : reader.Subkeys(netService.Get()))
      if (reader.Open(key, netService.Get(), component.c_str()) && reader.Open(below, key.Get(), u"Ndi"))
        linkage.filters_.push_back({component, reader.String(key.Get(), u"ComponentId"),
                                    reader.String(below.Get(), u"Service"),
                                    reader.String(below.Get(), u"FilterDeviceInfId"),
                                    reader.StringAt(below.Get(), u"Interfaces", u"FilterMediaTypes")});
  if (!reader.Open(netClass, HKEY_LOCAL_MACHINE, kNetClassKey)) return linkage;
  for (const std::u16string& subkey : reader.Subkeys(netClass.Get())) {
    if (!reader.Open(key, netClass.Get(), subkey.c_str())) continue;
    AdapterInstance instance{.subkey = subkey,
                             .name = reader.String(key.Get(), u"NetCfgInstanceId"),
                             .deviceId = reader.String(key.Get(), u"MatchingDeviceId"),
                             .filterId = reader.String(key.Get(), u"FilterInfId"),
                             .devNodeId = reader.String(key.Get(), u"DeviceInstanceID"),
                             .media = reader.StringAt(key.Get(), u"Ndi\\Interfaces", u"LowerRange"),
                             .rootDevice = {},
                             .upperBind = {}};
    if (reader.Open(below, key.Get(), u"Linkage")) {
      instance.rootDevice = reader.List(below.Get(), u"RootDevice", instance.hasOtherType);
      instance.upperBind = reader.List(below.Get(), u"UpperBind", instance.hasOtherType);
    }
    if (!instance.rootDevice.empty() && !Contains(instance.rootDevice, instance.name))
      instance.name = instance.rootDevice.front();
    if (!instance.name.empty()) linkage.instances_.push_back(std::move(instance));
  }
  linkage.Index();
  return linkage;
}

// The first of several instances with the same name is the one that lists mean.
void StackLinkage::Index() {
  byName_.clear();
  members_.clear();
  for (std::size_t i = 0; i < instances_.size(); ++i) {
    const AdapterInstance& instance = instances_[i];
    byName_.try_emplace(UpperCase(instance.name), i);
    if (!instance.rootDevice.empty()) members_[UpperCase(instance.rootDevice.back())].push_back(i);
  }
}

const AdapterInstance* StackLinkage::Find(std::u16string_view name) const {
  const auto found = byName_.find(UpperCase(name));
  return found == byName_.end() ? nullptr : &instances_[found->second];
}

bool StackLinkage::Owns(const FilterDriver& filter, const AdapterInstance& instance) const {
  return (!filter.deviceId.empty() && Equal(instance.deviceId, filter.deviceId)) ||
         (!instance.filterId.empty() && Equal(instance.filterId, filter.componentId));
}

bool StackLinkage::Owns(const FilterDriver& filter, std::u16string_view name) const {
  const AdapterInstance* const instance = Find(name);
  return instance != nullptr && Owns(filter, *instance);
}

const std::vector<std::size_t>& StackLinkage::Members(std::u16string_view bottom) const {
  static const std::vector<std::size_t> kNone;
  const auto found = members_.find(UpperCase(bottom));
  return found == members_.end() ? kNone : found->second;
}

const FilterDriver* StackLinkage::FilterAt(std::u16string_view subkey) const {
  const auto found = std::find_if(filters_.begin(), filters_.end(),
                                  [subkey](const FilterDriver& filter) { return filter.subkey == subkey; });
  return found == filters_.end() ? nullptr : &*found;
}

bool StackLinkage::IsFilter(const FilterDriver& filter) const {
  if (filter.service.empty()) return false;
  return !filter.deviceId.empty() || std::any_of(instances_.begin(), instances_.end(),
                                                 [&](const auto& instance) { return Owns(filter, instance); });
}

std::u16string StackLinkage::OwnerOf(std::u16string_view name) const {
  for (const FilterDriver& filter : filters_)
    if (Owns(filter, name)) return filter.service;
  return {};
}

bool StackLinkage::IsBottom(const FilterDriver& filter, const AdapterInstance& instance) const {
  const std::size_t members = Members(instance.name).size();
  const bool unbound = members <= 1 && instance.upperBind.empty();
  return members > 0 && Find(instance.name) == &instance && !Owns(filter, instance) &&
         ShareInterface(filter.mediaTypes, instance.media) && !(unbound && !OwnerOf(instance.name).empty());
}

// The instance's service: that of the filter that owns it, or of the adapter's own driver.
std::u16string StackLinkage::ServiceOf(const AdapterInstance& instance) {
  std::u16string service = OwnerOf(instance.name);
  UniqueKey netClass;
  Reader reader(error_);
  if (service.empty() && reader.Open(netClass, HKEY_LOCAL_MACHINE, kNetClassKey))
    service = reader.StringAt(netClass.Get(), instance.subkey + u"\\Ndi", u"Service");
  return service;
}

std::vector<const AdapterInstance*> StackLinkage::Bottoms(const FilterDriver& filter) const {
  std::vector<const AdapterInstance*> bottoms;
  for (const AdapterInstance& instance : instances_)
    if (IsBottom(filter, instance)) bottoms.push_back(&instance);
  return bottoms;
}

const AdapterInstance* StackLinkage::BottomAt(const FilterDriver& filter, std::u16string_view subkey) const {
  for (const AdapterInstance& instance : instances_)
    if (instance.subkey == subkey) return IsBottom(filter, instance) ? &instance : nullptr;
  return nullptr;
}

bool StackLinkage::StandsIn(const FilterDriver& filter, std::u16string_view bottom) const {
  for (const std::size_t member : Members(bottom)) {
    const Strings& list = instances_[member].rootDevice;
    if (std::any_of(list.begin(), list.end() - 1, [&](const auto& name) { return Owns(filter, name); })) return true;
  }
  return false;
}

LSTATUS StackLinkage::TakeOut(const FilterDriver& filter, std::u16string_view bottom,
                              std::map<std::u16string, std::u16string>& lastStacks) {
  // What was bound to the virtual adapters that stood directly on an instance, who stands above them, and the instance
  // with what is below it.
  struct Gap {
    Strings bound;
    const AdapterInstance* above = nullptr;
    Strings rest;
  };
  std::map<std::u16string, Gap> gaps;  // by the upper-cased name of the instance below
  std::set<std::u16string> leaving;    // the lists; upper-cased
  const std::vector<std::size_t> members = Members(bottom);
  for (const std::size_t member : members) {
    const Strings& list = instances_[member].rootDevice;
    for (std::size_t i = 0; i + 1 < list.size(); ++i) {
      if (!Owns(filter, list[i])) continue;
      const std::size_t first = i;
      while (i + 2 < list.size() && Owns(filter, list[i + 1])) ++i;
      Gap& gap = gaps[UpperCase(list[i + 1])];
      if (first > 0 && gap.above == nullptr) gap.above = Find(list[first - 1]);
      if (gap.rest.empty()) gap.rest.assign(list.begin() + static_cast<std::ptrdiff_t>(i) + 1, list.end());
      for (std::size_t owned = first; owned <= i; ++owned) {
        leaving.insert(UpperCase(list[owned]));
        for (const std::u16string& service : Find(list[owned])->upperBind)
          if (!Equal(service, filter.service)) AddOnce(gap.bound, service);
      }
    }
  }

  const auto close = [&leaving](Strings& list) {
    std::erase_if(list, [&leaving](const auto& name) { return leaving.contains(UpperCase(name)); });
  };

  // What is bound to each instance below a gap then: in place of the filter's service, or before all others.
  std::vector<AdapterInstance> after = instances_;
  auto edit = [&](const AdapterInstance& instance) -> AdapterInstance& {
    return after[static_cast<std::size_t>(&instance - instances_.data())];
  };
  for (const auto& [name, gap] : gaps) {
    const AdapterInstance* const below = Find(name);
    if (below == nullptr) continue;
    const Strings inherited = !gap.bound.empty()     ? gap.bound
                              : gap.above != nullptr ? Strings{ServiceOf(*gap.above)}
                                                     : TransportsFor(*below, error_);
    if (Contains(inherited, {})) return error_ != ERROR_SUCCESS ? error_ : ERROR_INVALID_DATA;  // nobody to bind to it
    Strings services = below->upperBind;
    if (!Contains(services, filter.service)) services.insert(services.begin(), filter.service);
    AdapterInstance& mended = edit(*below);
    mended.upperBind.clear();
    for (const std::u16string& service : services)
      for (const std::u16string& bound : Equal(service, filter.service) ? inherited : Strings{service})
        AddOnce(mended.upperBind, bound);
    if (mended.rootDevice.empty()) close(mended.rootDevice = gap.rest);
    mended.hasOtherType = false;
  }
  if (error_ != ERROR_SUCCESS) return error_;
  std::vector<std::u16string> left;
  for (const std::size_t member : members) {
    AdapterInstance& instance = after[member];
    if (Owns(filter, instance) && !Equal(instance.name, bottom)) {
      left.push_back(UpperCase(instance.name));
      instance.rootDevice = {instance.name};
      instance.upperBind.clear();
      instance.hasOtherType = false;
      continue;
    }
    close(instance.rootDevice);
  }
  const LSTATUS rc = Commit(std::move(after));
  if (rc == ERROR_SUCCESS)
    for (const std::u16string& name : left) lastStacks[name] = UpperCase(bottom);
  return rc;
}

LSTATUS StackLinkage::PutOnTop(const FilterDriver& filter, std::u16string_view bottom,
                               const std::map<std::u16string, std::u16string>& lastStacks) {
  if (Find(bottom) == nullptr) return ERROR_FILE_NOT_FOUND;
  Strings stack;
  for (const std::size_t member : Members(bottom))
    if (instances_[member].rootDevice.size() > stack.size()) stack = instances_[member].rootDevice;

  if (stack.empty()) stack.emplace_back(bottom);
  const AdapterInstance* chosen = nullptr;
  for (const AdapterInstance& instance : instances_) {
    if (!Owns(filter, instance) || instance.rootDevice.size() > 1 || Members(instance.name).size() > 1) continue;
    if (chosen == nullptr) chosen = &instance;
    const auto last = lastStacks.find(UpperCase(instance.name));
    if (last != lastStacks.end() && last->second == UpperCase(bottom)) {
      chosen = &instance;
      break;
    }
  }
  const bool isNew = chosen == nullptr;
  if (isNew) {
    if (const LSTATUS rc = AddInstance(filter, bottom); rc != ERROR_SUCCESS) return rc;
    chosen = &instances_.back();
  }

  const AdapterInstance* const top = Find(stack.front());
  Strings bound = top != nullptr ? top->upperBind : Strings();
  std::erase_if(bound, [&filter](const auto& service) { return Equal(service, filter.service); });
  if (bound.empty()) bound = TransportsFor(*Find(bottom), error_);
  LSTATUS rc = error_;
  if (rc == ERROR_SUCCESS) {
    std::vector<AdapterInstance> after = instances_;
    auto edit = [&](const AdapterInstance& instance, Strings rootDevice, Strings upperBind) {
      AdapterInstance& edited = after[static_cast<std::size_t>(&instance - instances_.data())];
      edited.rootDevice = std::move(rootDevice);
      edited.upperBind = std::move(upperBind);
      edited.hasOtherType = false;
    };
    if (top != nullptr) edit(*top, top->rootDevice.empty() ? stack : top->rootDevice, {filter.service});
    stack.insert(stack.begin(), chosen->name);
    edit(*chosen, std::move(stack), std::move(bound));
    rc = Commit(std::move(after));
  }
  if (rc != ERROR_SUCCESS && isNew) {
    RemoveInstanceKey(instances_.back().subkey);
    instances_.pop_back();
    Index();
  }
  return rc;
}

bool StackLinkage::IsFilterService(std::u16string_view service) const {
  return std::any_of(filters_.begin(), filters_.end(),
                     [&](const auto& filter) { return Equal(filter.service, service) && IsFilter(filter); });
}

// Whether a transport that reached the bottom of the instance's stack through it reaches that no more.
bool StackLinkage::Cuts(const AdapterInstance& before) const {
  if (before.rootDevice.empty() || !OwnerOf(before.rootDevice.back()).empty()) return false;
  const std::vector<std::size_t>& members = Members(before.rootDevice.back());
  return std::any_of(before.upperBind.begin(), before.upperBind.end(), [&](const auto& service) {
    return !IsFilterService(service) && std::none_of(members.begin(), members.end(), [&](std::size_t member) {
      return Contains(instances_[member].upperBind, service);
    });
  });
}

// Makes the instances what they are to be, here and in the registry, or nothing of it.
LSTATUS StackLinkage::Commit(std::vector<AdapterInstance> instances) {
  instances_.swap(instances);
  Index();
  const std::vector<AdapterInstance>& before = instances;
  std::vector<std::size_t> changed;
  for (std::size_t i = 0; i < before.size(); ++i)
    if (instances_[i].rootDevice != before[i].rootDevice || instances_[i].upperBind != before[i].upperBind)
      changed.push_back(i);
  LSTATUS rc = ERROR_SUCCESS;
  if (std::any_of(changed.begin(), changed.end(), [&](std::size_t i) { return Cuts(before[i]); }))
    rc = ERROR_INVALID_DATA;
  UniqueKey netClass;
  ListWriter writer;
  if (rc == ERROR_SUCCESS) rc = netClass.Open(HKEY_LOCAL_MACHINE, kNetClassKey, KEY_ALL_ACCESS);
  for (const std::size_t i : changed) {
    const AdapterInstance& now = instances_[i];
    auto write = [&](const char16_t* name, const Strings& list, const Strings& old) {
      if (rc == ERROR_SUCCESS && (list != old || before[i].hasOtherType))
        rc = writer.Write(netClass.Get(), now.subkey, name, list);
    };
    write(u"RootDevice", now.rootDevice, before[i].rootDevice);
    write(u"UpperBind", now.upperBind, before[i].upperBind);
  }
  if (rc == ERROR_SUCCESS) return rc;
  writer.Undo();
  instances_.swap(instances);
  Index();
  return rc;
}

// Makes a virtual adapter of the filter, bound to nothing.
LSTATUS StackLinkage::AddInstance(const FilterDriver& filter, std::u16string_view bottom) {
  if (filter.deviceId.empty()) return ERROR_NOT_FOUND;
  UniqueKey netClass;
  if (const LSTATUS rc = netClass.Open(HKEY_LOCAL_MACHINE, kNetClassKey, KEY_ALL_ACCESS); rc != ERROR_SUCCESS)
    return rc;
  unsigned number = 0;
  UniqueKey key;
  LSTATUS rc = ERROR_SUCCESS;
  while ((rc = key.Open(netClass.Get(), Number("%04u", number).c_str(), KEY_READ)) == ERROR_SUCCESS) ++number;
  if (rc != ERROR_FILE_NOT_FOUND) return rc;
  AdapterInstance added{.subkey = Number("%04u", number),
                        .name = Number("{5D0C6A10-7F3E-4B52-9C1D-%012u}", number),
                        .deviceId = filter.deviceId,
                        .filterId = filter.componentId,
                        .devNodeId = u"ROOT\\" + UpperCase(filter.deviceId) + Number("\\%04u", number),
                        .media = {},
                        .rootDevice = {},
                        .upperBind = {}};
  rc = RegCreateKeyExW(netClass.Get(), (added.subkey + u"\\Ndi").c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                       KEY_ALL_ACCESS, nullptr, key.Receive(), nullptr);
  if (rc == ERROR_SUCCESS) rc = WriteString(key.Get(), u"Service", filter.service);
  if (rc == ERROR_SUCCESS) rc = key.Open(netClass.Get(), added.subkey.c_str(), KEY_ALL_ACCESS);
  const AdapterInstance* const adapter = Find(bottom);
  const std::u16string description = Reader(error_).StringAt(netClass.Get(), adapter->subkey, u"DriverDesc") + u" - ";
  const std::pair<const char16_t*, std::u16string> values[] = {
      {u"NetCfgInstanceId", added.name},      {u"MatchingDeviceId", added.deviceId},
      {u"ComponentId", added.deviceId},       {u"FilterInfId", added.filterId},
      {u"DeviceInstanceID", added.devNodeId}, {u"DriverDesc", description + filter.service + u" Miniport"},
  };
  for (const auto& [name, text] : values)
    if (rc == ERROR_SUCCESS) rc = WriteString(key.Get(), name, text);
  if (rc == ERROR_SUCCESS)
    instances_.push_back(std::move(added));
  else
    RemoveInstanceKey(added.subkey);
  return rc;
}

}  // namespace simulation
