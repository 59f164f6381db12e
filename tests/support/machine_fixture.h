// The fixture of every test that runs the module's code on a simulated machine.
#pragma once

#include "simulation/machine.h"
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ztl_test {

using simulation::Machine;
using Strings = std::vector<std::string>;

std::vector<platform::BYTE> Bytes(std::u16string_view text);  // the text's units, without a terminator
std::vector<platform::BYTE> Sz(std::u16string_view text);
std::vector<platform::BYTE> MultiSz(std::initializer_list<std::u16string_view> entries);
std::string ReadFile(const std::filesystem::path& path);
std::vector<std::string> Lines(const std::string& text);  // ended by CR LF each; anything after the last one is one too

inline constexpr std::u16string_view kNetClass =
    u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";
inline constexpr std::u16string_view kNetwork = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Network";
inline constexpr std::u16string_view kParameters =
    u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZTL\\Parameters";

// A machine on a temporary drive C:, at 14:03:52 on 5 March 2024. After every test nothing may be left of what the code
// opened, made or allocated; the tear-down asserts it for all.
class MachineTest : public testing::Test {
 protected:
  MachineTest();
  ~MachineTest() override;
  void TearDown() override { ExpectNothingLeft(); }

  void Prepare(Machine& machine) const;  // its clock and its drive, which is empty then
  void ExpectNothingLeft() { ExpectNothingLeft(machine_); }
  static void ExpectNothingLeft(
      const Machine& machine);  // of keys, files, memory, engine objects, the lock, COM and windows
  std::filesystem::path LogPath() const { return root_ / "Windows" / "temp" / "ztlinst.log"; }
  std::vector<std::string> LogMessages() const;  // the lines of the log without their heads
  std::vector<std::string> LogErrors() const;    // those of severity ERROR
  std::vector<std::string> TakeLog();            // LogMessages, and the log is empty then

  // A component of the NetService or NetTrans class; empty texts leave their value out.
  void AddService(std::u16string_view subkey, std::u16string_view service, std::u16string_view filterClass,
                  std::u16string_view deviceId);
  void AddTransport(std::u16string_view subkey, std::u16string_view service);
  // An adapter instance; an empty service leaves the NDI key out.
  void AddAdapter(std::u16string_view subkey, std::u16string_view guid, std::u16string_view deviceId,
                  std::u16string_view service, std::initializer_list<std::u16string_view> rootDevice,
                  std::initializer_list<std::u16string_view> upperBind);
  // Two intermediate drivers, A and the filter, in the wrong order over one adapter: instances 0000 to 0002.
  void AddWrongStack();

  simulation::RegistryValue Linkage(std::u16string_view subkey, std::u16string_view name);

  std::filesystem::path root_;
  Machine machine_;
  simulation::CurrentMachine current_{machine_};
};

}  // namespace ztl_test
