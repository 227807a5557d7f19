#pragma once

#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace Sorn {

/** printf-style formatting into a string; the text forms of keys and results are written with it. */
[[gnu::format(printf, 1, 2)]] BELMO_EXPORT Belmo::String _fmt(char const* format, ...);

/** "true " and "false": one width, so that the fields of a text form line up. */
constexpr char const* paddedBool(bool value) {
    return value ? "true " : "false";
}

}  // namespace Sorn
