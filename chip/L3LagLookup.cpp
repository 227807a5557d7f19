#include "chip/L3LagLookup.h"

#include <fmt/format.h>

#include "chip/BitRow.h"

namespace Chip {

L3LagLookup::L3LagLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile, U32 processor)
    : ports_(profile.numPorts),
      memory_(&chip.indirectMemory(fmt::format("ingress/processor_l3[{}]/l3Lag", processor))) {}

std::optional<L3LagHit> L3LagLookup::find(U32 lag) const {
    if (lag >= memory_->description().rowsPerWay) return std::nullopt;
    auto const words = memory_->row(lag);
    if (!evenParity(words)) return std::nullopt;
    BitRow const row(words);
    auto const bits = [&](U32 first, U32 width) {
        return row.at({static_cast<U8>(first), static_cast<U8>(width)});
    };
    return L3LagHit{.ports = bits(0, ports_ + 1),
                    .cpuPriority = bits(ports_ + 1, 1) != 0,
                    .natEnabled = bits(ports_ + 3, 1) != 0};
}

}  // namespace Chip
