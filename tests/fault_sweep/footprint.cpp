#include "tests/fault_sweep/footprint.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <regex>

#include "platform/com.h"
#include "platform/device.h"
#include "platform/files.h"
#include "platform/netcfg.h"
#include "platform/registry.h"
#include "ztlsim/text_encoding.h"

namespace ztl_test {

using namespace platform;
using simulation::Arguments;
using simulation::Operation;

namespace {

std::string Hex(std::int64_t number) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llX", static_cast<unsigned long long>(number));
  return text;
}

std::string Rights(std::int64_t access) {
  return access == KEY_READ ? "KEY_READ" : access == KEY_ALL_ACCESS ? "KEY_ALL_ACCESS" : Hex(access);
}

// What differs from machine to machine gets a name in angle brackets; the classes keep their GUIDs.
std::string General(std::string text) {
  static const std::pair<std::regex, const char*> patterns[] = {
      {std::regex("HKEY_LOCAL_MACHINE"), "HKLM"},
      {std::regex("##[^\\\\:]*"), "<link>"},
      {std::regex("(08002bE10318\\}\\\\)[0-9]{4}"), "$1<instance>"},
      {std::regex("^[0-9]{4}(\\\\|$)"), "<instance>$1"},
      {std::regex("\\{(?!4D36E97[2-5]-|AD498944-|5B1E7C42-)[0-9A-F]{8}-[-0-9A-F]*\\}", std::regex::icase), "<GUID>"},
      {std::regex("\\|"), "\\|"}};
  for (const auto& [pattern, name] : patterns) text = std::regex_replace(text, pattern, name);
  return text;
}

std::string Name(const char16_t* name) { return name != nullptr ? ztlsim::Utf16ToUtf8(name) : "(default)"; }

std::string KeyPath(const simulation::Machine& machine, const Arguments& arguments) {
  return ztlsim::Utf16ToUtf8(machine.registry.PathOf(arguments.key));
}

// The type, and whether the data ends as the type says.
std::string Stored(const Arguments& arguments) {
  const DWORD type = static_cast<DWORD>(arguments.number2);
  const char* const names[] = {"REG_NONE", "REG_SZ", "REG_EXPAND_SZ", "REG_BINARY", "REG_DWORD",
                               "",         "",       "REG_MULTI_SZ"};
  const std::size_t zeros = type == REG_MULTI_SZ ? 4 : type == REG_SZ || type == REG_EXPAND_SZ ? 2 : 0;
  const std::string end(zeros, '\0');
  const bool ends =
      arguments.dataBytes >= zeros &&
      std::memcmp(static_cast<const char*>(arguments.data) + arguments.dataBytes - zeros, end.data(), zeros) == 0;
  return (type < std::size(names) ? names[type] : Hex(type)) + std::string(zeros == 0 ? ""
                                                                           : ends     ? ", terminated"
                                                                                      : ", not terminated");
}

struct Row {
  std::string object, how;
};

Row Describe(const simulation::Machine& machine, Operation operation, const Arguments& arguments) {
  const auto most = [&] { return "at most " + std::to_string(arguments.number2); };
  const std::string below = KeyPath(machine, arguments) + "\\" + Name(arguments.name);
  const std::string value = KeyPath(machine, arguments) + ": " + Name(arguments.name);
  switch (operation) {
    case Operation::RegOpenKeyExW:
      return {below, Rights(arguments.number)};
    case Operation::RegCreateKeyExW:
      return {below, Rights(arguments.number) + (arguments.number2 == REG_OPTION_VOLATILE ? ", volatile" : "")};
    case Operation::RegOpenKeyW:
    case Operation::RegDeleteKeyW:
      return {below, ""};
    case Operation::RegDeleteValueW:
      return {value, ""};
    case Operation::RegEnumKeyExW:
      return {KeyPath(machine, arguments), most() + " characters"};
    case Operation::RegEnumValueW:
      return {KeyPath(machine, arguments), most() + " characters, " + std::to_string(arguments.dataBytes) + " bytes"};
    case Operation::RegQueryValueExW:
      return {value, most() + " bytes"};
    case Operation::RegSetValueExW:
      return {value, Stored(arguments)};
    case Operation::_open:
    case Operation::_creat:
      return {arguments.path, Hex(arguments.flags)};
    case Operation::_locking:
      return {"", arguments.flags == _LK_LOCK ? "waits" : Hex(arguments.flags)};
    case Operation::_lseek:
      return {"", arguments.flags == 2 ? "from the end" : Hex(arguments.flags)};
    case Operation::_mkdir:
      return {arguments.path, ""};
    case Operation::CreateFileW:
      return {Name(arguments.name), "access " + Hex(arguments.number) + ", disposition " + Hex(arguments.number2) +
                                        ", flags " + Hex(arguments.flags)};
    case Operation::DeviceIoControl: {
      const std::u16string text(static_cast<const char16_t*>(arguments.data), arguments.dataBytes / 2);
      return {Hex(arguments.number), ztlsim::Utf16ToUtf8(text)};
    }
    case Operation::SetupGetInfFileListW:
    case Operation::SetupOpenInfFileW:
    case Operation::SetupCopyOEMInfW:
      return {Name(arguments.name), Hex(arguments.flags)};
    case Operation::CoInitializeEx:
      return {"", Hex(arguments.number)};
    case Operation::CoCreateInstance: {
      GUID clsid;
      std::memcpy(&clsid, arguments.data, sizeof(clsid));
      return {clsid == CLSID_CNetCfg ? "CLSID_CNetCfg" : "the notify object", "context " + Hex(arguments.number)};
    }
    case Operation::Install:
      return {Name(arguments.name), "flags " + Hex(arguments.number) + ", for " + Hex(arguments.flags)};
    case Operation::AcquireWriteLock:
      return {Name(arguments.name), "waits " + std::to_string(arguments.number) + " ms"};
    case Operation::Enable:
      return {"", arguments.number != 0 ? "enables" : "disables"};
    case Operation::EnumBindingPaths:
      return {"", Hex(arguments.number)};
    case Operation::GetWindowsDirectoryA:
    case Operation::GetModuleFileNameW:
    case Operation::GetSystemWindowsDirectoryW:
    case Operation::GetSystemDirectoryW:
    case Operation::GetFileVersionInfoW:
    case Operation::GetWindowTextW:
    case Operation::StringFromGUID2:
      return {arguments.name != nullptr ? Name(arguments.name) : "", most()};
    case Operation::CoUninitialize:
      return {"", std::to_string(machine.engine.objects) + " objects of the engine"};
    case Operation::GlobalAlloc:
      return {"", Hex(arguments.number2)};
    case Operation::SendMessageW:
      return {Hex(arguments.number), ""};
    case Operation::strftime:
      return {arguments.path, ""};
    case Operation::SendPnpReconfig:
      return {"", "layer " + std::to_string(arguments.number) + ", " + std::to_string(arguments.dataBytes) + " bytes"};
    case Operation::GetFileVersionInfoSizeW:
    case Operation::CopyFileW:
    case Operation::SetupFindFirstLineW:
    case Operation::GetPrivateProfileStringW:
    case Operation::FindComponent:
      return {Name(arguments.name), ""};
    default:
      return {};
  }
}

bool Changes(Operation operation) {
  switch (operation) {
    case Operation::RegCreateKeyExW:
    case Operation::RegSetValueExW:
    case Operation::RegDeleteValueW:
    case Operation::RegDeleteKeyW:
    case Operation::DeviceIoControl:
    case Operation::SetupCopyOEMInfW:
    case Operation::CopyFileW:
    case Operation::DisableThreadLibraryCalls:
    case Operation::CoInitializeEx:
    case Operation::CoUninitialize:
    case Operation::CoFreeUnusedLibraries:
      return true;
    default:
      return (operation >= Operation::AcquireWriteLock && operation <= Operation::Apply) ||
             operation == Operation::Install || operation == Operation::Enable ||
             operation == Operation::SendPnpReconfig;
  }
}

}  // namespace

