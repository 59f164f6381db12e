#include "platform/simulated/dialogs.h"
#include "platform/simulated/resources.h"
#include "tests/support/machine_test.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulated::ReadDialogTemplate;

// The module's own template and, behind it, what that has not: names for a menu and a class, a text and a class that
// are numbers, creation data.
TEST(DialogTemplate, IsReadToItsEndAndNotCutShort) {
  const simulated::Resource& resource = simulated::kResources[1];
  const std::vector<BYTE> own(resource.data, resource.data + resource.bytes);
  const std::vector<BYTE> other =
      Bytes({u"\0\0\0\0\1\1\2\3\4menu\0class\0title\0"
             u"\0\0\0\0\1\2\3\4\5list\0\xFFFF\7\6\1\2",
             45});
  ASSERT_TRUE(ReadDialogTemplate(own));
  EXPECT_EQ(ReadDialogTemplate(own)->controls.size(), 4u);
  const auto read = ReadDialogTemplate(other);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->caption, u"title");
  EXPECT_EQ(read->controls, (std::vector<simulated::Control>{{u"list", 5, u""}}));
  for (const std::vector<BYTE>& bytes : {own, other})
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      const std::vector<BYTE> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(ReadDialogTemplate(cut)) << size;
    }
  for (const auto& [at, value] : {std::pair(0, 1), std::pair(88, 0x86)}) {  // extended; no such class
    std::vector<BYTE> bad = own;
    bad[static_cast<std::size_t>(at)] = static_cast<BYTE>(value);
    if (at == 0) bad[1] = 0, bad[2] = bad[3] = 0xFF;
    EXPECT_FALSE(ReadDialogTemplate(bad)) << at;
  }
}

}  // namespace
