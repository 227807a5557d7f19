#pragma once

#include "NerioSwitch/AclHash.h"

#include "AclPackets.h"
#include "RandomValue.h"
#include "chip/AclLookup.h"

namespace NerioTest {

/** Combinations of a physical table: the first one, and how many. */
struct AclCombinations {
    U8 first;
    U8 count;

    static AclCombinations of(U8 physTableIdx) {
        switch (physTableIdx) {
            case 0:
                return {0, 7};
            case 1:
                return {7, 4};
            case 2:
                return {11, 4};
            default:
                return {15, 3};
        }
    }
};

/** An address of a few bits' variety, or of all; of any length where keys can tell lengths. */
inline Lanvo::Prefix randomPrefix(Random& random, U16 verMajor) {
    auto const length = static_cast<U8>(verMajor > 2 ? 1 + below(random, 32) : 32);
    U32 const address = static_cast<U32>(random()) | 0x80000000;  // not 0, which is absent
    return {Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(length)), length};
}

/** A key of a physical table whose every attribute stands in its row, so that it reads back as it was. */
inline NerioSwitch::AclHashKey randomAclKey(Random& random, U8 physTableIdx, U16 verMajor) {
    auto const combinations = AclCombinations::of(physTableIdx);
    auto const combination = static_cast<U8>(combinations.first + below(random, combinations.count));
    NerioSwitch::AclHashKey key;
    key.combinationIs(combination);
    if (physTableIdx != 0) key.firstPrefixIs(randomPrefix(random, verMajor));
    if (physTableIdx != 1) key.secondPrefixIs(randomPrefix(random, verMajor));
    if (physTableIdx == 5) {
        key.aclIdIs(0).vrfIdIs(below(random, 8)).keyFlagIs(below(random, 2) != 0);
        return key;
    }
    bool const looksAtProtocol = combination != 3 && combination != 7 && combination != 11;
    key.aclIdIs(static_cast<U8>(below(random, 16)));
    if (looksAtProtocol) key.protocolIs(1 + below(random, 15));
    if (below(random, 4) != 0) {
        key.portIs(static_cast<U16>(1 + below(random, 0xFFFE)));
    } else {
        bool const canAskForZero = (combination & 0xF3) == 1 || (combination & 0xF3) == 2;
        key.portIsZeroIs(canAskForZero && below(random, 2) != 0);
    }
    return key;
}

/** A result that a row of that version can hold, for keys without a port range. */
inline NerioSwitch::AclHashResult randomAclResult(Random& random, U8 physTableIdx, U16 verMajor) {
    NerioSwitch::HwAclRule rule;
    rule.priorityIs(1 + below(random, 63));
    bool const hasFlag = physTableIdx != 5 || verMajor <= 2;
    rule.ruleFlagIs(!hasFlag || below(random, 2) != 0);
    if (physTableIdx != 5) rule.counterIs(below(random, verMajor <= 3 ? 0x800 : 0x1000));
    NerioSwitch::AclHashResult result;
    result.ruleIs(0, rule);
    if (physTableIdx != 5 && verMajor <= 3) {
        result.ruleIs(
            1, NerioSwitch::HwAclRule().priorityIs(below(random, 16)).ruleFlagIs(below(random, 2) != 0));
    }
    return result;
}

/** What the chip is to say of a rule. */
inline Chip::AclRule chipRule(NerioSwitch::HwAclRule const& rule) {
    return {rule.priority().value(), rule.ruleFlag(), rule.counter().value(), std::nullopt};
}

/** Whether a lookup yields that result, in every chain that rows of the version have. */
inline bool yields(std::optional<Chip::AclHit> const& hit, NerioSwitch::AclHashResult const& result) {
    return hit && hit->rule == chipRule(result.rule(0)) &&
           (!hit->secondRule || *hit->secondRule == chipRule(result.rule(1)));
}

}  // namespace NerioTest