std::string ChangeText(const simulation::Machine& machine, Operation operation, const Arguments& arguments) {
  if (!Changes(operation) || machine.engine.callsUnderWay > 0) return {};
  const auto [object, how] = Describe(machine, operation, arguments);
  std::string text = simulation::OperationName(operation);
  for (const std::string& part : {object, how})
    if (!part.empty()) text += ", " + part;
  return text;
}

void Footprint::See(const simulation::Machine& machine, const std::string& scenario, Operation operation,
                    const Arguments& arguments) {
  if (machine.engine.callsUnderWay > 0) return;
  const auto [object, how] = Describe(machine, operation, arguments);
  const auto code = [](const std::string& text) { return text.empty() ? std::string() : "`" + text + "`"; };
  const std::string row = "| " + std::string(simulation::OperationName(operation)) + " | " + code(General(object)) +
                          " | " + General(how) + " | ";
  const auto [found, isNew] = counts_.try_emplace(row);
  if (isNew) rows_.push_back(row);
  auto& counts = found->second;
  auto count = std::find_if(counts.begin(), counts.end(), [&](const auto& each) { return each.first == scenario; });
  if (count == counts.end()) count = counts.insert(count, {scenario, 0});
  ++count->second;
}

std::string Footprint::Table() const {
  std::string table = "| Operation | Of what | How | Scenarios |\n|---|---|---|---|\n";
  for (const std::string& row : rows_) {
    table += row;
    for (const auto& [scenario, count] : counts_.at(row)) table += scenario + " " + std::to_string(count) + ", ";
    table.replace(table.size() - 2, 2, " |\n");
  }
  return table;
}

}  // namespace ztl_test
