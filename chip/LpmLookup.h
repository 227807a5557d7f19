#pragma once

#include <array>
#include <optional>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/HashPlace.h"
#include "chip/SimulatedChip.h"

namespace Chip {

/** What a route lookup found. */
struct LpmHit {
    /** The longest route that the stage serves: 32, 29, 26, 23, 20, 17, 14, or 11 for the direct one. */
    U8 stage = 0;
    /** Way 0 in the direct stage. */
    HashPlace place;
    /** Which of the row's cells, 0 to 3; 0 in the direct stage. */
    U8 cell = 0;
    /** The cell as the row holds it: 16 bits of a hash stage, 12 of the direct one. */
    U16 encoding = 0;
    /** The next hop that it stands for, at most 4095. */
    U16 nexthop = 0;
    bool cpuTrap = false;

    friend bool operator==(LpmHit const&, LpmHit const&) = default;
};

/**
 * The lookup of an L3 processor: the stages that hash, the longest first, and then the direct one. It knows
 * nothing but what registers wrote.
 *
 * A stage hashes the VRF and the first bits of the address, compares what the row stores of them, and answers
 * with the cell that the next two bits choose. A key that is not found falls on to the next stage, and so
 * does one whose cell is null, whether its row traps packets or not. A row of wrong parity is passed over,
 * and so are the multicast routes in the rows of stage 29. Of two ways that both match, as they do while an
 * entry is being moved, the first one is taken.
 */
class BELMO_EXPORT LpmLookup {
public:
    /**
     * Refers to the chip, which must be that of the profile. Throws `Belmo::RangeException` where rows are
     * not known, which is for other than 4, 8 or 32 VRFs, and for a processor that the chip does not have.
     */
    LpmLookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 processor = 0);

    /** Where a packet to that address, in host order, would go; nothing where no route covers it. Throws
     * `Belmo::RangeException` for a VRF that the chip does not have. */
    std::optional<LpmHit> find(U8 vrf, U32 address) const;
    /** The same for a packet that comes: the row that answers gets its hit bit. */
    std::optional<LpmHit> packetIs(U8 vrf, U32 address);
    /** The rows of the stage that a hit names. */
    IndirectMemory& memory(U8 stage) const;

private:
    static constexpr std::size_t hashStages = 7;

    std::optional<LpmHit> findDirect(U8 vrf, U32 address) const;

    U32 vrfs_;
    U32 vrfBits_;
    /** Bit of `cpuTrap` in the direct stage's rows. */
    U8 directTrapBit_;
    /** The longest stage first. */
    std::array<IndirectMemory*, hashStages> stages_{};
    IndirectMemory* direct_;
};

}  // namespace Chip
