#include "simulation/dialog_template.h"

#include <iterator>
#include <utility>

namespace simulation {
namespace {

constexpr DWORD DS_SETFONT = 0x40;

// Reads on as zeros after the end, and remembers that it did.
class TemplateReader {
 public:
  explicit TemplateReader(std::span<const BYTE> bytes) : bytes_(bytes) {}
  bool Failed() const { return failed_; }
  void Fail() { failed_ = true; }

  WORD Word() {
    if (bytes_.size() - at_ < sizeof(WORD)) {
      failed_ = true;
      return 0;
    }
    at_ += sizeof(WORD);
    return static_cast<WORD>(bytes_[at_ - 2] | bytes_[at_ - 1] << 8);
  }
  DWORD Dword() {
    const DWORD low = Word();
    return low | DWORD{Word()} << 16;
  }
  void Skip(std::size_t bytes) {
    if (bytes > bytes_.size() - at_)
      failed_ = true;
    else
      at_ += bytes;
  }
  void Align() { Skip((4 - at_ % 4) % 4); }

  std::u16string Text(char16_t first) {
    std::u16string text;
    for (char16_t character = first; character != 0; character = Word()) text += character;
    return text;
  }
  std::u16string Text() { return Text(Word()); }
  // `*number` receives a number that takes the place of a text.
  std::u16string TextOrNumber(WORD* number) {
    const WORD first = Word();
    if (first != 0xFFFF) return Text(first);
    *number = Word();
    return {};
  }

 private:
  std::span<const BYTE> bytes_;
  std::size_t at_ = 0;
  bool failed_ = false;
};

}  // namespace

std::optional<DialogTemplate> ReadDialogTemplate(std::span<const BYTE> bytes) {
  constexpr DWORD kExtended = 0xFFFF0001;
  constexpr const char16_t* kClasses[] = {u"Button", u"Edit", u"Static", u"ListBox", u"ScrollBar", u"ComboBox"};
  constexpr WORD kFirstClass = 0x80;
  constexpr std::size_t kPlace = 4 * sizeof(WORD);

  TemplateReader reader(bytes);
  DialogTemplate dialog;
  WORD number = 0;
  const DWORD style = reader.Dword();
  if (style == kExtended) return std::nullopt;
  reader.Skip(sizeof(DWORD));  // the extended style
  const WORD count = reader.Word();
  reader.Skip(kPlace);
  reader.TextOrNumber(&number);  // the menu
  reader.TextOrNumber(&number);  // the window class
  dialog.caption = reader.Text();
  if ((style & DS_SETFONT) != 0) {
    reader.Word();
    reader.Text();
  }
  for (WORD i = 0; i < count && !reader.Failed(); ++i) {
    reader.Align();
    reader.Skip(2 * sizeof(DWORD) + kPlace);
    Control control{};
    control.id = reader.Word();
    WORD classNumber = 0;
    control.windowClass = reader.TextOrNumber(&classNumber);
    if (control.windowClass.empty()) {
      const std::size_t index = static_cast<std::size_t>(classNumber) - kFirstClass;
      if (index < std::size(kClasses))
        control.windowClass = kClasses[index];
      else
        reader.Fail();
    }
    control.text = reader.TextOrNumber(&number);
    // The size of the creation data counts itself, unless there is none.
    const WORD data = reader.Word();
    if (data == 1)
      reader.Fail();
    else if (data != 0)
      reader.Skip(data - sizeof(WORD));
    dialog.controls.push_back(std::move(control));
  }
  if (reader.Failed()) return std::nullopt;
  return dialog;
}

}  // namespace simulation
