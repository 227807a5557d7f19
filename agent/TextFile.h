#pragma once

#include "Belmo/Types.h"

namespace Agent {

/**
 * A whole file as text, unpacked if it was packed by gzip, standard input for "-"; throws
 * `Belmo::ResourceException` with the reason alone.
 */
Belmo::String textOfFile(Belmo::String const& path);

}  // namespace Agent
