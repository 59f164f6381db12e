// Comparing text as the user's language does (winbase.h).
#pragma once

#include "platform/types.h"

namespace platform {

// Below zero, zero or above as `a` comes before, equals or comes after `b` without regard to case. Characters that the
// language gives no weight, such as U+00AD and U+200D, are passed over. Cannot fail.
int lstrcmpiW(const char16_t* a, const char16_t* b);

}  // namespace platform
