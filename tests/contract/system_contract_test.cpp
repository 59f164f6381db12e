// What every implementation of the system, module, device and lock operations answers. Where Wine is known to differ
// from Windows, a test leaves the difference open and says so.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "platform/com.h"
#include "platform/device.h"
#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/locale.h"
#include "platform/module.h"
#include "platform/standard_output.h"
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

TEST_F(SystemContract, ComIsInitializedOftenAndOnceAtFirst) {
  std::thread([] {
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    CoUninitialize();
  }).join();
}

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

TEST_F(SystemContract, TextComparesByTheLanguageWithoutCase) {
  constexpr char16_t kName[] = u"Adapters";
  for (const char16_t* const same : {kName, u"aDAPTERS", u"Adap\u00ADters", u"\uFEFFadapters", u"Adapters\u200D\u200C"})
    EXPECT_EQ(lstrcmpiW(same, kName), 0) << ::testing::PrintToString(same);
  for (const char16_t* const other : {u"Adapters2", u"Adapters ", u"badapters", u"Adapters\u00A0"})
    EXPECT_GT(lstrcmpiW(other, kName), 0) << ::testing::PrintToString(other);
  for (const char16_t* const other : {u"", u"Adapter", u"1dapters"})
    EXPECT_LT(lstrcmpiW(other, kName), 0) << ::testing::PrintToString(other);
  EXPECT_NE(lstrcmpiW(u"Ad-apters", kName), 0);
  EXPECT_EQ(lstrcmpiW(u"\u00E9\u0436", u"\u00C9\u0416"), 0);
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

TEST_F(SystemContract, AnIdentifierIsWrittenInUpperCase) {
  char16_t text[39];
  const GUID id = {0x5B1E7C42, 0x93D0, 0x4F6A, {0x8E, 0x25, 0xC0, 0x7A, 0x1D, 0x39, 0xB4, 0xE8}};
  EXPECT_EQ(StringFromGUID2(id, text, 38), 0);
  EXPECT_EQ(StringFromGUID2(id, text, 39), 39);
  EXPECT_EQ(std::u16string(text), u"{5B1E7C42-93D0-4F6A-8E25-C07A1D39B4E8}");
}

TEST_F(SystemContract, TheLocalTimeIsThatOfTheTimeZone) {
#ifdef _WIN32
  ::_putenv("TZ=ZTL-5");
  ::_tzset();
#else
  ::setenv("TZ", "ZTL-5", 1);
#endif
  const std::int64_t time = 1709647432;  // 14:03:52 in UTC, on 5 March 2024
  char text[40] = "";
  platform::strftime(text, sizeof text, "%c", platform::localtime(&time));
  EXPECT_EQ(std::string(text), "03/05/24 19:03:52");
#ifdef _WIN32
  ::_putenv("TZ=");
  ::_tzset();
#else
  ::unsetenv("TZ");
#endif
}

TEST_F(SystemContract, ADeviceThatIsNotThereCannotBeOpened) {
  EXPECT_EQ(CreateFileW(u"\\\\.\\ZtlNoSuchDevice", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

#ifdef ZTL_CONTRACT_WINDOWS
TEST_F(SystemContract, AFileIsOpenedByItsFlagsAndOutputIsUtf8) {
  const std::string path = (std::filesystem::temp_directory_path() / "ztl-contract-output.txt").string();
  const int file = ::_open(path.c_str(), 0x8302, 0x180), old = ::_dup(1);  // binary, created, empty; read and written
  ASSERT_EQ(::_dup2(file, 1), 0);
  WriteStandardOutput(u"\u00E9\u20AC\n");
  ::_dup2(old, 1);
  ::_close(old);
  ::_close(file);
  std::ifstream written(path, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), "\xC3\xA9\xE2\x82\xAC\n");
  written.close();
  const std::u16string wide(path.begin(), path.end());
  constexpr DWORD kDelete = 0x00010000;
  const HANDLE handle =
      CreateFileW(wide.c_str(), kDelete, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  EXPECT_NE(CloseHandle(handle), 0);
  EXPECT_FALSE(std::filesystem::exists(path));
}
#endif

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

[[maybe_unused]] constexpr int kLockRetryMilliseconds = 20;

// A line is appended to a log under a lock of bytes after the file's end.
TEST_F(SystemContract, ALockHoldsOutOtherProcessesUntilItsDescriptorGivesItUp) {
  const std::string last = ::testing::internal::GetArgvs().back(), kind = last.substr(0, 4);
  const bool isElsewhere = kind == "busy" || kind == "free";
  const std::string id = isElsewhere ? last.substr(4) : std::to_string(std::random_device()());
#ifndef ZTL_CONTRACT_WINDOWS
  machine_.files.root = std::filesystem::temp_directory_path() / ("ztl-contract-" + id);
  machine_.files.lockRetryMilliseconds = kLockRetryMilliseconds;
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
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(lock(file, 29, 1), kind == "busy" ? -1 : 0);
    [[maybe_unused]] const auto waited = std::chrono::steady_clock::now() - start;
#ifndef ZTL_CONTRACT_WINDOWS  // Wine's runtime gives up at once
    EXPECT_EQ(waited >= 9 * std::chrono::milliseconds(kLockRetryMilliseconds), kind == "busy");  // between ten tries
#endif
    if (errno != 0) EXPECT_EQ(errno, RUNTIME_EDEADLOCK);  // Wine's runtime leaves it as it was
    EXPECT_EQ(_close(file), 0);
    return;
  }
#ifdef ZTL_CONTRACT_WINDOWS
  *::__p__fmode() = 0x8000;  // binary, as a process may have it
#endif
  const int text = _creat(path.c_str(), _S_IREAD | _S_IWRITE);
  EXPECT_EQ(_write(text, "\n", 1), 1);
  EXPECT_EQ(_filelength(text), 2);
  EXPECT_EQ(_close(text), 0);
  const int again = _open(path.c_str(), _O_RDWR);
  char line[3] = "";
  EXPECT_EQ(_read(again, line, 3), 1);
  EXPECT_EQ(line[0], '\n');
  EXPECT_EQ(_close(again), 0);
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
