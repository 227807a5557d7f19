#include "NerioSwitchTable/NerioPortGeometry.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

using NerioSwitch::ProfileInfo;
using NerioSwitch::TableLayoutEnum;

namespace {

/** Ports above have no place in a chip-wide mask. */
constexpr U32 maskBits = 64;

PortRange portRangeOfTable(ProfileInfo const* profileInfo, TableLayoutEnum layout, U32 tableId) {
    BELMO_ASSERT(profileInfo->ingressPipeRangeInfos());
    PortRange hull{profileInfo->numPorts - 1u, 0};
    for (U16 pipe = 0; pipe < profileInfo->numPipelinesOfTable(layout); ++pipe) {
        if (profileInfo->pipeToTableId(pipe, layout) != tableId) continue;
        auto const found = profileInfo->ingressPipeRangeInfo.find(pipe);
        auto const range =
            found == profileInfo->ingressPipeRangeInfo.end() ? NerioSwitch::PipeRangeInfo{} : found->second;
        hull.first = std::min(hull.first, U32{range.firstPort});
        hull.second = std::max(hull.second, U32{range.lastPort});
    }
    return hull;
}

}  // namespace

PortRange portRangeOfVlanTable(ProfileInfo const* profileInfo, U32 tableId) {
    return portRangeOfTable(profileInfo, TableLayoutEnum::tableLayoutVlan, tableId);
}

PortRange portRangeOfL2Table(ProfileInfo const* profileInfo, U32 tableId) {
    return portRangeOfTable(profileInfo, TableLayoutEnum::tableLayoutL2, tableId);
}

U32 numVlanTableCopies(ProfileInfo const& profile) {
    return profile.numTables(TableLayoutEnum::tableLayoutVlan) + (profile.hasCpuPipeline ? 1u : 0u);
}

bool isCpuPipeline(ProfileInfo const& profile, U32 pipeNo, U32 numPipes) {
    return profile.hasCpuPipeline && pipeNo + 1 == numPipes;
}

bool singleAclPipeMode(ProfileInfo const& profile) {
    return profile.aclPipeModeCapable && profile.numProcessors(TableLayoutEnum::tableLayoutAcl) ==
                                             profile.numPipelinesOfTable(TableLayoutEnum::tableLayoutAcl);
}

U8 numVrfBits(ProfileInfo const& profile) {
    return profile.numVrfs == 0 ? U8{0} : static_cast<U8>(std::bit_width(profile.numVrfs) - 1);
}

U32 TablePortRanges::minOfTable(U32 tableId) const {
    auto const found = ranges_.find(tableId);
    return found == ranges_.end() ? 0 : found->second.min();
}

U8 TablePortRanges::numPortsOfTable(U32 tableId) const {
    auto const found = ranges_.find(tableId);
    if (found == ranges_.end()) return 1;
    // An empty range, which a copy without a pipe has, wraps to a huge count and ends here.
    U32 const ports = found->second.max() + 1 - found->second.min();
    BELMO_ASSERT_TEXT(ports <= std::numeric_limits<U8>::max(), "ports <= std::numeric_limits< U8 >::max()");
    return static_cast<U8>(ports);
}

U64 TablePortRanges::maskOfTable(U32 tableId, U64 chipMask) const {
    U8 const ppp = numPortsOfTable(tableId);
    BELMO_ASSERT(ppp <= 48);
    U32 const first = minOfTable(tableId);
    return first >= maskBits ? 0 : (chipMask >> first) & ((U64{1} << ppp) - 1);
}

U64 TablePortRanges::chipMask(U32 tableId, U64 maskOfTable) const {
    U32 const first = minOfTable(tableId);
    return first >= maskBits ? 0 : maskOfTable << first;
}

}  // namespace NerioSwitchTable
