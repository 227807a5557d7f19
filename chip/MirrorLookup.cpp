#include "chip/MirrorLookup.h"

#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"

namespace Chip {

namespace {

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;

/** The lowest port of all pipes that a table serves. */
U32 firstPortOf(NerioSwitch::ProfileInfo const& profile, U32 table) {
    U32 first = profile.numPorts;
    for (auto const& [pipe, range] : profile.ingressPipeRangeInfo) {
        if (profile.pipeToTableId(pipe, l2) == table) first = std::min(first, U32{range.firstPort});
    }
    return first;
}

}  // namespace

MirrorCopies MirrorLookup::copiesOf(U16 port) const {
    auto const place = profile_->portIdToIngressPipe.find(port);
    if (place == profile_->portIdToIngressPipe.end())
        throw Belmo::RangeException(fmt::format("mirror lookup: no pipe has port {}", port));
    U32 const table = profile_->pipeToTableId(place->second.pipeId, l2);
    U32 const bits = profile_->numPorts + 1u;
    U32 const registersPerPort = (bits + 31) / 32;
    U32 const firstRegister = (port - firstPortOf(*profile_, table)) * registersPerPort;
    auto const bitOf = [&](U32 bit) {
        auto const path =
            fmt::format("ingress/processor_l2_mirror_reg[{}]/reg[{}]", table, firstRegister + bit / 32);
        return (chip_->memory()[chip_->registers().address(path).number] >> bit % 32 & 1) != 0;
    };
    MirrorCopies copies;
    for (U16 to = 0; to < profile_->numPorts; ++to) {
        if (bitOf(to)) copies.ports.push_back(to);
    }
    copies.cpu = bitOf(profile_->numPorts);
    return copies;
}

}  // namespace Chip
