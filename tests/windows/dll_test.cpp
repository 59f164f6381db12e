// The DLL that ships, on the operating system's own loader, COM, registry and version functions.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "tests/support/built_file.h"
// The public headers come last: they define some of the boundary's names as macros.
#include <windows.h>
// After <windows.h>.
#include <netcfgn.h>
#include <process.h>

namespace {

namespace fs = std::filesystem;

constexpr CLSID kClass = {0x5B1E7C42, 0x93D0, 0x4F6A, {0x8E, 0x25, 0xC0, 0x7A, 0x1D, 0x39, 0xB4, 0xE8}};
constexpr wchar_t kClassKey[] = L"Software\\Classes\\CLSID\\{5b1e7c42-93d0-4f6a-8e25-c07a1d39b4e8}";
constexpr wchar_t kService[] = L"System\\CurrentControlSet\\Services\\ZTL";
constexpr wchar_t kProduct[] = L"Software\\Quillmark\\ZTL";

// A text below the class's key; "none" where there is none.
std::wstring Registered(const std::wstring& subkey) {
  wchar_t text[MAX_PATH] = L"none";
  DWORD bytes = sizeof text;
  RegGetValueW(HKEY_LOCAL_MACHINE, (kClassKey + subkey).c_str(), nullptr, RRF_RT_REG_SZ, nullptr, text, &bytes);
  return text;
}

// Each test loads the DLL, and has a log and registry keys of its own.
class DllTest : public testing::Test {
 protected:
  void SetUp() override {
    wchar_t text[MAX_PATH];
    GetWindowsDirectoryW(text, MAX_PATH);
    log_ = fs::path(text) / "temp" / "ztlinst.log";
    fs::remove(log_);
    DeleteKeys();
    ASSERT_NE(dll_ = LoadLibraryW(ztl_test::BuiltFile(ZTLI64X_DLL).c_str()), nullptr);
    GetModuleFileNameW(dll_, text, MAX_PATH);
    path_ = text;
  }
  void TearDown() override {
    FreeLibrary(dll_);
    DeleteKeys();  // a release may have made the service's key, volatile, which lets nothing last below it
  }
  static void DeleteKeys() {
    for (const wchar_t* key : {kClassKey, kService, kProduct}) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
  }

  // The log without the heads of its lines. A line of another form stays as it is.
  std::string Log() {
    std::ifstream file(log_, std::ios::binary);
    const std::regex line(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d:  ztli64x: ([^\r\n]*)\r\n)");
    return std::regex_replace(std::string(std::istreambuf_iterator<char>(file), {}), line, "$1\n");
  }
  template <class Structure = char>
  const Structure* At(std::size_t offset) {
    return reinterpret_cast<const Structure*>(reinterpret_cast<const char*>(dll_) + offset);
  }

