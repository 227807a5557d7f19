#include "nerio/RouteOfHit.h"

#include <fmt/format.h>

#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"

namespace Nerio {

namespace {

/** The memory of a stage's rows in the first processor. */
Chip::IndirectMemory const& memoryOf(Switch& target, U8 stage) {
    return target.chip().indirectMemory(fmt::format("ingress/processor_l3[0]/lpm{}", stage));
}

/** The shadow of these rows, by the name that the stage's own table gives it. */
Belmo::Ptr<NerioSwitchApi::ShadowTable> shadowOf(Switch& target, U8 stage) {
    using NerioSwitchTable::TableConstants;
    constexpr NerioSwitchTable::TableIndex directStage = 42;
    auto const index = stage == 11 ? directStage : NerioSwitchTable::lpmStage(stage).tableIndex;
    auto const name = NerioSwitchApi::SwTable::hwTableName(
        fmt::format("lpm{}", stage), target.profile().profileName(), TableConstants::tableName(index), 0);
    return target.shadows().tableIs(name, 0, memoryOf(target, stage).description().rows() - 1,
                                    NerioSwitchApi::StartMode::warm);
}

/** The length of the route behind a hit; nothing if the shadow does not know the row as the chip has it. */
std::optional<U8> lengthOf(Switch& target, Chip::LpmHit const& hit) {
    auto const& memory = memoryOf(target, hit.stage);
    U32 const row = hit.place.way * memory.description().rowsPerWay + hit.place.row;
    std::optional<NerioSwitchApi::HwEntryConfig> stored;
    try {
        stored = shadowOf(target, hit.stage)->read(row);
    } catch (Belmo::CorruptionDetectedException const&) {
        return std::nullopt;
    }
    if (!stored) return std::nullopt;
    auto const words = memory.row(row);
    U8 position = 0;
    for (U32 const word : words) {
        if (stored->data(position++) != word) return std::nullopt;
    }
    auto const lengths = stored->data(hit.stage == 11 ? 2 : NerioSwitchTable::LpmRowLayout::lengthsWord);
    auto const length = static_cast<U8>(lengths >> (6 * hit.cell) & 0x3F);
    return length <= hit.stage ? std::optional(length) : std::nullopt;
}

}  // namespace

std::optional<Lanvo::Prefix> routeOf(Switch& target, Chip::LpmHit const& hit, Lanvo::IpAddr address) {
    auto const length = lengthOf(target, hit);
    if (!length) return std::nullopt;
    return Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(address.hostOrder() & Lanvo::Prefix::mask(*length)),
                         *length);
}

}  // namespace Nerio
