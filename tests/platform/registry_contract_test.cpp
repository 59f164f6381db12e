// What every implementation of the registry operations answers. Where Wine is known to differ from Windows, a test
// leaves the difference open and says so.
#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tests/platform/contract_fixture.h"

namespace platform {
namespace {

constexpr LSTATUS ERROR_NOACCESS = 998;

using Bytes = std::vector<BYTE>;
using Names = std::vector<std::u16string>;

LSTATUS CloseOpened(LSTATUS status, const HKEY& key) { return status == ERROR_SUCCESS ? RegCloseKey(key) : status; }

LSTATUS Create(HKEY key, const char16_t* subKey, DWORD options = 0, DWORD* made = nullptr) {
  HKEY created;
  return CloseOpened(RegCreateKeyExW(key, subKey, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &created, made),
                     created);
}

LSTATUS Open(HKEY key, const char16_t* subKey) {
  HKEY opened;
  return CloseOpened(RegOpenKeyExW(key, subKey, 0, KEY_READ, &opened), opened);
}

LSTATUS OpenLargest(HKEY key, const char16_t* subKey) {
  HKEY opened;
  return CloseOpened(RegOpenKeyW(key, subKey, &opened), opened);
}

// One call of RegEnumKeyExW or RegEnumValueW, for the name alone.
template <auto& kOperation>
LSTATUS Enumerate(HKEY key, DWORD index, std::u16string* name) {
  char16_t buffer[256];
  DWORD length = 256;
  const LSTATUS status = kOperation(key, index, buffer, &length, nullptr, nullptr, nullptr, nullptr);
  name->assign(buffer, status == ERROR_SUCCESS ? length : 0);
  return status;
}

template <auto& kOperation>
LSTATUS EnumerateFirst(HKEY key) {
  std::u16string name;
  return Enumerate<kOperation>(key, 0, &name);
}

template <auto& kOperation>
Names EnumerateAll(HKEY key) {
  Names names;
  std::u16string name;
  for (DWORD i = 0; Enumerate<kOperation>(key, i, &name) == ERROR_SUCCESS; ++i) names.push_back(name);
  return names;
}
constexpr auto Subkeys = EnumerateAll<RegEnumKeyExW>;

// Sorted: Windows gives the values in the order of their creation, Wine in another.
Names Values(HKEY key) {
  Names names = EnumerateAll<RegEnumValueW>(key);
  std::sort(names.begin(), names.end());
  return names;
}

LSTATUS Set(HKEY key, const char16_t* name, DWORD type, const Bytes& data) {
  return RegSetValueExW(key, name, 0, type, data.data(), static_cast<DWORD>(data.size()));
}

Bytes Query(HKEY key, const char16_t* name) {
  Bytes buffer(64);
  DWORD size = 64;
  const LSTATUS status = RegQueryValueExW(key, name, nullptr, nullptr, buffer.data(), &size);
  return Bytes(buffer.begin(), buffer.begin() + (status == ERROR_SUCCESS ? size : 0));
}

// One call of every operation but RegCloseKey, and the right without which a handle refuses it (0: none, because
// Windows asks the security of the keys in the tree instead).
constexpr struct {
  const char* name;
  LSTATUS (*call)(HKEY);
  DWORD right;
} kOperations[] = {
    {"RegOpenKeyExW", [](HKEY key) { return Open(key, u"Sub"); }, 0},
    {"RegOpenKeyExW of the key", [](HKEY key) { return Open(key, nullptr); }, 0},
    {"RegOpenKeyW", [](HKEY key) { return OpenLargest(key, u"Sub"); }, 0},
    {"RegCreateKeyExW", [](HKEY key) { return Create(key, u"New"); }, 0},
    {"RegDeleteKeyW", [](HKEY key) { return RegDeleteKeyW(key, u"New"); }, 0},
    {"RegEnumKeyExW", EnumerateFirst<RegEnumKeyExW>, KEY_ENUMERATE_SUB_KEYS},
    {"RegEnumValueW", EnumerateFirst<RegEnumValueW>, KEY_QUERY_VALUE},
    {"RegQueryValueExW", [](HKEY key) { return RegQueryValueExW(key, u"Value", nullptr, nullptr, nullptr, nullptr); },
     KEY_QUERY_VALUE},
    {"RegSetValueExW", [](HKEY key) { return Set(key, u"Fresh", REG_BINARY, Bytes(4)); }, KEY_SET_VALUE},
    {"RegDeleteValueW", [](HKEY key) { return RegDeleteValueW(key, u"Fresh"); }, KEY_SET_VALUE},
};

TEST_F(RegistryContract, EachOperationAsksForItsRight) {
  ASSERT_EQ(Create(scratch_, u"Sub"), ERROR_SUCCESS);
  ASSERT_EQ(Set(scratch_, u"Value", REG_BINARY, {1}), ERROR_SUCCESS);
  for (const DWORD access : {KEY_ALL_ACCESS, KEY_READ, KEY_QUERY_VALUE, KEY_SET_VALUE, KEY_ENUMERATE_SUB_KEYS}) {
    HKEY key;
    ASSERT_EQ(RegOpenKeyExW(scratch_, u"", 0, access, &key), ERROR_SUCCESS);
    for (const auto& operation : kOperations)
      EXPECT_EQ(operation.call(key),
                (access & operation.right) == operation.right ? ERROR_SUCCESS : ERROR_ACCESS_DENIED)
          << operation.name << " with access " << access;
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  }
}

TEST_F(RegistryContract, NoOperationTakesAClosedHandleOrADeletedKey) {
  HKEY key;
  ASSERT_EQ(RegCreateKeyExW(scratch_, u"Gone", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), ERROR_SUCCESS);
  ASSERT_EQ(RegDeleteKeyW(scratch_, u"Gone"), ERROR_SUCCESS);
  for (const auto& operation : kOperations) EXPECT_EQ(operation.call(key), ERROR_KEY_DELETED) << operation.name;
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  for (const auto& operation : kOperations) {
    EXPECT_EQ(operation.call(key), ERROR_INVALID_HANDLE) << operation.name;
    EXPECT_EQ(operation.call(nullptr), ERROR_INVALID_HANDLE) << operation.name;
  }
  for (const HKEY closed : {key, HKEY(nullptr), reinterpret_cast<HKEY>(std::intptr_t{0x12344})})
    EXPECT_EQ(RegCloseKey(closed), ERROR_INVALID_HANDLE);
}

TEST_F(RegistryContract, APredefinedRootIsAlwaysOpen) {
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_READ, &key), ERROR_SUCCESS);
  EXPECT_EQ(key, HKEY_LOCAL_MACHINE);  // as documented: the same handle once more
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, u"SOFTWARE\\ZtlContract"), ERROR_SUCCESS);
}

