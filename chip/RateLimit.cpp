#include "chip/RateLimit.h"

#include <fmt/format.h>

#include "Belmo/Exceptions.h"

namespace Chip {

namespace {

constexpr U64 ticksPerSecond = 31250000;
constexpr U32 creditMask = 0x3FFFF;

U32 read(SimulatedChip& chip, Belmo::String const& path) {
    return chip.read(chip.address(path));
}

/** What that much credit in every interval comes to, to the nearest number. */
RateLimit steady(U64 credit, U32 interval, RateLimit::Unit unit) {
    if (credit == 0) return {0, unit};
    if (interval == 0) return {std::nullopt, unit};
    return {(credit * ticksPerSecond + interval / 2) / interval, unit};
}

/** The limit of a word with a scale factor in its bits 20 to 22. */
RateLimit scaled(U32 word, U32 interval) {
    U32 const scale = word >> 20 & 7;
    U64 const credit = word & creditMask;
    if (scale == 0) return steady(credit, interval, RateLimit::Unit::packets);
    return steady(credit << (3 * (scale - 1)), interval, RateLimit::Unit::bits);
}

/** A limit of all ones is none, and so far all limiters count packets. */
RateLimit unscaled(U32 word, U32 interval) {
    if (word == creditMask) return {};
    return steady(word, interval, RateLimit::Unit::packets);
}

std::string_view registerOf(StormTraffic traffic) {
    switch (traffic) {
        case StormTraffic::broadcast:
            return "broadcast_limit";
        case StormTraffic::unicast:
            return "unicast_limit";
        case StormTraffic::multicast:
            break;
    }
    return "multicast_limit";
}

}  // namespace

RateLimit stormLimit(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 port,
                     StormTraffic traffic) {
    if (port >= profile.numPorts) throw Belmo::RangeException(fmt::format("the chip has no port {}", port));
    auto const place = profile.ingressPipeOfPort(port);
    auto const prefix = fmt::format("pipeline[{}]/port[{}]/", place.pipeId, place.pipePort);
    constexpr U32 enableBit = 19;
    U32 const word = read(chip, fmt::format("{}{}", prefix, registerOf(traffic)));
    if ((word >> enableBit & 1) == 0) return {};
    return scaled(word, read(chip, prefix + "interval_period"));
}

RateLimit cpuLimit(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, std::optional<U32> pipeline,
                   std::string_view limiter) {
    auto const* const format = !pipeline                ? "cpu_tx_pipeline[0]/rate_limiter/"
                               : profile.noMuxInRegName ? "ingress/rate_limiter[{}]/"
                                                        : "pipeline[{}]/rate_limiter/";
    auto const prefix = fmt::format(fmt::runtime(format), pipeline.value_or(0));
    U32 const word = read(chip, fmt::format("{}{}", prefix, limiter));
    bool const withScales = profile.hwApi >= NerioSwitch::ProfileHwApi(6, 2);
    if (withScales) return scaled(word, read(chip, "header/copp_interval"));
    return unscaled(word, read(chip, prefix + "interval_period"));
}

}  // namespace Chip
