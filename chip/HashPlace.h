#pragma once

#include "Belmo/Types.h"

namespace Chip {

/** The way and the row, within that way, in which a lookup found its key. */
struct HashPlace {
    U8 way = 0;
    U32 row = 0;

    friend bool operator==(HashPlace, HashPlace) = default;
};

}  // namespace Chip
