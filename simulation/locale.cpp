// Comparing text without regard to case. Equal here is what is known to be equal on Windows: letters that differ in
// case alone, and texts that differ by characters without weight. What else a language makes equal (composed and
// decomposed letters, say) differs here, and where two texts differ, only their order by upper-cased units is given.
#include "platform/locale.h"

#include <string>

#include "simulation/machine.h"

namespace platform {
namespace {

// Joiners, marks of direction, invisible operators, and characters that are none.
bool HasNoWeight(char16_t c) {
  return c == 0x00AD || c == 0x034F || (c >= 0x180B && c <= 0x180D) || (c >= 0x200C && c <= 0x200F) ||
         (c >= 0x202A && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF || c >= 0xFFFE;
}

std::u16string Weights(const char16_t* text) {
  std::u16string weights = simulation::UpperCase(text);
  std::erase_if(weights, HasNoWeight);
  return weights;
}

}  // namespace

int lstrcmpiW(const char16_t* a, const char16_t* b) {
  simulation::Current().Enter(simulation::Operation::lstrcmpiW, {.name = a});
  const int order = Weights(a).compare(Weights(b));
  return order < 0 ? -1 : order > 0;
}

}  // namespace platform
