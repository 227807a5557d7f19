#pragma once

#include "Belmo/Types.h"

namespace Sorn {

/** The first byte of a buffer that a callee fills. */
using BytePtr = U8*;

}  // namespace Sorn
