#include <utility>

#include "simulation/dialog_template.h"
#include "simulation/resources.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::Control;
using simulation::ReadDialogTemplate;

// The module's own template, and one with what that has not: names for a menu and a class, a number for a text,
// creation data.
TEST(DialogTemplate, IsReadToItsEndAndNotCutShort) {
  const simulation::Resource& resource = simulation::kResources[1];
  const std::vector<BYTE> own(resource.data, resource.data + resource.bytes);
  const std::vector<BYTE> other =
      Bytes({u"\0\0\0\0\1\1\2\3\4menu\0class\0title\0\0\0\0\0\1\2\3\4\5list\0\xFFFF\7\6\1\2", 45});
  for (const std::vector<BYTE>& bytes : {own, other}) {
    const auto read = ReadDialogTemplate(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->caption, bytes == own ? u"General" : u"title");
    EXPECT_EQ(read->controls.back(), (bytes == own ? Control{u"Edit", 1852, u""} : Control{u"list", 5, u""}));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      const std::vector<BYTE> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(ReadDialogTemplate(cut)) << size;
    }
  }
}

using DialogsTest = MachineTest;

TEST_F(DialogsTest, APageOfAnotherSizeOrWithFlagsIsNotMade) {
  for (const auto& [size, flags] :
       {std::pair<DWORD, DWORD>(sizeof(PROPSHEETPAGEW), 1), {sizeof(PROPSHEETPAGEW) - 8, 0}}) {
    PROPSHEETPAGEW page{};
    page.dwSize = size;
    page.dwFlags = flags;
    EXPECT_EQ(CreatePropertySheetPageW(&page), nullptr);
  }
}

}  // namespace
