#pragma once

#include <optional>
#include <string_view>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/SimulatedChip.h"

/*
 * Policing as the chip does it, in nothing but what registers wrote. A limiter has a credit, which grows by
 * its increment at the end of every interval; what it lets through is taken off it. Its interval counts
 * ticks, of which there are 31250000 a second. Its scale factor says what the credit counts: 0 packets, any
 * other bits, in pieces of 1, 8, 64 and so on up to 262144.
 */
namespace Chip {

/** What a limiter lets through in the long run. */
struct RateLimit {
    enum class Unit : U8 { packets, bits };

    /** Nothing for a limiter that holds nothing back. */
    std::optional<U64> perSecond;
    Unit unit = Unit::packets;

    friend bool operator==(RateLimit const&, RateLimit const&) = default;
};

/** What storm control tells apart of the traffic that comes in at a port. */
enum class StormTraffic : U8 { broadcast, unicast, multicast };

/** The limit at a port. Throws `Belmo::RangeException` for a port that the chip does not have. */
BELMO_EXPORT RateLimit stormLimit(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 port,
                                  StormTraffic traffic);

/**
 * The limit of a class of traffic to the CPU, by its register's name such as "igmp_limit": of what an ingress
 * pipeline sends there, or behind all of them, without a pipeline. Throws
 * `NerioSwitchApi::UnknownRegisterException` for a limiter that the chip does not have.
 */
BELMO_EXPORT RateLimit cpuLimit(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile,
                                std::optional<U32> pipeline, std::string_view limiter);

}  // namespace Chip
