#pragma once

#include <map>
#include <optional>
#include <vector>

#include "NerioSwitch/ProfileInfo.h"
#include "Sorn/CharRange.h"

#include "NerioSwitchTable/NerioTableCopp.h"
#include "NerioSwitchTable/NerioTableStormControl.h"

/*
 * Limits in an operator's words, and the entries that rate limiters take for them. The limits of a port, and
 * all of the CPU, share an interval: a second if that serves, a part of it where a limit is too high for one,
 * or several where one is too low. A limit counts packets, with a scale factor of 0, or with any other of S
 * bits in pieces of 8 to the power of S - 1.
 */
namespace Agent {

/** A number of packets or bits a second. */
class Rate {
public:
    enum class Unit : U8 { packets, bits };

    constexpr Rate() = default;
    constexpr explicit Rate(U64 perSecond, Unit unit = Unit::packets) : perSecond_(perSecond), unit_(unit) {}

    constexpr U64 perSecond() const { return perSecond_; }
    constexpr Unit unit() const { return unit_; }

    friend constexpr bool operator==(Rate const&, Rate const&) = default;

    /** "1500 pps", "20 kpps" or "10 Mbps": the number with the largest prefix that leaves it whole. */
    Belmo::String text() const;
    /** The same with or without the blank, and with any of the prefixes k, M, G and T. */
    static Rate fromText(Sorn::CharRange& range);

private:
    U64 perSecond_ = 0;
    Unit unit_ = Unit::packets;
};

/** What a port lets in; traffic without a limit is not limited. */
struct StormLimits {
    std::optional<Rate> broadcast;
    std::optional<Rate> unicast;
    std::optional<Rate> multicast;

    friend bool operator==(StormLimits const&, StormLimits const&) = default;
};

/** The entries of one port. */
using StormEntries = std::map<NerioSwitchTable::StormControlClass, NerioSwitchTable::StormControlEntry>;

/**
 * The entries that make a port's limits; classes that are not there have none. Throws `Belmo::RangeException`
 * for a limit of nothing, and for one that is off by more than a twentieth under the interval of the others.
 */
StormEntries stormEntries(StormLimits const& limits);
/** The limits that entries make, whether they come from `stormEntries` or were read back from hardware. */
StormLimits stormLimits(StormEntries const& entries);

/** What reaches the CPU of each class; nothing for a class that is not limited. */
using CpuLimits = std::map<NerioSwitchTable::CoppClass, std::optional<Rate>>;
using CoppEntries = std::map<NerioSwitchTable::CoppEntryKey, NerioSwitchTable::CoppEntry>;

/** The classes of traffic to the CPU that the chip of a profile tells apart. */
std::vector<NerioSwitchTable::CoppClass> policedClasses(NerioSwitch::ProfileInfo const& profile);
/**
 * The entries of all classes of a chip and of their interval: a class that is not mentioned is not limited.
 * No key is left without an entry, since that would let nothing through. Throws `Belmo::RangeException` for a
 * class that the chip does not have, for bits where limiters have no scale factor, and for a limit that is
 * off by more than a twentieth, or too low for a pipeline's share of it to be handled, under the interval of
 * the others.
 */
CoppEntries coppEntries(CpuLimits const& limits, NerioSwitch::ProfileInfo const& profile);
/** The limits of all classes of a chip that entries make; without one a class has what a start gives it. */
CpuLimits cpuLimits(CoppEntries const& entries, NerioSwitch::ProfileInfo const& profile);

}  // namespace Agent
