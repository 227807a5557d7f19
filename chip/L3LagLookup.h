#pragma once

#include <optional>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/SimulatedChip.h"

namespace Chip {

/** Where packets to an L3 LAG go. */
struct L3LagHit {
    /** Bit p is port p; the bit above the last port is the CPU. */
    U64 ports = 0;
    bool cpuPriority = false;
    bool natEnabled = false;

    friend bool operator==(L3LagHit const&, L3LagHit const&) = default;
};

/** The ports of an L3 processor's LAGs. It knows nothing but what registers wrote. */
class BELMO_EXPORT L3LagLookup {
public:
    /** Refers to the chip, which must be that of the profile. Throws `Belmo::RangeException` for a processor
     * that it does not have. */
    L3LagLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile, U32 processor = 0);

    /** The LAG's row, its number; nothing for one above 55, which has none, and where parity is wrong. */
    std::optional<L3LagHit> find(U32 lag) const;
    IndirectMemory const& memory() const { return *memory_; }

private:
    U32 ports_;
    IndirectMemory const* memory_;
};

}  // namespace Chip
