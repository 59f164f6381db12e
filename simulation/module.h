// The module under test as the operating system has loaded it, and its process.
#pragma once

#include <string>

#include "platform/types.h"

namespace simulation {

using namespace platform;

struct Module {
  std::u16string path = u"C:\\Windows\\System32\\ztli64x.dll";
  std::u16string commandLine = u"C:\\Windows\\System32\\svchost.exe -k netsvcs";
  DWORD processId = 1234;
};

}  // namespace simulation
