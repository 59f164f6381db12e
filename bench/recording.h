// The platform calls of a piece of code, to be made again without that code.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/simulated/machine.h"

namespace ztl_bench {

class Recording {
 public:
  void Reserve(std::size_t calls) { calls_.reserve(calls); }
  void Add(platform::simulated::Operation operation, const platform::simulated::Arguments& arguments);

  // Makes the recorded calls, in order, on the current machine, with buffers of the recorded sizes. The machine must be
  // as the recorded one was, so that its handles have the recorded values. False when a handle had another one.
  bool Replay() const;

 private:
  struct Call {
    std::uint64_t key;
    std::uint32_t text;  // index into wideTexts_ or texts_
    std::uint32_t number;
    std::uint32_t number2;
    platform::simulated::Operation operation;
  };

  // Texts and data, each once. The pointers are those of the maps' keys; index 0 is null.
  template <class Text>
  struct Texts {
    std::unordered_map<Text, std::uint32_t> indices;
    std::vector<const Text*> byIndex{nullptr};

    std::uint32_t Index(Text text);
  };

  std::vector<Call> calls_;
  Texts<std::u16string> wideTexts_;
  Texts<std::string> texts_;
  platform::simulated::Operation lastOfFile_ = platform::simulated::Operation::Count;  // the last file operation
  bool back_ = false;  // the file pointer was set back: what follows is an unlock
};

}  // namespace ztl_bench
