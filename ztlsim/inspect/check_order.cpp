#include "ztlsim/inspect/check_order.h"

#include <string>
#include <string_view>
#include <vector>

#include "module/names.h"
#include "module/order/build_im_order.h"
#include "module/order/class_lookups.h"
#include "platform/multi_string.h"
#include "platform/text.h"

namespace ztlsim {

using namespace platform;

namespace {

bool HasDeviceId(std::u16string_view name) {
  std::u16string service(name);
  char16_t deviceId[ztl::kDevIdListCapacity];
  return ztl::GetFilterDeviceInfId(service.data(), deviceId, ztl::kDevIdListCapacity) != 0;
}

class OrderCheck {
 public:
  OrderCheck(const simulation::Machine& machine, const MachineState& state, Findings& findings)
      : machine_(machine), state_(state), findings_(findings) {}

  void Check() {
    bool ended = false;
    for (const std::u16string& entry : state_.configuredOrder) {
      if (ended) return;
      // It includes the filter's own class, as long as that class is known.
      if (EqualNoCase(entry, ztl::kOthers))
        ended = ztl::IsFilterClass(state_.ownClass) && !CheckClass(entry, state_.ownClass);
      else if (ztl::IsFilterClass(entry))
        ended = !CheckClass(entry, entry);
      else if (HasDeviceId(entry))
        CheckRoom(entry, {entry});
      else
        AddUnknown(entry);
    }
  }

 private:
  // An entry for the drivers of a class. False when the module's lists end at it.
  bool CheckClass(const std::u16string& entry, const std::u16string& className) {
    char16_t services[ztl::kClassServicesCapacity] = {};
    if (ztl::ReturnFilterClassIMs(className, services, ztl::kClassServicesCapacity) != ERROR_SUCCESS) {
      Add(FindingKind::OrderEntryDoesNotFit, entry,
          "stands for the class " + Quoted(className) + ", whose drivers' names fill more than " +
              std::to_string(ztl::kClassServicesCapacity - 1) + " characters",
          "The order ends before this entry: the drivers of this one and those behind it are not moved");
      return false;
    }
    const MultiStringView drivers(services);
    if (drivers.Empty() && entry == className)
      Add(FindingKind::ClassWithoutDrivers, entry, "is a filter class that no installed driver belongs to",
          "It has no effect until such a driver is installed");
    std::vector<std::u16string> own;
    for (const std::u16string_view driver : drivers)
      if (!ContainsName(state_.configuredOrder, driver) && HasDeviceId(driver)) own.emplace_back(driver);
    CheckRoom(entry, own);
    return true;
  }

  // An entry for these drivers: whether all of them are in the lists.
  void CheckRoom(const std::u16string& entry, std::vector<std::u16string> drivers) {
    std::erase_if(drivers, [this](const std::u16string& driver) { return ContainsName(state_.imList, driver); });
    if (!drivers.empty())
      Add(FindingKind::OrderEntryDoesNotFit, entry,
          "stands for drivers that the order has no room for: " + Chain(drivers),
          "They are not moved, and none moves past them: shorten the order to " +
              std::to_string(ztl::kImListCapacity - 1) + " characters of services and " +
              std::to_string(ztl::kDevIdListCapacity - 1) + " of device ids");
  }

  // An entry without a driver that can be moved.
  void AddUnknown(const std::u16string& entry) {
    char16_t services[ztl::kClassServicesCapacity] = {};
    char16_t ownClass[ztl::kClassListCapacity];
    DWORD capacity = ztl::kClassListCapacity;
    if (ztl::ReturnFilterClassIMs(entry, services, ztl::kClassServicesCapacity) != ERROR_SUCCESS || *services != 0)
      Add(FindingKind::OrderEntryUnknown, entry, "is a class of drivers that FilterClasses does not list",
          "A pass passes over it: add the class to FilterClasses");
    else if (ztl::GetFilterClass(entry.c_str(), ownClass, &capacity) == ERROR_NOT_FOUND)
      Add(FindingKind::OrderEntryUnknown, entry, "names no filter class and no installed driver",
          "A pass passes over it: correct or remove it");
    else if (!findings_.HasUnreadableValue(FullPath(machine_, ztl::kNetServiceClassKey)))
      Add(FindingKind::OrderEntryUnknown, entry, "names a driver without FilterDeviceInfId",
          "The driver is not moved, and none moves past it");
  }

  void Add(FindingKind kind, const std::u16string& entry, const std::string& text, const std::string& consequence) {
    findings_.Add(kind, FullPath(machine_, ztl::kParametersKey), ztl::kImOrderValue,
                  "The entry " + Quoted(entry) + " " + text, consequence);
  }

  const simulation::Machine& machine_;
  const MachineState& state_;
  Findings& findings_;
};

}  // namespace

void CheckConfiguredOrder(const simulation::Machine& machine, const MachineState& state, Findings& findings) {
  if (state.orderIsSet && !state.ownClass.empty()) OrderCheck(machine, state, findings).Check();
}

}  // namespace ztlsim
