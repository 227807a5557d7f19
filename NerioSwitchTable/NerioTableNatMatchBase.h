#pragma once

#include <array>

#include "Belmo/Duration.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/Nat.h"
#include "NerioSwitchApi/EntryProgrammedStatus.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableHash.h"

/** What the tables share that match packets for address translation. */
namespace NerioSwitchTable {

/**
 * What a packet is matched by. Static matches look at the side that `natType` names, and want the other side
 * and, without a port, both ports at 0; a filter is a prefix that the other side's address must lie in.
 * Dynamic matches look at both sides and at no filter. Of `ingressProfileId` hardware holds 6 bits.
 */
class NERIO_SWITCH_TABLE_EXPORT NatMatchKey {
    SORN_VALUE_TYPE(NerioSwitchTable, NatMatchKey, (NerioSwitch::NatType, natType, {}),
                    (Lanvo::IpAddr, sip, {}), (U16, sport, 0), (Lanvo::IpAddr, dip, {}), (U16, dport, 0),
                    (Lanvo::Prefix, filterPfx, Lanvo::Prefix::null()), (U16, ingressProfileId, 0));

    bool isEq(NatMatchKey const& other) const { return *this == other; }
    Belmo::String stringValue() const;

    /** All attributes in three numbers, in declared order, to hash a key by. */
    std::array<U64, 3> hashNumbers() const {
        return {U64{natType_.value()} << 48 | U64{sip_.hostOrder()} << 16 | sport_,
                U64{dip_.hostOrder()} << 16 | dport_, U64{prefixHash(filterPfx_)} << 16 | ingressProfileId_};
    }

private:
    /** A prefix in one word: its address and length stirred by T. Wang's integer hash. */
    static constexpr U32 prefixHash(Lanvo::Prefix const& prefix) {
        U32 x = (prefix.len() ^ prefix.address().hostOrder()) * 32767 - 1;
        x = (x ^ x >> 12) * 5;
        x = (x >> 4 ^ x) * 2057;
        return x ^ x >> 16;
    }
};

/** What is known of one key of a match table. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, NatMatchEntryStatus, (NatMatchKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** The status of the match table whose items are these. */
template <class Item>
using NatMatchTableStatus = HashTableStatus<Item, NatMatchEntryStatus>;

}  // namespace NerioSwitchTable
