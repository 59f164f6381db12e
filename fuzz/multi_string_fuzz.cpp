// Any text is a multi-string: its entries are what stands between the NULs before the first empty one. Built again in a
// buffer of any size, they are a list again, of as many as fit.
#include "fuzz/fuzz.h"
#include "platform/multi_string.h"

void ztl_fuzz::Check(std::string_view bytes) {
  Input input(bytes);
  const std::size_t capacity = input.Below(256) + 1;
  const std::u16string text = Text16(input.Rest());
  const std::vector<char16_t> exact(text.begin(), text.end());
  const platform::MultiStringView view(exact.data(), exact.size());
  std::vector<char16_t> buffer(capacity, u'?');
  platform::MultiStringBuilder builder(buffer.data(), capacity);
  std::u16string built;
  std::size_t count = 0, fitting = 0;
  auto entry = view.begin();
  for (std::size_t at = 0; at < text.size() && text[at] != 0; ++count, ++entry) {
    const std::u16string name = text.substr(at, text.find(u'\0', at) - at);
    at += name.size() + 1;
    ZTL_HOLDS(entry != view.end() && *entry == name && view.Contains(name));
    const bool fits = built.size() + name.size() + 2 <= capacity;
    ZTL_HOLDS(builder.Append(name) == fits);
    if (fits) built += name + u'\0', ++fitting;
    ZTL_HOLDS(std::equal(built.begin(), built.end(), buffer.begin()) && buffer[built.size()] == 0);
  }
  ZTL_HOLDS(!(entry != view.end()) && view.Empty() == (count == 0) && view.Count() == count);
  ZTL_HOLDS(platform::MultiStringView(buffer.data(), capacity).Count() == fitting);
}