  HMODULE dll_ = nullptr;
  fs::path log_, path_;
};

TEST_F(DllTest, ExportsFiveEntriesImportsSystemLibrariesAndIsHardened) {
  const auto* const headers = At<IMAGE_NT_HEADERS64>(static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(0)->e_lfanew));
  const auto& directories = headers->OptionalHeader.DataDirectory;
  const auto* const exports = At<IMAGE_EXPORT_DIRECTORY>(directories[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
  std::string entries = At(exports->Name) + std::string(" ") + std::to_string(exports->NumberOfFunctions);
  for (DWORD i = 0; i < exports->NumberOfNames; ++i)
    (entries += "\n" + std::to_string(exports->Base + At<WORD>(exports->AddressOfNameOrdinals)[i]) + " ") +=
        At(At<DWORD>(exports->AddressOfNames)[i]);
  EXPECT_EQ(entries,
            "ztli64x.dll 5\n1 ?ReInstallZtl@@YAKPEAX0PEADH@Z\n2 DllCanUnloadNow\n3 DllGetClassObject\n"
            "4 DllRegisterServer\n5 DllUnregisterServer");
  std::set<std::string> libraries;
  for (auto* import = At<IMAGE_IMPORT_DESCRIPTOR>(directories[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
       import->Name != 0; ++import)
    libraries.insert(At(import->Name));
  EXPECT_EQ(libraries, (std::set<std::string>{"ADVAPI32.dll", "COMCTL32.dll", "KERNEL32.dll", "SETUPAPI.dll",
                                              "USER32.dll", "VERSION.dll", "msvcrt.dll", "ole32.dll"}));
  EXPECT_EQ(headers->OptionalHeader.DllCharacteristics & 0x160, 0x160);  // high entropy, dynamic base, no execution
  EXPECT_NE(directories[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size, 0u);      // without which it could not be moved
  constexpr DWORD kBoth = IMAGE_SCN_MEM_WRITE | IMAGE_SCN_MEM_EXECUTE;
  for (WORD i = 0; i < headers->FileHeader.NumberOfSections; ++i)
    EXPECT_NE(IMAGE_FIRST_SECTION(headers)[i].Characteristics & kBoth, kBoth) << i;
  EXPECT_LT(fs::file_size(path_), 200'000u);
}

TEST_F(DllTest, TheSystemReadsItsVersionBlock) {
  std::wstring block(GetFileVersionInfoSizeW(path_.c_str(), nullptr), L'\0');
  ASSERT_TRUE(GetFileVersionInfoW(path_.c_str(), 0, static_cast<DWORD>(block.size()), block.data()));
  void* value = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", &value, &length));
  const DWORD fixed[] = {0xFEEF04BD, 0x10000, 0x40011, 0x4976, 0x40011, 0x4976, 0x3F, 0, 0x10004, 1, 0, 0, 0};
  EXPECT_EQ(std::string(static_cast<const char*>(value), length),
            std::string(reinterpret_cast<const char*>(fixed), sizeof fixed));
}

// From a folder whose name the script must quote.
TEST_F(DllTest, Regsvr32RegistersAndUnregistersItTwice) {
  const fs::path folder = fs::temp_directory_path() / "it's here", copy = folder / "ztli64x.dll";
  fs::create_directories(folder);
  fs::copy_file(path_, copy, fs::copy_options::overwrite_existing);
  const std::wstring old = std::wstring(kClassKey) + L"\\Old";
  DWORD start = 3, bytes = sizeof start;
  EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, old.c_str(), nullptr, REG_SZ, L"old", 8), 0);
  EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kService, L"Start", REG_DWORD, &start, bytes), 0);
  for (const wchar_t* const option : {L"/s", L"/s", L"/u", L"/u"}) {
    const std::wstring quoted = L"\"" + copy.wstring() + L"\"";
    fs::remove(log_);
    EXPECT_EQ(_wspawnlp(_P_WAIT, L"regsvr32.exe", L"regsvr32.exe", L"/s", option, quoted.c_str(), nullptr), 0);
    const std::string log = std::regex_replace(Log(), std::regex(" pid=.*"), "");
    if (option[1] == L'u') {
      EXPECT_EQ(Registered(L"") + Registered(L"\\InProcServer32"), L"nonenone");
      EXPECT_EQ(log,
                "   INFO: DLL_PROCESS_ATTACH 4.17.0.18806\n   INFO: DllUnregisterServer\n"
                "  ERROR: ZtlRunningVersion CreateFile err=2\n   INFO: PrepareZtlForUnload() called\n"
                "   INFO: DLL_PROCESS_DETACH\n");
      continue;
    }
    EXPECT_EQ(Registered(L"\\Old"), L"none");
    EXPECT_EQ(Registered(L"\\InProcServer32"), copy.wstring());
    EXPECT_EQ(log,
              "   INFO: DLL_PROCESS_ATTACH 4.17.0.18806\n   INFO: DllRegisterServer\n   INFO: DLL_PROCESS_DETACH\n");
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    void* object;
    ASSERT_EQ(CoCreateInstance(kClass, nullptr, CLSCTX_INPROC_SERVER, IID_INetCfgComponentSetup, &object), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0u);
    CoUninitialize();
  }
  RegGetValueW(HKEY_LOCAL_MACHINE, kService, L"Start", RRF_RT_REG_DWORD, nullptr, &start, &bytes);
  EXPECT_EQ(start, 4u);
  fs::remove_all(folder);
}

}  // namespace
