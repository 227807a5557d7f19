#pragma once

#include <array>
#include <limits>

#include "Belmo/Export.h"
#include "Belmo/RangedIndex.h"
#include "Lanvo/Address.h"
#include "Sorn/ValueType.h"

/** What an ACL lookup asks for and what it answers; and the numbers that both are made of. */
namespace NerioSwitch {

/** Which fields of a packet take part in a lookup, 0 to 17; 18 is none. */
BELMO_INDEX(NerioSwitch, HwAclCombinationId, U8, min, 0, invalid, 18, invalid);

/** Remapped IP protocol, 1 to 15; 0 is none. */
BELMO_INDEX(NerioSwitch, HwProtocol, U8, invalid, 0, max, 15, invalid);

/** Number of a port range, 0 to 7; 8 is none. */
BELMO_INDEX(NerioSwitch, HwAclRangeId, U8, min, 0, invalid, 8, invalid);

/** VRF number, 0 to 127; 128 is none. */
BELMO_INDEX(NerioSwitch, AclVrfId, U8, min, 0, null, 128, null);

/** Priority of a rule, 1 to 63, 1 the highest; 0 is none. */
BELMO_INDEX(NerioSwitch, HwAclPriority, U8, invalid, 0, max, 63, invalid);

/** Row of a counter, 1 to 0xFFF; 0 is none. */
BELMO_INDEX(NerioSwitch, HwCounterIndex, U16, invalid, 0, max, 0xFFF, invalid);

/** Which of the rules that one lookup yields, 0 or 1. */
BELMO_INDEX(NerioSwitch, HwAclChainId, U8, min, 0, max, 1, min);

/** One rule that a lookup yields. The default is no rule. */
class BELMO_EXPORT HwAclRule {
    SORN_VALUE_TYPE(NerioSwitch, HwAclRule, (HwAclPriority, priority, {}), (bool, ruleFlag, false),
                    (HwCounterIndex, counter, {}), (HwAclRangeId, rangeId, {}));
};

/** A rule per chain, chain 0 first. */
using HwAclRules = std::array<HwAclRule, std::size_t{HwAclChainId::max} + 1>;

/** What an ACL lookup yields. */
class BELMO_EXPORT AclHashResult {
    SORN_VALUE_TYPE(NerioSwitch, AclHashResult, (HwAclRules, rules, {}));

    HwAclRule const& rule(HwAclChainId chain) const { return rules_[chain.value()]; }
    AclHashResult& ruleIs(HwAclChainId chain, HwAclRule const& rule) {
        rules_[chain.value()] = rule;
        return *this;
    }
};

/** What an ACL lookup asks for. Attributes that the combination does not look at keep their defaults. */
class BELMO_EXPORT AclHashKey {
public:
    /** The ACL number of a key that belongs to no ACL. */
    static constexpr U8 invalidAclId = 16;

    SORN_VALUE_TYPE(NerioSwitch, AclHashKey, (U16, port, 0), (Lanvo::Prefix, firstPrefix, {}),
                    (Lanvo::Prefix, secondPrefix, {}), (U8, aclId, invalidAclId),
                    (HwAclCombinationId, combination, {}), (HwProtocol, protocol, {}),
                    (bool, portIsZero, false), (HwAclRangeId, rangeId, {}), (AclVrfId, vrfId, {}),
                    (bool, keyFlag, false));

    bool isEq(AclHashKey const& other) const { return *this == other; }

    /** All attributes in two numbers, to hash a key by. */
    std::array<U64, 2> hashNumbers() const {
        U64 const addresses =
            U64{firstPrefix_.address().hostOrder()} << 32 | secondPrefix_.address().hostOrder();
        U64 rest = U64{port_} << 8 | firstPrefix_.len();
        rest = rest << 8 | secondPrefix_.len();
        rest = rest << 8 | aclId_;
        rest = rest << 5 | combination_.value();
        rest = rest << 4 | protocol_.value();
        rest = rest << 4 | rangeId_.value();
        rest = rest << 8 | vrfId_.value();
        rest = rest << 1 | U64{portIsZero_};
        rest = rest << 1 | U64{keyFlag_};
        return {addresses, rest};
    }
};
static_assert(sizeof(AclHashKey) <= 20, "chips hold many keys, and the driver each of them several times");

struct AclIndirectCounterHashKeyTraits {
    using Representation = U16;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText =
        "NerioSwitch::AclIndirectCounterHashKey::value > 0xFFFF not allowed";
};

/** What the ACL processor looks a counter up by. */
using AclIndirectCounterHashKey = Belmo::RangedIndex<AclIndirectCounterHashKeyTraits>;

struct AclIndirectCounterHashResultTraits {
    using Representation = U16;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText =
        "NerioSwitch::AclIndirectCounterHashResult::value > 0xFFFF not allowed";
};

/** The counter's row; hardware takes the low 12 bits. */
using AclIndirectCounterHashResult = Belmo::RangedIndex<AclIndirectCounterHashResultTraits>;

}  // namespace NerioSwitch
