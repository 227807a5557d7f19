#pragma once

#include "Belmo/Export.h"

namespace Belmo {

/** Reports a broken invariant on standard error and ends the process with SIGABRT. */
[[noreturn]] BELMO_EXPORT void assertionFailed(char const* text, char const* file, int line) noexcept;

}  // namespace Belmo

/** Always compiled in. The text of the failure is the condition as written. */
#define BELMO_ASSERT(condition) BELMO_ASSERT_TEXT(condition, #condition)

/** The same with a text of its own, for conditions whose text is fixed and differs from the code. */
#define BELMO_ASSERT_TEXT(condition, text)                \
    (__builtin_expect(static_cast<bool>(condition), true) \
         ? static_cast<void>(0)                           \
         : ::Belmo::assertionFailed(text, __FILE__, __LINE__))
