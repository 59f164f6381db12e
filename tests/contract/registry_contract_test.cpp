// What every implementation of the registry operations answers. Where Wine is known to differ from Windows, a test
// leaves the difference open and says so.
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/contract/contract_fixture.h"

namespace platform {
namespace {

constexpr LSTATUS ERROR_NOACCESS = 998;
constexpr LSTATUS kWasThere = 183;  // what Create answers instead of success

using Bytes = std::vector<BYTE>;
using Names = std::vector<std::u16string>;

LSTATUS Open(HKEY key, const char16_t* path) { return UniqueKey().Open(key, path, KEY_READ); }

template <DWORD kOptions = REG_OPTION_NON_VOLATILE>
LSTATUS Create(HKEY key, const char16_t* path) {
  DWORD how = 0;
  const LSTATUS status =
      RegCreateKeyExW(key, path, 0, nullptr, kOptions, KEY_ALL_ACCESS, nullptr, UniqueKey().Receive(), &how);
  return how == REG_OPENED_EXISTING_KEY ? kWasThere : status;
}

// The names that RegEnumKeyExW or RegEnumValueW gives until it fails, and with what it does; 0 at the end.
template <auto& kOperation>
std::pair<LSTATUS, Names> Enumerate(HKEY key) {
  char16_t name[256];
  for (Names names;; names.emplace_back(name)) {
    DWORD index = static_cast<DWORD>(names.size()), length = 256;
    const LSTATUS status = kOperation(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status != ERROR_SUCCESS) return {status == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : status, names};
  }
}

LSTATUS Set(HKEY key, const char16_t* name, const Bytes& data) {
  return RegSetValueExW(key, name, 0, REG_BINARY, data.data(), static_cast<DWORD>(data.size()));
}

// One call of every operation but RegCloseKey, and the right without which a handle refuses it (0: none, because
// Windows asks the security of the keys in the tree instead).
constexpr struct {
  DWORD right;
  LSTATUS (*call)(HKEY);
} kOperations[] = {
    {0, [](HKEY key) { return Open(key, u"Sub"); }},
    {0, [](HKEY key) { return Open(key, nullptr); }},
    {0, [](HKEY key) { return RegOpenKeyW(key, u"Sub", UniqueKey().Receive()); }},
    {0, [](HKEY key) { return Create(key, u"New"); }},
    {0, [](HKEY key) { return RegDeleteKeyW(key, u"New"); }},
    {KEY_ENUMERATE_SUB_KEYS, [](HKEY key) { return Enumerate<RegEnumKeyExW>(key).first; }},
    {KEY_QUERY_VALUE, [](HKEY key) { return Enumerate<RegEnumValueW>(key).first; }},
    {KEY_QUERY_VALUE, [](HKEY key) { return RegQueryValueExW(key, u"Old", nullptr, nullptr, nullptr, nullptr); }},
    {KEY_SET_VALUE, [](HKEY key) { return Set(key, u"New", Bytes(4)); }},
    {KEY_SET_VALUE, [](HKEY key) { return RegDeleteValueW(key, u"New"); }},
};

TEST_F(RegistryContract, EachOperationAsksForAnOpenKeyAndItsRight) {
  HKEY key;
  const auto expect = [&key](DWORD rights, LSTATUS otherwise) {
    for (const auto& operation : kOperations)
      EXPECT_EQ(operation.call(key), rights && (operation.right & ~rights) == 0 ? ERROR_SUCCESS : otherwise)
          << "operation " << &operation - kOperations << " with the rights " << rights;
  };
  ASSERT_EQ(Create(scratch_, u"Sub"), ERROR_SUCCESS);
  ASSERT_EQ(Set(scratch_, u"Old", {1}), ERROR_SUCCESS);
  for (const DWORD rights : {KEY_ALL_ACCESS, KEY_READ, KEY_QUERY_VALUE, KEY_SET_VALUE, KEY_ENUMERATE_SUB_KEYS}) {
    ASSERT_EQ(RegOpenKeyExW(scratch_, u"", 0, rights, &key), ERROR_SUCCESS);
    expect(rights, ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  }
  ASSERT_EQ(RegCreateKeyExW(scratch_, u"Gone", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), ERROR_SUCCESS);
  ASSERT_EQ(RegDeleteKeyW(key, u""), ERROR_SUCCESS);  // the key itself
  expect(0, ERROR_KEY_DELETED);
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  for (const HKEY closed : {key, HKEY(nullptr), reinterpret_cast<HKEY>(std::intptr_t{0x12344})}) {
    key = closed;
    expect(0, ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
  }
}

// What an operation answers for each of these paths or names.
void Expect(HKEY key, LSTATUS status, LSTATUS (*call)(HKEY, const char16_t*),
            std::initializer_list<const char16_t*> names) {
  for (const char16_t* name : names) EXPECT_EQ(call(key, name), status) << ::testing::PrintToString(name);
}

TEST_F(RegistryContract, KeysComeAndGoByTheirPaths) {
  Expect(scratch_, ERROR_SUCCESS, Create, {u"One\\\\Two\\", u"oNE\\b\\c", u"\u00C4rger", u"I"});
  Expect(scratch_, kWasThere, Create, {u"one\\TWO", u"ONE\\B"});
  Expect(scratch_, ERROR_SUCCESS, Open, {nullptr, u"", u"oNE\\tWO", u"One\\Two\\\\", u"One\\\\Two", u"\u00E4RGER"});
  Expect(scratch_, ERROR_FILE_NOT_FOUND, Open, {u"On", u"Two", u"One\\No", u"No\\Two", u"One/Two", u"\u0131"});
  Expect(scratch_, ERROR_BAD_PATHNAME, Open, {u"\\One", u"\\"});
  Expect(scratch_, ERROR_BAD_PATHNAME, Create, {u"\\One"});
  Expect(scratch_, ERROR_SUCCESS, Create<REG_OPTION_VOLATILE>, {u"Lost\\Sub", u"Lost\\Other"});
  Expect(scratch_, ERROR_CHILD_MUST_BE_VOLATILE, Create, {u"Lost\\Kept", u"Lost\\Sub\\Kept"});
  Expect(scratch_, kWasThere, Create, {u"Lost\\Sub"});
  Expect(scratch_, ERROR_INVALID_PARAMETER, RegDeleteKeyW, {nullptr});
  Expect(scratch_, ERROR_ACCESS_DENIED, RegDeleteKeyW, {u"One"});
  Expect(scratch_, ERROR_SUCCESS, RegDeleteKeyW, {u"one\\TWO"});
  Expect(scratch_, ERROR_FILE_NOT_FOUND, RegDeleteKeyW, {u"one\\TWO", u"One\\No"});
  HKEY key = scratch_;
  EXPECT_EQ(RegOpenKeyExW(scratch_, u"No", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(key, nullptr);
  // A predefined root opens as itself.
  EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_READ, &key), ERROR_SUCCESS);
  EXPECT_EQ(key, HKEY_LOCAL_MACHINE);
  Expect(key, ERROR_SUCCESS, Open, {u"SOFTWARE\\ZtlContract", nullptr});
}

TEST_F(RegistryContract, EnumerationNeedsRoomForTheTerminatedNameAndTheData) {
  ASSERT_EQ(Create(scratch_, u"key"), ERROR_SUCCESS);
  ASSERT_EQ(Set(scratch_, u"val", {1, 2, 3}), ERROR_SUCCESS);
  for (const auto& [capacity, room] : {std::pair(0u, 5u), {3u, 5u}, {4u, 2u}, {4u, 3u}, {6u, 5u}}) {
    const LSTATUS status = capacity < 4 ? ERROR_MORE_DATA : ERROR_SUCCESS, both = room < 3 ? ERROR_MORE_DATA : status;
    std::u16string name = u"######";
    Bytes data(5, 255);
    DWORD length = capacity, size = room, type = 77;
    EXPECT_EQ(RegEnumKeyExW(scratch_, 0, name.data(), &length, nullptr, nullptr, nullptr, nullptr), status);
    EXPECT_EQ(length, status ? capacity : 3);
    EXPECT_EQ(name, status ? u"######" : std::u16string(u"key\0##", 6));
    length = capacity;
    EXPECT_EQ(RegEnumValueW(scratch_, 0, name.data(), &length, nullptr, &type, data.data(), &size), both);
    EXPECT_EQ(std::pair(type, size), std::pair(REG_BINARY, DWORD{3}));
    if (status) EXPECT_EQ(name, u"######");
    if (!both)
      EXPECT_EQ(std::pair(name.substr(0, length), data), std::pair(std::u16string(u"val"), Bytes{1, 2, 3, 255, 255}));
  }
  DWORD length = 8;
  EXPECT_EQ(
      RegEnumValueW(scratch_, 0, std::u16string(8, 0).data(), &length, nullptr, nullptr, Bytes(8).data(), nullptr),
      ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryContract, TextIsCompletedWhenItIsSetAndWhenItIsQueried) {
  const struct {
    DWORD type;
    const char16_t* memory;  // what lies at the data and after it
    DWORD size, stored, capacity, read;
  } kCases[] = {
      {REG_BINARY, u"a", 2, 2, 2, 2},     {REG_BINARY, u"a", 2, 2, 1, 0},      {REG_BINARY, u"", 0, 0, 9, 0},
      {REG_DWORD, u"ab", 3, 3, 9, 3},     {REG_SZ, u"ab#", 4, 4, 9, 6},        {REG_SZ, u"ab#", 4, 4, 6, 6},
      {REG_SZ, u"ab#", 4, 4, 5, 4},       {REG_SZ, u"ab#", 4, 4, 0, 0},        {REG_EXPAND_SZ, u"ab#", 4, 4, 6, 6},
      {REG_MULTI_SZ, u"ab#", 4, 4, 6, 6}, {REG_SZ, u"a\0#", 4, 4, 9, 4},       {REG_SZ, u"abc", 6, 8, 9, 8},
      {REG_SZ, u"abc", 8, 8, 9, 8},       {REG_EXPAND_SZ, u"abc", 6, 8, 9, 8}, {REG_MULTI_SZ, u"a\0b", 6, 8, 9, 8},
      {REG_BINARY, u"abc", 6, 6, 9, 6},   {REG_SZ, u"a\0", 4, 4, 9, 4},        {REG_SZ, u"", 0, 0, 9, 0},
      {REG_SZ, u"X\0A\0", 7, 9, 9, 9},    {REG_SZ, u"X\0A\0", 5, 5, 9, 7},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    const auto memory = reinterpret_cast<const BYTE*>(c.memory);
    Bytes expected(memory, memory + std::min(c.stored, c.read)), buffer(12, 255);
    expected.resize(c.read, 0);
    expected.resize(12, 255);
    DWORD type = 77, size = c.capacity;
    ASSERT_EQ(RegSetValueExW(scratch_, u"Value", 0, c.type, memory, c.size), ERROR_SUCCESS);
    EXPECT_EQ(RegQueryValueExW(scratch_, u"vALUE", nullptr, &type, buffer.data(), &size),
              c.stored > c.capacity ? ERROR_MORE_DATA : ERROR_SUCCESS);
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(std::pair(type, size), std::pair(c.type, c.stored));
  }
}

TEST_F(RegistryContract, NamesHaveALongestLength) {
#ifdef ZTL_CONTRACT_WINDOWS
  const std::size_t keys[] = {254, 255};  // Wine takes 256, which is more than Windows does
#else
  const std::size_t keys[] = {254, 255, 256};
#endif
  for (const std::size_t length : keys) {
    const std::u16string name(length, u'n');
    EXPECT_EQ(Create(scratch_, name.c_str()), length <= 255 ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER) << length;
  }
  for (const std::size_t length : {16382u, 16383u, 16384u}) {
    const std::u16string name(length, u'n');
    EXPECT_EQ(Set(scratch_, name.c_str(), {1}), length <= 16383 ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER) << length;
    EXPECT_EQ(RegQueryValueExW(scratch_, name.c_str(), nullptr, nullptr, nullptr, nullptr),
              length <= 16383 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND)
        << length;
  }
}

TEST_F(RegistryContract, ValuesAreSetQueriedAndDeleted) {
  DWORD type = 77, size = 1;
  BYTE data[8];
  const auto set = [](HKEY key, const char16_t* name) { return Set(key, name, {1}); };
  Expect(scratch_, ERROR_SUCCESS, set, {u"First", u"Back\\slash", nullptr});
  EXPECT_EQ(Set(scratch_, u"FIRST", {2, 3}), ERROR_SUCCESS);
  EXPECT_EQ(RegSetValueExW(scratch_, u"First", 0, REG_BINARY, nullptr, 4), ERROR_NOACCESS);
  EXPECT_EQ(RegQueryValueExW(scratch_, u"first", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(std::pair(type, size), std::pair(REG_BINARY, DWORD{2}));
  EXPECT_EQ(RegQueryValueExW(scratch_, u"First", nullptr, nullptr, data, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegQueryValueExW(scratch_, u"First", &type, nullptr, data, &size), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegQueryValueExW(scratch_, u"FIRST", nullptr, nullptr, data, &size), ERROR_SUCCESS);
  EXPECT_EQ(Bytes(data, data + size), (Bytes{2, 3}));
  Names names = Enumerate<RegEnumValueW>(scratch_).second;
  std::sort(names.begin(), names.end());  // Windows gives them in the order of their creation, Wine in another
  EXPECT_EQ(names, (Names{u"", u"Back\\slash", u"First"}));
  Expect(scratch_, ERROR_SUCCESS, RegDeleteValueW, {u"fIRST", nullptr});
  Expect(scratch_, ERROR_FILE_NOT_FOUND, RegDeleteValueW, {u"First", u""});
  EXPECT_EQ(RegQueryValueExW(scratch_, nullptr, nullptr, nullptr, data, &size), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Enumerate<RegEnumValueW>(scratch_), std::pair(ERROR_SUCCESS, Names{u"Back\\slash"}));
}

// Text without its terminator is stored as it is, although the system likes to complete it.
TEST_F(RegistryContract, AnExactValueStaysExact) {
  for (const DWORD bytes : {0u, 2u, 4u, 5u, 7u}) {
    ASSERT_EQ(SetExactValue(scratch_, u"Exact", REG_SZ, u"abc", bytes), ERROR_SUCCESS);
    DWORD stored = 99;
    EXPECT_EQ(RegQueryValueExW(scratch_, u"Exact", nullptr, nullptr, nullptr, &stored), ERROR_SUCCESS);
    EXPECT_EQ(stored, bytes);
  }
}

}  // namespace
}  // namespace platform
