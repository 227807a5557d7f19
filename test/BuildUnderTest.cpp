#include "BuildUnderTest.h"

namespace NerioTest {

#if defined(NERIO_SANITIZED)
bool const sanitized = true;
#else
bool const sanitized = false;
#endif
char const* const nerioCommand = NERIO_COMMAND;

}  // namespace NerioTest
