#pragma once

#include <optional>

#include "Lanvo/Address.h"

#include "chip/LpmLookup.h"
#include "nerio/Switch.h"

namespace Nerio {

/** The route behind a hit of the chip; nothing if the shadow, which alone has its length, does not know the
 * row as the chip has it. */
std::optional<Lanvo::Prefix> routeOf(Switch& target, Chip::LpmHit const& hit, Lanvo::IpAddr address);

}  // namespace Nerio
