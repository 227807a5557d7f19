#include "Belmo/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Belmo {

void assertionFailed(char const* text, char const* file, int line) noexcept {
    std::fprintf(stderr, "Assertion failed: %s (%s:%d)\n", text, file, line);
    std::abort();
}

}  // namespace Belmo
