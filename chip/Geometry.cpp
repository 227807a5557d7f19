#include "chip/Geometry.h"

#include <algorithm>
#include <vector>

namespace Chip {

namespace {

using NerioSwitch::ProfileInfo;

U32 copies(U16 count, std::vector<U16> const& pipeToCopy) {
    if (count == 0) return 0;
    U32 copies = count;
    for (U32 const copy : pipeToCopy)
        copies = std::max(copies, copy + 1);
    return copies;
}

}  // namespace

U32 pipelineCount(ProfileInfo const& profile) {
    U32 count = profile.numPipelines;
    for (auto const& [layout, record] : profile.layouts)
        count = std::max<U32>({count, record.pipelines, record.tables});
    for (auto const* pipes : {&profile.ingressPipeRangeInfo, &profile.egressPipeRangeInfo}) {
        if (!pipes->empty()) count = std::max(count, U32{pipes->rbegin()->first} + 1);
    }
    return count;
}

U32 tableCount(ProfileInfo const& profile, NerioSwitch::TableLayoutEnum layout) {
    auto const* record = profile.getHardwareTableLayout(layout);
    return record == nullptr ? 0 : copies(record->tables, record->pipeToTable);
}

U32 processorCount(ProfileInfo const& profile, NerioSwitch::TableLayoutEnum layout) {
    auto const* record = profile.getHardwareTableLayout(layout);
    return record == nullptr ? 0 : copies(record->processors, record->pipeToProcessor);
}

}  // namespace Chip
