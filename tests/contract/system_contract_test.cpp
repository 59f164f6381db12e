// What every implementation of the system, module, device and lock operations answers. Where Wine is known to differ
// from Windows, a test leaves the difference open and says so.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>

#include "platform/device.h"
#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/module.h"
#include "platform/system_info.h"
#include "tests/contract/contract_fixture.h"
#include "tests/support/built_file.h"
// After the platform's headers.
#ifdef _WIN32
#include <process.h>
#else
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace platform {
namespace {

using SystemContract = Contract;

TEST_F(SystemContract, TheVersionComesInEitherSizeOfItsStructure) {
  constexpr DWORD kWhole = sizeof(OSVERSIONINFOEXW), kOlder = 276;  // the latter ends after szCSDVersion
  for (const DWORD size : {kWhole, kOlder, kOlder - 1, kWhole + 1, 0u}) {
    OSVERSIONINFOEXW version = {size, 999, 999, 999, 999, {}, 999, 999, 999, 99, 99};
    // A failure's reason is left open: Windows says ERROR_INSUFFICIENT_BUFFER, Wine nothing.
    const bool given = GetVersionExW(&version) != 0;
    EXPECT_EQ(given, size == kWhole || size == kOlder) << size;
    EXPECT_EQ(given, version.dwMajorVersion >= 5 && version.dwMajorVersion < 100 && version.dwMinorVersion < 100);
    EXPECT_EQ(version.dwPlatformId, given ? VER_PLATFORM_WIN32_NT : 999);
    EXPECT_EQ(version.wServicePackMajor == 999, size != kWhole) << size;
    EXPECT_EQ(version.dwOSVersionInfoSize, size);
  }
}

TEST_F(SystemContract, PathsSayHowLongTheyAreAndWhetherTheyFit) {
  char directory[260];
  const UINT length = GetWindowsDirectoryA(directory, 260);
  ASSERT_TRUE(length >= 3 && length < 260 && directory[length] == '\0' && directory[length - 1] != '\\');
  EXPECT_EQ(GetWindowsDirectoryA(directory, length + 1), length);
  for (const UINT capacity : {length, 0u}) EXPECT_EQ(GetWindowsDirectoryA(directory, capacity), length + 1);

  std::u16string path(260, u'#');
  const DWORD characters = GetModuleFileNameW(nullptr, path.data(), 260);
  ASSERT_TRUE(characters >= 8 && characters < 260 && path[characters] == u'\0' && path[1] == u':');
  for (const DWORD capacity : {characters + 1, characters, characters - 1, 1u, 0u}) {
    std::u16string text(260, u'#');
    EXPECT_EQ(GetModuleFileNameW(nullptr, text.data(), capacity), std::min(capacity, characters));
    if (capacity <= characters) EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    // Windows puts the terminator in the last place, Wine none.
    if (capacity != 0 && text[capacity - 1] == u'\0') text[capacity - 1] = path[capacity - 1];
    EXPECT_EQ(text, path.substr(0, capacity) + std::u16string(260 - capacity, u'#'));
  }
}

TEST_F(SystemContract, AResourceIsFoundByItsNumberAndTypeAndIsItsFile) {
  const HRSRC script = FindResourceW(nullptr, ResourceId(40001), u"REGISTRY");
  ASSERT_NE(script, nullptr);
  EXPECT_EQ(FindResourceW(nullptr, ResourceId(40001), u"Registry"), script);
  const auto* const data = static_cast<const char*>(LoadResourceData(nullptr, script));
  std::ifstream file(ztl_test::BuiltFile(ZTL_SOURCE_DIR "/module/resources/registration.rgs"), std::ios::binary);
  EXPECT_EQ(std::string(data, SizeofResource(nullptr, script)), std::string(std::istreambuf_iterator<char>(file), {}));
  const HRSRC dialog = FindResourceW(nullptr, ResourceId(1850), ResourceId(RT_DIALOG));
  EXPECT_EQ(SizeofResource(nullptr, dialog), 214u);
  EXPECT_EQ(FindResourceW(nullptr, ResourceId(40002), u"REGISTRY"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_RESOURCE_NAME_NOT_FOUND});
  EXPECT_EQ(FindResourceW(nullptr, ResourceId(40001), u"REGISTRIES"), nullptr);
  EXPECT_EQ(GetLastError(), 1813u);  // ERROR_RESOURCE_TYPE_NOT_FOUND
}

TEST_F(SystemContract, AWindowThatDoesNotExistFailsEveryCall) {
  const auto window = reinterpret_cast<HWND>(std::uintptr_t{0x7FFE});
  char16_t text[] = u"text";
  const std::function<std::intptr_t()> calls[] = {[&] { return reinterpret_cast<std::intptr_t>(GetParent(window)); },
                                                  [&] { return SendMessageW(window, EM_LIMITTEXT, 1, 0); },
                                                  [&] { return std::intptr_t{SetWindowTextW(window, u"")}; },
                                                  [&] { return std::intptr_t{GetWindowTextW(window, text, 5)}; },
                                                  [&] { return GetWindowLongPtrW(window, DWLP_USER); },
                                                  [&] { return SetWindowLongPtrW(window, DWLP_USER, 1); }};
  for (const auto& call : calls) {
    CreateFileW(u"\\\\.\\ZtlNoSuchDevice", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);  // another error
    EXPECT_EQ(call(), 0) << &call - calls;
    EXPECT_EQ(GetLastError(), 1400u) << &call - calls;  // ERROR_INVALID_WINDOW_HANDLE
  }
  EXPECT_EQ(text[0], u'\0');
  EXPECT_EQ(GetDlgItem(window, 1), nullptr);  // Wine leaves the last error
}

// Runs the test below in another process, with one more argument. 0 when it succeeded there.
int RunElsewhere(const std::string& argument) {
  const std::string program = ::testing::internal::GetArgvs().front();
  const char* const options[] = {"tests", "--gtest_filter=*.ALockHolds*", "--gtest_brief", argument.c_str(), nullptr};
#ifdef _WIN32
  return static_cast<int>(::_spawnv(_P_WAIT, program.c_str(), options));
#else
  if (::fork() == 0) ::_exit(::execv(program.c_str(), const_cast<char* const*>(options)));
  int status = -1;
  ::wait(&status);
  return status;
#endif
}

// A line is appended to a log under a lock of bytes after the file's end.
TEST_F(SystemContract, ALockHoldsOutOtherProcessesUntilItsDescriptorGivesItUp) {
  const std::string last = ::testing::internal::GetArgvs().back(), kind = last.substr(0, 4);
  const bool isElsewhere = kind == "busy" || kind == "free";
  const std::string id = isElsewhere ? last.substr(4) : std::to_string(std::random_device()());
#ifndef ZTL_CONTRACT_WINDOWS
  machine_.files.root = std::filesystem::temp_directory_path() / ("ztl-contract-" + id);
  machine_.files.lockRetryMilliseconds = 1;
  std::filesystem::create_directories(machine_.files.root / "Windows");
#endif
  std::string path(260, '\0');
  path.resize(GetWindowsDirectoryA(path.data(), 260));
  path += "\\ztl-contract.txt";
  const auto lock = [](int file, LONG position, LONG bytes, int mode = _LK_LOCK) {
    errno = 0;
    return _lseek(file, position, SEEK_SET) == position ? _locking(file, mode, bytes) : -2;
  };
  if (isElsewhere) {
    const int file = _open(path.c_str(), _O_RDWR);
    EXPECT_TRUE(lock(file, 0, 20) == 0 && lock(file, 30, 10) == 0);
    EXPECT_EQ(lock(file, 29, 1), kind == "busy" ? -1 : 0);
    if (errno != 0) EXPECT_EQ(errno, RUNTIME_EDEADLOCK);  // Wine's runtime leaves it as it was
    EXPECT_EQ(_close(file), 0);
    return;
  }
  const int file = _creat(path.c_str(), _S_IREAD | _S_IWRITE);
  ASSERT_EQ(_write(file, "twenty characters...", 20), 20);
  ASSERT_EQ(lock(file, 20, 10), 0);
  EXPECT_EQ(_close(_open(path.c_str(), _O_RDWR)), 0);  // takes no other descriptor's locks with it
  EXPECT_EQ(RunElsewhere("busy" + id), 0);
  EXPECT_EQ(lock(file, 20, 10, _LK_UNLCK), 0);
  EXPECT_EQ(RunElsewhere("free" + id), 0);
  EXPECT_EQ(lock(file, 20, 10), 0);
  EXPECT_EQ(_close(file), 0);
  EXPECT_EQ(RunElsewhere("free" + id), 0);
#ifdef ZTL_CONTRACT_WINDOWS
  std::filesystem::remove(path);
#else
  std::filesystem::remove_all(machine_.files.root);
#endif
}

}  // namespace
}  // namespace platform