TEST_F(RegistryContract, OpensPaths) {
  ASSERT_EQ(Create(scratch_, u"One\\\\Two\\"), ERROR_SUCCESS);
  ASSERT_EQ(Create(scratch_, u"\u00C4rger"), ERROR_SUCCESS);
  ASSERT_EQ(Create(scratch_, u"I"), ERROR_SUCCESS);
  const auto expect = [this](LSTATUS status, std::initializer_list<const char16_t*> paths) {
    for (const char16_t* path : paths) {
      SCOPED_TRACE(::testing::PrintToString(std::u16string(path ? path : u"null")));
      HKEY key = scratch_;
      EXPECT_EQ(RegOpenKeyExW(scratch_, path, 0, KEY_ALL_ACCESS, &key), status);
      EXPECT_NE(key, scratch_);
      EXPECT_EQ(RegCloseKey(key), status ? ERROR_INVALID_HANDLE : ERROR_SUCCESS);  // null after a failure
    }
  };
  expect(ERROR_SUCCESS,
         {nullptr, u"", u"One", u"One\\Two", u"oNE\\tWO", u"One\\Two\\\\", u"One\\\\Two", u"\u00E4RGER"});
  expect(ERROR_FILE_NOT_FOUND, {u"On", u"Two", u"One\\Missing", u"Missing\\Two", u"One/Two", u"\u0131"});
  expect(ERROR_BAD_PATHNAME, {u"\\One", u"\\"});
}

TEST_F(RegistryContract, CreatesEveryMissingLevel) {
  DWORD disposition = 0;
  EXPECT_EQ(Create(scratch_, u"A\\b\\C", 0, &disposition), ERROR_SUCCESS);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  EXPECT_EQ(Create(scratch_, u"a\\B", 0, &disposition), ERROR_SUCCESS);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  EXPECT_EQ(Create(scratch_, u"a\\B\\d", 0, &disposition), ERROR_SUCCESS);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  EXPECT_EQ(Create(scratch_, u"\\x"), ERROR_BAD_PATHNAME);
  EXPECT_EQ(Subkeys(scratch_), Names{u"A"});
}

TEST_F(RegistryContract, NothingLastsBelowAVolatileKey) {
  EXPECT_EQ(Create(scratch_, u"Volatile\\Middle", REG_OPTION_VOLATILE), ERROR_SUCCESS);
  EXPECT_EQ(Create(scratch_, u"Volatile\\Lasting"), ERROR_CHILD_MUST_BE_VOLATILE);
  EXPECT_EQ(Create(scratch_, u"Volatile\\Middle\\Lasting"), ERROR_CHILD_MUST_BE_VOLATILE);
  EXPECT_EQ(Create(scratch_, u"Volatile\\Middle"), ERROR_SUCCESS);  // is there already
  EXPECT_EQ(Create(scratch_, u"Volatile\\Other", REG_OPTION_VOLATILE), ERROR_SUCCESS);
}

