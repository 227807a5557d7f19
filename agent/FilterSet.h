#pragma once

#include <optional>
#include <vector>

#include "Lanvo/Address.h"
#include "NerioSwitch/AclHash.h"

/*
 * Filter sets in the text form of packet classification benchmarks (D. E. Taylor and J. S. Turner,
 * "ClassBench: A Packet Classification Benchmark", IEEE/ACM Transactions on Networking 15, 2007), one rule a
 * line, and how such rules fit the ACL's lookups.
 */
namespace Agent {

/** First and last port, inclusive. */
struct PortRange {
    U16 first = 0;
    U16 last = 0xFFFF;

    bool any() const { return first == 0 && last == 0xFFFF; }
    bool one() const { return first == last; }
    friend bool operator==(PortRange, PortRange) = default;
};

/** One rule of a filter set. Without a protocol it is for any. */
struct FilterRule {
    Lanvo::Prefix source;
    Lanvo::Prefix destination;
    PortRange sourcePorts;
    PortRange destinationPorts;
    std::optional<U8> protocol;

    friend bool operator==(FilterRule const&, FilterRule const&) = default;
};

/**
 * The rules of a filter set: "@src/len dst/len sport : sport dport : dport proto/mask" and whatever follows.
 * Throws `Belmo::RangeException` that names the line of the first one that is no rule.
 */
std::vector<FilterRule> filterRulesFromText(Belmo::String const& text);

/** Numbers IP protocols as the chip's protocol remapping would: 1 to 14, in order of first use. */
class ProtocolNumbers {
public:
    /** Nothing once all numbers are taken. */
    std::optional<NerioSwitch::HwProtocol> of(U8 protocol);

private:
    std::vector<U8> known_;
};

/** Why a rule does not fit one lookup. */
enum class Misfit : U8 { portRange, twoPorts, protocol };

/** The ACL key of a rule, and the physical table that it belongs to; or why there is none. */
struct FilterKey {
    NerioSwitch::AclHashKey key;
    U8 physTableIdx = 0;
    std::optional<Misfit> misfit;
};

/**
 * The lookup that a rule of that ACL fits: source addresses are first prefixes and destination addresses
 * second ones, and a combination looks at the destination's port, the source's, none, or at no protocol
 * either. Address bits beyond a prefix's length are left out.
 */
FilterKey filterKeyOf(FilterRule const& rule, U8 aclId, ProtocolNumbers& protocols);

}  // namespace Agent
