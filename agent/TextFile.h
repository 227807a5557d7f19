#pragma once

#include "Belmo/Types.h"

namespace Agent {

/**
 * A whole file as text, unpacked if it was packed by gzip, standard input for "-"; throws
 * `Belmo::ResourceException` with the reason alone.
 */
Belmo::String textOfFile(Belmo::String const& path);

/** A text of a file as messages show it: what would leave the line stands as "\x0a". */
Belmo::String oneLine(Belmo::String const& text);

}  // namespace Agent