TEST_F(RegistryContract, DeletesKeysWithoutSubkeys) {
  ASSERT_EQ(Create(scratch_, u"Top\\Leaf"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteKeyW(scratch_, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegDeleteKeyW(scratch_, u"Top"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(scratch_, u"Top\\Missing"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(scratch_, u"top\\LEAF"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteKeyW(scratch_, u"top\\LEAF"), ERROR_FILE_NOT_FOUND);
  HKEY top;
  ASSERT_EQ(RegOpenKeyExW(scratch_, u"Top", 0, KEY_ALL_ACCESS, &top), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteKeyW(top, u""), ERROR_SUCCESS);  // the key itself
  EXPECT_EQ(RegCloseKey(top), ERROR_SUCCESS);
  EXPECT_EQ(Subkeys(scratch_), Names());
}

TEST_F(RegistryContract, SubkeysComeInOrderAsTheyWereNamed) {
  // Letters and digits only: Wine orders the characters between Z and a by lower case, Windows by upper case.
  for (const char16_t* name : {u"beta", u"Alpha2", u"GAMMA", u"alpha", u"0010", u"0009"})
    ASSERT_EQ(Create(scratch_, name), ERROR_SUCCESS);
  EXPECT_EQ(Subkeys(scratch_), (Names{u"0009", u"0010", u"alpha", u"Alpha2", u"beta", u"GAMMA"}));
  ASSERT_EQ(RegDeleteKeyW(scratch_, u"0010"), ERROR_SUCCESS);
  std::u16string name;
  EXPECT_EQ(Enumerate<RegEnumKeyExW>(scratch_, 1, &name), ERROR_SUCCESS);
  EXPECT_EQ(name, u"alpha");  // moved into the deleted key's place
  EXPECT_EQ(Enumerate<RegEnumKeyExW>(scratch_, 5, &name), ERROR_NO_MORE_ITEMS);
}

TEST_F(RegistryContract, AKeyNameNeedsRoomForItsTerminator) {
  ASSERT_EQ(Create(scratch_, u"abc"), ERROR_SUCCESS);
  for (DWORD capacity = 0; capacity <= 6; ++capacity) {
    char16_t name[] = u"######";
    DWORD length = capacity;
    const LSTATUS status = RegEnumKeyExW(scratch_, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(status, capacity < 4 ? ERROR_MORE_DATA : ERROR_SUCCESS) << capacity;
    EXPECT_EQ(length, capacity < 4 ? capacity : 3);
    EXPECT_EQ(std::u16string(name, 6), capacity < 4 ? std::u16string(u"######") : std::u16string(u"abc\0##", 6));
  }
}

TEST_F(RegistryContract, AnEnumeratedValueNeedsRoomForNameAndData) {
  ASSERT_EQ(Set(scratch_, u"abc", REG_DWORD, {1, 2, 3, 4}), ERROR_SUCCESS);
  for (const DWORD capacity : {3u, 4u, 64u}) {
    for (const DWORD dataCapacity : {3u, 4u, 64u}) {
      char16_t name[64] = u"#";
      Bytes data(64, 255);
      DWORD length = capacity, size = dataCapacity, type = 77;
      EXPECT_EQ(RegEnumValueW(scratch_, 0, name, &length, nullptr, &type, data.data(), &size),
                capacity < 4 || dataCapacity < 4 ? ERROR_MORE_DATA : ERROR_SUCCESS);
      EXPECT_EQ(size, 4u);
      EXPECT_EQ(type, REG_DWORD);
      EXPECT_TRUE(capacity >= 4 || name[0] == u'#');
      if (capacity < 4 || dataCapacity < 4) continue;
      EXPECT_EQ(std::u16string(name, length), u"abc");
      data.resize(5);
      EXPECT_EQ(data, (Bytes{1, 2, 3, 4, 255}));
    }
  }
  char16_t name[64];
  DWORD length = 64;
  BYTE data[4];
  EXPECT_EQ(RegEnumValueW(scratch_, 0, name, &length, nullptr, nullptr, data, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegEnumValueW(scratch_, 1, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
}

TEST_F(RegistryContract, QueriesTypeSizeAndData) {
  const Bytes kText = {'a', 0, 'b', 0}, kEndedText = {'a', 0, 0, 0};
  const struct {
    DWORD type;
    Bytes stored;
    DWORD capacity;
    std::size_t appended;  // bytes of a terminator
  } kCases[] = {
      {REG_BINARY, {1, 2}, 2, 0},   {REG_BINARY, {1, 2}, 1, 0},  {REG_BINARY, {1, 2}, 0, 0}, {REG_BINARY, {}, 8, 0},
      {REG_DWORD, {1, 2, 3}, 8, 0}, {REG_SZ, kText, 8, 2},       {REG_SZ, kText, 6, 2},      {REG_SZ, kText, 5, 0},
      {REG_EXPAND_SZ, kText, 6, 2}, {REG_MULTI_SZ, kText, 6, 2}, {REG_BINARY, kText, 8, 0},  {REG_SZ, kEndedText, 8, 0},
      {REG_SZ, kText, 3, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message() << "type " << c.type << ", capacity " << c.capacity);
    const bool fits = c.stored.size() <= c.capacity;
    Bytes memory = c.stored;
    memory.resize(8, 255);  // no terminator behind the data
    ASSERT_EQ(RegSetValueExW(scratch_, u"Value", 0, c.type, memory.data(), static_cast<DWORD>(c.stored.size())), 0);
    std::fill_n(memory.begin() + static_cast<std::ptrdiff_t>(c.stored.size()), c.appended, BYTE{0});
    Bytes buffer(8, 255);
    DWORD type = 77, size = c.capacity;
    EXPECT_EQ(RegQueryValueExW(scratch_, u"vALUE", nullptr, &type, buffer.data(), &size), fits ? 0 : ERROR_MORE_DATA);
    EXPECT_EQ(buffer, fits ? memory : Bytes(8, 255));
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(size, c.stored.size());
    size = 0;
    EXPECT_EQ(RegQueryValueExW(scratch_, u"Value", nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, c.stored.size());
  }
  DWORD type = 77, size = 8;
  BYTE data[8];
  EXPECT_EQ(RegQueryValueExW(scratch_, u"Value", nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(type, REG_SZ);
  EXPECT_EQ(RegQueryValueExW(scratch_, u"Value", nullptr, &type, data, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegQueryValueExW(scratch_, u"Value", &type, nullptr, data, &size), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegQueryValueExW(scratch_, u"Missing", nullptr, nullptr, data, &size), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegQueryValueExW(scratch_, nullptr, nullptr, nullptr, data, &size), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryContract, CompletesTextWithTheTerminatorBehindIt) {
  const struct {
    DWORD type;
    std::u16string_view memory;  // what lies at the data and behind it
    DWORD size;
    std::size_t stored;
  } kCases[] = {
      {REG_SZ, {u"abc\0", 4}, 6, 8},        {REG_SZ, {u"abc\0", 4}, 8, 8},    {REG_SZ, {u"abcd", 4}, 6, 6},
      {REG_EXPAND_SZ, {u"abc\0", 4}, 6, 8}, {REG_SZ, {u"a\0\0", 3}, 4, 4},    {REG_MULTI_SZ, {u"a\0b\0\0", 5}, 6, 8},
      {REG_BINARY, {u"abc\0", 4}, 6, 6},    {REG_SZ, {u"\0", 1}, 0, 0},       {REG_MULTI_SZ, {u"a\0\0", 3}, 6, 6},
      {REG_SZ, {u"X\0A\0\0", 5}, 7, 9},     {REG_SZ, {u"X\0A\0\0", 5}, 5, 5},
  };
  for (const auto& c : kCases) {
    const auto memory = reinterpret_cast<const BYTE*>(c.memory.data());
    ASSERT_EQ(RegSetValueExW(scratch_, u"Text", 0, c.type, memory, c.size), ERROR_SUCCESS);
    EXPECT_EQ(Query(scratch_, u"Text"), Bytes(memory, memory + c.stored));
  }
}

TEST_F(RegistryContract, SetsAndDeletesValues) {
  EXPECT_EQ(Set(scratch_, u"First", REG_BINARY, {1}), ERROR_SUCCESS);
  EXPECT_EQ(Set(scratch_, u"Back\\slash", REG_BINARY, {2}), ERROR_SUCCESS);
  EXPECT_EQ(Set(scratch_, u"FIRST", REG_DWORD, {3, 0, 0, 0}), ERROR_SUCCESS);
  EXPECT_EQ(Set(scratch_, nullptr, REG_BINARY, {4}), ERROR_SUCCESS);
  EXPECT_EQ(Values(scratch_), (Names{u"", u"Back\\slash", u"First"}));  // in the letter case of their creation
  EXPECT_EQ(Query(scratch_, u"first"), (Bytes{3, 0, 0, 0}));
  EXPECT_EQ(Query(scratch_, u""), Bytes{4});
  EXPECT_EQ(RegSetValueExW(scratch_, u"First", 0, REG_BINARY, nullptr, 4), ERROR_NOACCESS);
  EXPECT_EQ(RegDeleteValueW(scratch_, u"fIRST"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteValueW(scratch_, u"First"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteValueW(scratch_, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(Values(scratch_), Names{u"Back\\slash"});
}

}  // namespace
}  // namespace platform
