// Dialog templates: bytes in the platform's format, and the controls that they describe.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/types.h"

namespace simulation {

using namespace platform;

// A control as it is seen.
struct Control {
  std::u16string windowClass;
  int id;
  std::u16string text;
  std::size_t limit = 32767;  // of typed text in characters, for an edit control

  friend bool operator==(const Control&, const Control&) = default;
};

struct DialogTemplate {
  std::u16string caption;
  std::vector<Control> controls;
};

// Reads a template in the platform's format, not the extended one. Nothing when it is cut short or makes no sense.
std::optional<DialogTemplate> ReadDialogTemplate(std::span<const BYTE> bytes);

}  // namespace simulation
