// The adapter stacks as the registry's linkage describes them, and how an intermediate driver's virtual adapter is
// taken out of a stack or put on top of it.
//
// The engine keeps a reader of adapter instances of its own on purpose: it reads as the engine does, over platform
// calls alone, while the tool reads through the module's lookups and within its limits.
//
// A stack is known by its bottom, the adapter that the "RootDevice" lists of all its instances end with. Texts compare
// as registry names do.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"

namespace simulation {

using namespace platform;

inline constexpr char16_t kNetClassKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}";
inline constexpr char16_t kNetServiceKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E974-E325-11CE-BFC1-08002BE10318}";
inline constexpr char16_t kNetTransKey[] =
    u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E975-E325-11CE-BFC1-08002BE10318}";

// A string value of any size; false when the value is missing or of another type.
bool ReadString(HKEY key, const char16_t* name, std::u16string& text);

// A service that may be in stacks.
struct FilterDriver {
  std::u16string subkey;
  std::u16string componentId;
  std::u16string service;
  std::u16string deviceId;    // "FilterDeviceInfId": the device id of its virtual adapters
  std::u16string mediaTypes;  // "FilterMediaTypes", separated by commas; empty for all
};

struct AdapterInstance {
  std::u16string subkey;
  std::u16string name;  // what stacks call it: its "NetCfgInstanceId", unless its own "RootDevice" begins otherwise
  std::u16string deviceId;
  std::u16string filterId;   // "FilterInfId"; empty for a physical adapter
  std::u16string devNodeId;  // "DeviceInstanceID"; empty when there is none
  std::u16string media;      // its "LowerRange", separated by commas; empty for all
  std::vector<std::u16string> rootDevice;
  std::vector<std::u16string> upperBind;
  bool hasOtherType = false;  // one of the two is of another type, which reads as empty until it is written
};

class StackLinkage {
 public:
  static StackLinkage Read();
  LSTATUS Error() const { return error_; }  // of the first read that failed; what is missing is no failure

  const FilterDriver* FilterAt(std::u16string_view subkey) const;  // of the service class; null when there is none
  // Whether the service has virtual adapters at all.
  bool IsFilter(const FilterDriver& filter) const;
  // The bottoms of all stacks that `filter` can be in, in the order of their subkeys: of one of its media types, not
  // its own virtual adapters, nor those of another driver that nothing is bound to.
  std::vector<const AdapterInstance*> Bottoms(const FilterDriver& filter) const;
  const AdapterInstance* BottomAt(const FilterDriver& filter, std::u16string_view subkey) const;  // null for any other
  bool StandsIn(const FilterDriver& filter, std::u16string_view bottom) const;

  // Both write the registry and bring this object up to date, or fail and leave both as they were:
  // ERROR_INVALID_DATA when an adapter would lose what is bound to it, as in a stack with damaged values, else the code
  // of the first read or write that failed.
  //
  // Takes every virtual adapter of the filter out of the stack. The driver above is bound to the one below; the
  // stack's own virtual adapters of the filter stay, bound to nothing. In `lastStacks`, the name of each
  // that leaves gets the name of the stack's bottom, both upper-cased.
  LSTATUS TakeOut(const FilterDriver& filter, std::u16string_view bottom,
                  std::map<std::u16string, std::u16string>& lastStacks);
  // Puts a virtual adapter of the filter that is in no stack on top: the first that left this stack, else the first
  // of all, else a new one. ERROR_FILE_NOT_FOUND when the bottom is not there any more.
  LSTATUS PutOnTop(const FilterDriver& filter, std::u16string_view bottom,
                   const std::map<std::u16string, std::u16string>& lastStacks);

 private:
  const AdapterInstance* Find(std::u16string_view name) const;  // by what stacks call it; null when there is none
  bool Owns(const FilterDriver& filter, const AdapterInstance& instance) const;
  bool IsBottom(const FilterDriver& filter, const AdapterInstance& instance) const;
  bool Owns(const FilterDriver& filter, std::u16string_view name) const;
  const std::vector<std::size_t>& Members(std::u16string_view bottom) const;
  std::u16string OwnerOf(std::u16string_view name) const;
  std::u16string ServiceOf(const AdapterInstance& instance);
  bool IsFilterService(std::u16string_view service) const;
  bool Cuts(const AdapterInstance& before) const;
  LSTATUS Commit(std::vector<AdapterInstance> instances);
  LSTATUS AddInstance(const FilterDriver& filter, std::u16string_view bottom);
  void Index();

  LSTATUS error_ = ERROR_SUCCESS;
  std::vector<AdapterInstance> instances_;
  std::map<std::u16string, std::size_t> byName_;                // by upper-cased name
  std::map<std::u16string, std::vector<std::size_t>> members_;  // by the bottom's upper-cased name
  std::vector<FilterDriver> filters_;
};

}  // namespace simulation
