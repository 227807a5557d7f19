#include "agent/Rates.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <utility>

#include "Belmo/Exceptions.h"

namespace Agent {

using NerioSwitchTable::CoppClass;
using NerioSwitchTable::CoppEntry;
using NerioSwitchTable::CoppEntryKey;
using NerioSwitchTable::StormControlClass;
using NerioSwitchTable::StormControlEntry;

namespace {

struct UnitPrefix {
    char const* name;
    U64 factor;
};
constexpr std::array<UnitPrefix, 5> unitPrefixes{
    {{"T", 1000000000000}, {"G", 1000000000}, {"M", 1000000}, {"k", 1000}, {"", 1}}};

constexpr U32 maxScaleFactor = 7;
constexpr U32 second = StormControlEntry::ticksPerSecond;

/** What one piece of a limiter's credit stands for, in packets or bits. */
U64 pieceOf(U32 scaleFactor) {
    return scaleFactor == 0 ? 1 : U64{1} << (3 * (scaleFactor - 1));
}

/** What a kind of limiter can be told. */
struct LimiterKind {
    U32 leastIncrement;
    U32 mostIncrement;
    bool scales;

    /** The largest credit in an interval. */
    double mostCredit(Rate::Unit unit) const {
        bool const inPieces = unit == Rate::Unit::bits;
        return static_cast<double>(mostIncrement * (inPieces ? pieceOf(maxScaleFactor) : 1));
    }
};

struct Steps {
    U32 increment = 0;
    U32 scaleFactor = 0;
};

[[noreturn]] void refuse(Rate const& rate, char const* why) {
    throw Belmo::RangeException(fmt::format("a limit of {} {}", rate.text(), why));
}

/** What is counted a second; nothing where that is without bound. */
std::optional<U64> trueRate(U32 interval, Steps const& steps) {
    auto const pieces =
        StormControlEntry().enabledIs(true).intervalIs(interval).incrementIs(steps.increment).trueRate();
    if (pieces == std::numeric_limits<decltype(pieces)>::max()) return std::nullopt;
    return static_cast<U64>(pieces) * pieceOf(steps.scaleFactor);
}

std::optional<Rate> rateOf(U32 interval, Steps const& steps) {
    auto const perSecond = trueRate(interval, steps);
    if (!perSecond) return std::nullopt;
    return Rate(*perSecond, steps.scaleFactor == 0 ? Rate::Unit::packets : Rate::Unit::bits);
}

/** The credit that a rate comes to in an interval. */
double creditOf(Rate const& rate, U32 interval) {
    return static_cast<double>(rate.perSecond()) * interval / second;
}

/** A second; the longest part of it in which the highest limit finds room; or a few where one is too low. */
U32 commonInterval(std::vector<Rate> const& rates, LimiterKind const& kind) {
    double parts = 0;
    double seconds = 0;
    for (auto const& rate : rates) {
        auto const perSecond = static_cast<double>(rate.perSecond());
        parts = std::max(parts, perSecond / kind.mostCredit(rate.unit()));
        seconds = std::max(seconds, kind.leastIncrement / perSecond);
    }
    // Whole parts of a second, which has a whole number of ticks: 2 four times, and 5 nine times.
    U32 interval = second;
    if (parts > 1) {
        interval = 1;
        for (U32 twos = 1; twos <= 16; twos *= 2) {
            for (U32 part = twos; part <= second; part *= 5) {
                if (part >= parts) interval = std::max(interval, second / part);
            }
        }
    } else {
        // Powers of two, which a `float` holds.
        for (U32 several = 1; several < seconds && several <= 64; several *= 2)
            interval = 2 * several * second;
    }
    return interval;
}

Steps stepsOf(Rate const& rate, U32 interval, LimiterKind const& kind) {
    constexpr int tolerance = 20;
    bool const inBits = rate.unit() == Rate::Unit::bits;
    if (inBits && !kind.scales) refuse(rate, "is not for limiters that count packets alone");
    double const credit = creditOf(rate, interval);
    for (U32 scaleFactor = inBits ? 1 : 0; scaleFactor <= (inBits ? maxScaleFactor : 0); ++scaleFactor) {
        double const increment = std::round(credit / static_cast<double>(pieceOf(scaleFactor)));
        if (increment > kind.mostIncrement) continue;
        double const off = std::abs(increment * static_cast<double>(pieceOf(scaleFactor)) - credit);
        if (increment < kind.leastIncrement || off * tolerance > credit) break;
        return {static_cast<U32>(increment), scaleFactor};
    }
    refuse(rate, fmt::format("does not fit into intervals of {} ticks", interval).c_str());
}

struct StormLimit {
    StormControlClass trafficClass;
    std::optional<Rate> StormLimits::*rate;
};
constexpr std::array<StormLimit, 3> stormLimitMembers{
    {{StormControlClass::stormControlBcast, &StormLimits::broadcast},
     {StormControlClass::stormControlAllUcast, &StormLimits::unicast},
     {StormControlClass::stormControlMcast, &StormLimits::multicast}}};

constexpr LimiterKind stormLimiters{StormControlEntry::minIncrementVal, StormControlEntry::maxIncrementVal,
                                    true};

bool hasScaleFactors(NerioSwitch::ProfileInfo const& profile) {
    return profile.hwApi >= NerioSwitch::ProfileHwApi(6, 2);
}

/** A limit of all ones is left to classes that are not limited; a pipeline's share has to be handled as well.
 */
LimiterKind coppLimiters(NerioSwitch::ProfileInfo const& profile) {
    U32 const percent = CoppEntry::pipelineScalingPercent(profile.numPipelines);
    return {(100 * CoppEntry::minIncrementVal + percent - 1) / percent, CoppEntry::maxIncrementVal - 1,
            hasScaleFactors(profile)};
}

CoppEntry coppLimit(std::optional<Rate> const& rate, U32 interval, LimiterKind const& kind) {
    Steps steps{CoppEntry::filterNone, kind.scales ? maxScaleFactor : 0};
    if (rate) steps = rate->perSecond() == 0 ? Steps() : stepsOf(*rate, interval, kind);
    if (!kind.scales) return CoppEntry().resultIs(steps.increment);
    return CoppEntry().incrementIs(steps.increment).scaleFactorIs(steps.scaleFactor);
}

CoppEntryKey keyOf(CoppClass policed) {
    return static_cast<U8>(policed);
}

/** What entries say of a class, or else what a start writes. */
CoppEntry entryOf(CoppEntries const& entries, CoppEntryKey key) {
    auto const found = entries.find(key);
    return found == entries.end() ? CoppEntry().resultIs(CoppEntry::defaultValue(key)) : found->second;
}

}  // namespace

Belmo::String Rate::text() const {
    auto const* const prefix = std::find_if(
        unitPrefixes.begin(), unitPrefixes.end(),
        [&](UnitPrefix const& each) { return perSecond_ >= each.factor && perSecond_ % each.factor == 0; });
    // Of nothing, no number is the largest.
    auto const& used = prefix == unitPrefixes.end() ? unitPrefixes.back() : *prefix;
    return fmt::format("{} {}{}", perSecond_ / used.factor, used.name,
                       unit_ == Unit::packets ? "pps" : "bps");
}

Rate Rate::fromText(Sorn::CharRange& range) {
    U64 const number = range.takeNumber();
    range.take(" ");
    auto const* const prefix = std::find_if(unitPrefixes.begin(), unitPrefixes.end() - 1,
                                            [&](UnitPrefix const& each) { return range.take(each.name); });
    if (number > std::numeric_limits<U64>::max() / prefix->factor)
        throw Belmo::RangeException(fmt::format("{} {}: a rate that is too high", number, prefix->name));
    bool const inPackets = range.take("pps");
    if (!inPackets) range.expect("bps");
    return Rate(number * prefix->factor, inPackets ? Unit::packets : Unit::bits);
}

StormEntries stormEntries(StormLimits const& limits) {
    std::vector<Rate> rates;
    for (auto const& member : stormLimitMembers) {
        auto const& rate = limits.*member.rate;
        if (!rate) continue;
        if (rate->perSecond() == 0) refuse(*rate, "is none that storm control has");
        rates.push_back(*rate);
    }
    StormEntries entries;
    U32 const interval = commonInterval(rates, stormLimiters);
    if (interval != second)
        entries[StormControlClass::stormControlInterval] = StormControlEntry().intervalIs(interval);
    for (auto const& member : stormLimitMembers) {
        auto const& rate = limits.*member.rate;
        if (!rate) continue;
        auto const steps = stepsOf(*rate, interval, stormLimiters);
        entries[member.trafficClass] = StormControlEntry()
                                           .enabledIs(true)
                                           .intervalIs(interval)
                                           .scaleFactorIs(steps.scaleFactor)
                                           .incrementIs(steps.increment);
    }
    return entries;
}

StormLimits stormLimits(StormEntries const& entries) {
    auto const ofInterval = entries.find(StormControlClass::stormControlInterval);
    U32 const interval = ofInterval == entries.end() ? second : ofInterval->second.interval();
    StormLimits limits;
    for (auto const& member : stormLimitMembers) {
        auto const found = entries.find(member.trafficClass);
        if (found == entries.end() || !found->second.enabled()) continue;
        auto const& entry = found->second;
        // What was read back may have more bits than a row.
        U32 const increment = entry.increment() & StormControlEntry::maxIncrementVal;
        limits.*member.rate = rateOf(interval, {increment, entry.scaleFactor() & maxScaleFactor});
    }
    return limits;
}

std::vector<CoppClass> policedClasses(NerioSwitch::ProfileInfo const& profile) {
    std::vector<CoppClass> classes;
    auto const mapping = NerioSwitchTable::coppRegisterMapping(profile.hwApi, {}, {});
    for (auto const& each : enumerators(CoppClass())) {
        bool const hasRegister = !mapping->getRegister(static_cast<U32>(each.value))->address(0).empty();
        if (each.value != CoppClass::interval && hasRegister) classes.push_back(each.value);
    }
    return classes;
}

CoppEntries coppEntries(CpuLimits const& limits, NerioSwitch::ProfileInfo const& profile) {
    auto const classes = policedClasses(profile);
    std::vector<Rate> rates;
    for (auto const& [policed, rate] : limits) {
        if (std::find(classes.begin(), classes.end(), policed) == classes.end())
            throw Belmo::RangeException(
                fmt::format("{} is no class of traffic to the CPU that hardware API {} has",
                            Sorn::text(policed), profile.hwApi.text()));
        if (rate && rate->perSecond() != 0) rates.push_back(*rate);
    }
    auto const kind = coppLimiters(profile);
    U32 const interval = commonInterval(rates, kind);
    CoppEntries entries;
    entries[keyOf(CoppClass::interval)] =
        kind.scales ? CoppEntry().intervalIs(static_cast<float>(interval)) : CoppEntry().resultIs(interval);
    for (auto const policed : classes) {
        auto const found = limits.find(policed);
        entries[keyOf(policed)] =
            coppLimit(found == limits.end() ? std::nullopt : found->second, interval, kind);
    }
    return entries;
}

CpuLimits cpuLimits(CoppEntries const& entries, NerioSwitch::ProfileInfo const& profile) {
    // The words behind the CPU say whole limits.
    bool const scales = hasScaleFactors(profile);
    auto const wordOf = [&](CoppEntryKey key) {
        return entryOf(entries, key).toHardwareValue(key, true, 1, scales);
    };
    U32 const interval = wordOf(keyOf(CoppClass::interval));
    CpuLimits limits;
    for (auto const policed : policedClasses(profile)) {
        auto const key = keyOf(policed);
        auto const shown = CoppEntry::fromCpuHardwareValue(key, wordOf(key), scales);
        Steps const steps = scales ? Steps{shown.increment(), shown.scaleFactor()} : Steps{shown.result(), 0};
        bool const isAll = steps.increment == CoppEntry::filterNone;
        bool const unlimited = isAll && (!scales || steps.scaleFactor == maxScaleFactor);
        limits[policed] = unlimited ? std::nullopt : rateOf(interval, steps);
    }
    return limits;
}

}  // namespace Agent
