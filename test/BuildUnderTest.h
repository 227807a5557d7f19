#pragma once

namespace NerioTest {

/*
 * The build that the tests are linked with. Compiled tests are shared by builds, so they ask at run time.
 */

/** The libraries and the command are watched by sanitizers, which takes most tests ten times as long. */
extern bool const sanitized;
/** Path of the command `nerio`. */
extern char const* const nerioCommand;

}  // namespace NerioTest
