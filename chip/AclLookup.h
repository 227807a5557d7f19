#pragma once

#include <array>
#include <optional>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/HashPlace.h"
#include "chip/SimulatedChip.h"

namespace Chip {

/**
 * What an ACL lookup looks at in a packet. Addresses are in host order. What the physical table's keys have
 * no room for may be anything.
 */
struct AclFields {
    /** ACL number, at most 15. */
    U8 aclId = 0;
    /** An address takes part with its first `firstLength` bits, 0 to 32. If those are 0, it is absent. */
    U32 firstAddress = 0;
    U8 firstLength = 32;
    U32 secondAddress = 0;
    U8 secondLength = 32;
    /** L4 port; nothing looks for rules of any port. A key has room for no port 65535: it is any port. */
    std::optional<U16> port{};
    /** Remapped protocol, at most 15; 0 finds nothing where combinations look at it. */
    U8 protocol = 0;
    /** Only the low three bits take part. */
    U8 vrf = 0;
    bool keyFlag = false;
};

/** The ways whose row was passed over since its parity was wrong. */
using WrongParity = std::array<bool, 2>;

/** The bits of one rule. */
struct AclRule {
    /** 1 to 63, 0 for no rule. */
    U8 priority = 0;
    bool flag = false;
    U16 counter = 0;
    std::optional<U8> range{};

    friend bool operator==(AclRule const&, AclRule const&) = default;
};

struct AclHit {
    HashPlace place;
    AclRule rule;
    /** The rule of the second chain, where rows have one: physical tables 0 to 2 below version 4. */
    std::optional<AclRule> secondRule{};

    friend bool operator==(AclHit const&, AclHit const&) = default;
};

/**
 * The ACL processors' lookup. It packs a key as the chip does, reads the row that each way's CRC gives, and
 * compares what the row stores of a key, which is all but the lowest bits: those are told by the row's
 * number. It knows nothing but what registers wrote.
 *
 * An empty row, all zero, answers no key. In physical tables 0, 1 and 2 a row with protocol 0 is not in use,
 * and a key with it finds nothing: all else that rows store of a key of table 0 or 1 can be zero. In table 5
 * the second address tells: it is stored whole, and in no key is it 0, since an absent one is all ones.
 */
class BELMO_EXPORT AclLookup {
public:
    /**
     * Refers to the chip, which must be that of the profile. Throws `Belmo::RangeException` for a hardware
     * version below 2, and for a chip whose ACL processors have no rows.
     */
    AclLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /**
     * What a packet hits in the rows of its pipeline under a combination of fields, 0 to 17. If asked,
     * says which ways were passed over. The first way is taken if both match, as they do while an entry
     * is being moved. Throws `Belmo::RangeException` for fields out of their range.
     */
    std::optional<AclHit> find(AclFields const& fields, U8 combination, U32 pipeline,
                               WrongParity* wrongParity = nullptr) const;
    /** The rows that a combination is looked up in. Throws likewise. */
    IndirectMemory const& memory(U8 combination, U32 pipeline) const;
    /** Whether keys tell how long their addresses are. */
    bool tellsLengths() const { return version_ > 2; }

private:
    static constexpr std::size_t tableCount = 4;

    U32 version_;
    bool processorPerPipeline_;
    /** By pipeline. */
    std::vector<std::array<IndirectMemory const*, tableCount>> memories_;
};

struct IndirectCounterHit {
    HashPlace place;
    U16 counter = 0;

    friend bool operator==(IndirectCounterHit const&, IndirectCounterHit const&) = default;
};

/**
 * The lookup of an ACL processor's indirect counters. A key below 2048 with counter 0 makes a row that is all
 * zero, which is an empty one: it is not found.
 */
class BELMO_EXPORT IndirectCounterLookup {
public:
    /** Refers to the chip. Throws `Belmo::RangeException` if it has no such ACL processor. */
    IndirectCounterLookup(SimulatedChip const& chip, U32 processor);

    std::optional<IndirectCounterHit> find(U16 key, WrongParity* wrongParity = nullptr) const;

private:
    IndirectMemory const* memory_;
};

}  // namespace Chip
