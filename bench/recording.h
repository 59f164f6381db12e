// The platform calls of a piece of code, to be made again without that code.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "simulation/machine.h"

namespace ztl_bench {

class Recording {
 public:
  void Reserve(std::size_t calls) { calls_.reserve(calls); }
  void Add(simulation::Operation operation, const simulation::Arguments& arguments);

  // Makes the recorded calls, in order, on the current machine, with buffers of the recorded sizes. True when every key
  // that the recorded code closed was open here too: then each of its calls had a key of its own here.
  bool Replay() const;

 private:
  // What many calls have in common. A pass makes tens of millions of calls, and what is read to make them again must
  // cost next to nothing, so a call itself is small.
  struct Kind {
    simulation::Operation operation;
    std::uint32_t number;
    std::uint32_t number2;
    std::uint32_t data;                             // of a value: offset in texts_
    auto operator<=>(const Kind&) const = default;  // NOLINT(modernize-use-nullptr): in what the compiler makes
  };
  struct Call {
    std::uint16_t kind;      // index into kinds_
    std::uint16_t key;       // index of the key, kNewKey added where it is the one that was opened last
    std::uint32_t argument;  // offset in wideTexts_ or texts_, or the index of an enumeration
  };

  // Texts or data, each once, one after the other; offset 0 is null.
  template <class Char>
  struct Texts {
    using Text = std::basic_string<Char>;

    std::uint32_t Offset(const Text& text) {
      const auto [place, added] = offsets.emplace(text, static_cast<std::uint32_t>(all.size()));
      if (added) (all += text) += Char{};
      return place->second;
    }
    const Char* At(std::uint32_t offset) const { return offset == 0 ? nullptr : all.data() + offset; }

    Text all = Text(1, Char{});
    std::unordered_map<Text, std::uint32_t> offsets;
  };

  static constexpr std::uint16_t kNewKey = 0x8000;
  static constexpr std::size_t kKeys = 64;  // open at the same time, with the root and null

  std::uint16_t KeyIndex(simulation::Operation operation, platform::HKEY key);

  std::vector<Call> calls_;
  std::vector<Kind> kinds_;
  std::map<Kind, std::uint16_t> kindIndices_;
  Texts<char16_t> wideTexts_;
  Texts<char> texts_;
  std::vector<platform::HKEY> keys_ = std::vector<platform::HKEY>(kKeys);  // by index; null: not open
  simulation::Operation lastOfFile_ = simulation::Operation::Count;        // the last file operation
  bool goneBack_ = false;  // the file pointer was set back: what follows is an unlock
};

}  // namespace ztl_bench
