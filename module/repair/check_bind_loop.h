// The binding-loop pass: finds the virtual adapters that their own filter is bound directly above, and repairs each by
// disabling and enabling again the filter's binding path to the physical adapter underneath.
#pragma once

#include <cstdint>

#include "platform/registry_key.h"
#include "platform/types.h"

namespace ztl {

inline constexpr platform::DWORD kLongStringLimit = 520;  // bytes

// A string value of at most 260 characters, always ended. A larger one or one of another type counts as missing.
struct LongString : platform::ValueBuffer<261> {
  bool Read(platform::HKEY key, const char16_t* name) {
    return ValueBuffer::Read(key, name, platform::REG_SZ, kLongStringLimit) == platform::ERROR_SUCCESS;
  }
  const char16_t* Text() const { return text; }
};

// What the repair of a looping instance starts from. The buffers hold more than is read into them, so that texts and
// lists are always ended.
struct BindLoop {
  LongString filterInfId;       // the filter's component id
  platform::UniqueKey linkage;  // the instance's
  platform::ValueBuffer<260> upperBind;
  platform::ValueBuffer<520> rootDevice;
  char16_t referenceName[520] = {};  // "#" and the last entry of "RootDevice", the physical adapter
};

// Subkeys of the net adapter class, whatever their length, as the path of their linkage.
using InstanceEnumeration = platform::SubkeyEnumeration<256 + 8>;

// Runs the pass. One runs at a time on the machine: a volatile marker key in the registry excludes the others.
void CheckBindLoop();

// One scan of the adapter instances. Without `fix` the number of subkeys of the net adapter class. With it, the first
// loop is repaired and its 1-based position returned; the number of subkeys when there is none. 0 when the class does
// not open.
std::int32_t FixBindLoop(bool fix);

// Whether the current instance of the enumeration is a loop that can be repaired. Logs what it sees on the way.
bool ReadBindLoop(platform::HKEY classKey, InstanceEnumeration& instance, BindLoop& loop);

// Whether a component of the filter's id has the service that is bound directly above. Takes the open service class key
// over and closes it.
bool IsBindLoop(const char16_t* filterInfId, const char16_t* upperBindTop, platform::UniqueKey serviceClassKey);

// Finds the device whose interface link, a subkey of the open key of network interfaces, has the subkey
// `referenceName`. False when there is none.
bool FindLinkedDevice(platform::HKEY deviceClassesKey, const char16_t* referenceName, LongString& device);

// Disables and enables again the filter's path to the device whose interface link has the subkey `referenceName`. Takes
// the open key of network interfaces over and closes it.
void RebindRootDevice(const char16_t* filterInfId, const char16_t* referenceName, platform::UniqueKey deviceClassesKey);

}  // namespace ztl
