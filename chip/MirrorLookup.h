#pragma once

#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/SimulatedChip.h"

namespace Chip {

/** Where copies of a packet go. */
struct MirrorCopies {
    /** In rising order. */
    std::vector<U16> ports;
    bool cpu = false;

    friend bool operator==(MirrorCopies const&, MirrorCopies const&) = default;
};

/**
 * Where copies of received packets go: each port that the table of its pipeline serves has a bit for each
 * port of the chip and one for the CPU behind them, in as many registers as that takes. It knows nothing but
 * what registers wrote.
 */
class BELMO_EXPORT MirrorLookup {
public:
    /** Refers to both; the chip must be that of the profile. */
    MirrorLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile)
        : chip_(&chip), profile_(&profile) {}

    /** Throws `Belmo::RangeException` for a port that no pipe has. */
    MirrorCopies copiesOf(U16 port) const;

private:
    SimulatedChip const* chip_;
    NerioSwitch::ProfileInfo const* profile_;
};

}  // namespace Chip
