#include "module/notify/registrar.h"

#include <algorithm>
#include <bitset>
#include <iterator>
#include <utility>

#include "module/install/registry_tree.h"
#include "platform/registry_key.h"
#include "platform/text.h"

namespace ztl {

using namespace platform;

namespace {

constexpr std::size_t kWordCapacity = 600;  // characters: a path and the text around it
constexpr int kMaxDepth = 32;               // of nested keys

constexpr std::size_t kMaxKeys = 64;  // of a script

// What is done while a script is read. The first two stop at the first failure; the last two, which delete, go on.
enum class Mode { Check, Register, Unregister, Undo };

struct Word {
  char16_t text[kWordCapacity];
  bool quoted = false;

  bool Is(std::u16string_view name) const { return !quoted && EqualNoCase(text, name); }
  bool IsName() const {
    for (const char16_t* const reserved : {u"{", u"}", u"=", u"val", u"NoRemove", u"ForceRemove", u"Delete"})
      if (Is(reserved)) return false;
    return text[0] != u'\0';
  }
};

// The keys of a script that a registration has made, by their numbers in the script.
using MadeKeys = std::bitset<kMaxKeys>;

// Reads a script from its start to its end and acts on it by the mode.
class Script {
 public:
  Script(std::string_view text, std::u16string_view modulePath, Mode mode, MadeKeys& made)
      : rest_(text), modulePath_(modulePath), mode_(mode), made_(made) {}

  HRESULT Run() {
    const std::pair<const char16_t*, HKEY> roots[] = {{u"HKCR", HKEY_CLASSES_ROOT},
                                                      {u"HKCU", HKEY_CURRENT_USER},
                                                      {u"HKLM", HKEY_LOCAL_MACHINE},
                                                      {u"HKU", HKEY_USERS}};
    Next();
    for (const auto& [name, key] : roots) {
      if (!word_.Is(name)) continue;
      Next();
      if (!word_.Is(u"{")) return E_FAIL;
      Next();
      const HRESULT hr = Keys(mode_ == Mode::Check ? nullptr : key, 0);
      return Failed(hr) || atEnd_ ? hr : E_FAIL;
    }
    return E_FAIL;
  }

 private:
  // Moves on to the next word. At the end of the script, and after a word that cannot be read, it is empty.
  void Next() {
    word_.text[0] = u'\0';
    word_.quoted = false;
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
    atEnd_ = rest_.empty();
    if (atEnd_) return;
    std::size_t length = 0;
    word_.quoted = Take("'");
    while (!rest_.empty()) {
      if (word_.quoted ? rest_.front() == '\'' && !Follows("''") : Contains(" \t\r\n", rest_.front())) break;
      std::u16string_view added;
      char16_t character;
      if (Take("%MODULE%")) {
        added = modulePath_;
      } else {
        character = static_cast<unsigned char>(rest_.front());
        if (character == u'\0') return Fail();
        rest_.remove_prefix(word_.quoted && character == u'\'' ? 2 : 1);
        added = {&character, 1};
      }
      if (length + added.size() >= kWordCapacity) return Fail();
      length = static_cast<std::size_t>(std::copy(added.begin(), added.end(), word_.text + length) - word_.text);
    }
    word_.text[length] = u'\0';
    if (word_.quoted && !Take("'")) Fail();
  }
  void Fail() {
    rest_ = {};
    word_.text[0] = u'\0';
    word_.quoted = false;
  }
  bool Follows(std::string_view text) const {
    return rest_.size() >= text.size() && std::equal(text.begin(), text.end(), rest_.begin());
  }
  bool Take(std::string_view text) {
    if (!Follows(text)) return false;
    rest_.remove_prefix(text.size());
    return true;
  }
  static bool Contains(std::string_view characters, char wanted) { return characters.find(wanted) != characters.npos; }

