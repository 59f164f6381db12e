// Any text is a multi-string: its entries are what stands between the NULs before the first empty one. Built again in a
// buffer of any size, they are a list again, of as many as fit.
#include "fuzz/fuzz.h"
#include "platform/multi_string.h"

using platform::MultiStringView;

std::vector<std::string> ztl_fuzz::Seeds() {
  return {BytesOf({u"\x0010"
                   u"ab\0c\0\0d\0",
                   9}),
          BytesOf({u"\x0005"
                   u"abc\0de\0f",
                   9}),
          BytesOf({u"\x0001\0", 2})};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ztl_fuzz::Input input(data, size);
  const std::size_t capacity = input.Below(256) + 1;
  input.Byte();  // so that the text is aligned
  const std::u16string text = ztl_fuzz::Text16(input.Rest());
  const std::vector<char16_t> exact(text.begin(), text.end());
  std::vector<std::u16string> expected(1);
  for (const char16_t unit : text) {
    if (unit == 0 && expected.back().empty()) break;
    unit == 0 ? expected.emplace_back() : expected.back() += unit;
  }
  if (expected.back().empty()) expected.pop_back();

  const MultiStringView view(exact.data(), exact.size());
  ZTL_HOLDS(view.Empty() == expected.empty() && view.Count() == expected.size());
  auto entry = view.begin();
  std::vector<char16_t> buffer(capacity, u'?');
  platform::MultiStringBuilder builder(buffer.data(), capacity);
  std::u16string built;
  std::size_t fitting = 0;
  for (const std::u16string& name : expected) {
    ZTL_HOLDS(entry != view.end() && *entry == name && view.Contains(name));
    ++entry;
    const bool fits = built.size() + name.size() + 2 <= capacity;
    ZTL_HOLDS(builder.Append(name) == fits);
    if (fits) built += name + u'\0', ++fitting;
    ZTL_HOLDS(std::equal(built.begin(), built.end(), buffer.begin()) && buffer[built.size()] == 0);
  }
  ZTL_HOLDS(!(entry != view.end()));
  ZTL_HOLDS(MultiStringView(buffer.data(), capacity).Count() == fitting);
  return 0;
}
