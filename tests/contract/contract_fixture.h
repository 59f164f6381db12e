// What the contract tests of the platform boundary run on: the simulated machine, or with ZTL_CONTRACT_WINDOWS the
// operating system itself.
#pragma once

#include "platform/registry_key.h"
#ifndef ZTL_CONTRACT_WINDOWS
#include "simulation/machine.h"
#endif
// After the platform's headers: the C library defines some of their names as macros.
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace platform {

class Contract : public ::testing::Test {
#ifndef ZTL_CONTRACT_WINDOWS
 protected:
  simulation::Machine machine_;
  simulation::CurrentMachine current_{machine_};
#endif
};

// Either way the tests of the registry work below one scratch key, which comes and goes with each test.
class RegistryContract : public Contract {
 protected:
  void SetUp() override {
    DeleteTree(HKEY_LOCAL_MACHINE, kPath);
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &scratch_, nullptr),
              0);
  }
  void TearDown() override {
    EXPECT_EQ(RegCloseKey(scratch_), ERROR_SUCCESS);
    DeleteTree(HKEY_LOCAL_MACHINE, kPath);
#ifndef ZTL_CONTRACT_WINDOWS
    EXPECT_EQ(machine_.registry.OpenHandlePaths(), std::vector<std::u16string>());
#endif
  }

  HKEY scratch_ = nullptr;  // opened with every right

 private:
  static constexpr const char16_t* kPath = u"SOFTWARE\\ZtlContract";

  static void DeleteTree(HKEY parent, const char16_t* name) {
    HKEY key;
    if (RegOpenKeyExW(parent, name, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) return;
    char16_t subkey[256];
    for (DWORD size = 256; RegEnumKeyExW(key, 0, subkey, &size, nullptr, nullptr, nullptr, nullptr) == 0; size = 256)
      DeleteTree(key, subkey);
    RegCloseKey(key);
    ASSERT_EQ(RegDeleteKeyW(parent, name), ERROR_SUCCESS);  // else the loop above would not end
  }
};

}  // namespace platform