  // The keys and values between two braces, the first of which has been read. `parent` is null while the script is
  // checked, and below a key that is not there: nothing is done then, but the script is read on.
  HRESULT Keys(HKEY parent, int depth) {
    HRESULT result = S_OK;
    for (; !word_.Is(u"}");) {
      if (depth == kMaxDepth || (word_.text[0] == u'\0' && !word_.quoted)) return E_FAIL;
      const HRESULT hr = depth > 0 && word_.Is(u"val") ? Value(parent) : Key(parent, depth);
      if (Failed(hr) && mode_ < Mode::Unregister) return hr;
      if (!Failed(result)) result = hr;
    }
    Next();
    return result;
  }

  HRESULT Value(HKEY parent) {
    Next();
    const Word name = word_;
    Next();
    return !name.IsName() || !word_.Is(u"=") ? E_FAIL : Text(parent, name.text);
  }

  // Reads what follows the name of a value, and stores it below `parent`.
  HRESULT Text(HKEY parent, const char16_t* name) {
    Next();
    if (!word_.Is(u"s")) return E_FAIL;
    Next();
    if (!word_.quoted) return E_FAIL;
    LSTATUS rc = ERROR_SUCCESS;
    if (mode_ == Mode::Register)
      rc = platform::RegSetValueExW(parent, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(word_.text),
                                    static_cast<DWORD>((std::u16string_view(word_.text).size() + 1) * 2));
    Next();
    return HresultFromError(rc);
  }

  HRESULT Key(HKEY parent, int depth) {
    const bool noRemove = word_.Is(u"NoRemove");
    const bool forceRemove = word_.Is(u"ForceRemove");
    if (noRemove || forceRemove) Next();
    const Word name = word_;
    if (!name.IsName() || std::u16string_view(name.text).find(u'\\') != std::u16string_view::npos || keys_ == kMaxKeys)
      return E_FAIL;
    const std::size_t number = keys_++;
    Next();
    UniqueKey key;
    HRESULT hr = S_OK;
    if (forceRemove && (mode_ == Mode::Register || (mode_ == Mode::Unregister && parent != nullptr)))
      if (const LSTATUS rc = DeleteTree(parent, name.text, [](auto...) {}); rc != ERROR_FILE_NOT_FOUND)
        hr = HresultFromError(rc);
    if (mode_ == Mode::Register && !Failed(hr)) {
      DWORD disposition = 0;
      hr = HresultFromError(platform::RegCreateKeyExW(parent, name.text, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                                      KEY_ALL_ACCESS, nullptr, key.Receive(), &disposition));
      made_[number] = !Failed(hr) && disposition == REG_CREATED_NEW_KEY;
    }
    if (mode_ == Mode::Register && Failed(hr)) return hr;
    if (mode_ >= Mode::Unregister && parent != nullptr) key.Open(parent, name.text, KEY_ALL_ACCESS);
    if (word_.Is(u"="))
      if (const HRESULT text = Text(key.Get(), nullptr); Failed(text)) return text;
    if (word_.Is(u"{")) {
      Next();
      const HRESULT below = Keys(key.Get(), depth + 1);
      if (mode_ < Mode::Unregister && Failed(below)) return below;
      if (!Failed(hr)) hr = below;
    }
    const bool isThere = key.Get() != nullptr;
    key.Close();
    // A script may name a key again, and keys below it there.
    if (isThere && mode_ == Mode::Undo && made_[number]) DeleteTree(parent, name.text, [](auto...) {});
    if (isThere && mode_ == Mode::Unregister && !noRemove) platform::RegDeleteKeyW(parent, name.text);
    return hr;
  }

  std::string_view rest_;
  const std::u16string_view modulePath_;
  const Mode mode_;
  MadeKeys& made_;
  std::size_t keys_ = 0;  // met so far
  Word word_{};
  bool atEnd_ = false;
};

}  // namespace

HRESULT RunRegistrationScript(std::string_view script, std::u16string_view modulePath, bool registering) {
  MadeKeys made;
  HRESULT hr = Script(script, modulePath, Mode::Check, made).Run();
  if (Failed(hr)) return hr;
  hr = Script(script, modulePath, registering ? Mode::Register : Mode::Unregister, made).Run();
  if (registering && Failed(hr)) Script(script, modulePath, Mode::Undo, made).Run();
  return hr;
}

}  // namespace ztl
