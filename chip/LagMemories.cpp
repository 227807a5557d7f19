#include "chip/LagMemories.h"

#include <algorithm>
#include <fmt/format.h>

#include "chip/Geometry.h"

namespace Chip {

namespace {

using NerioSwitch::ProfileInfo;

constexpr ControlField portBits{0, lagPortsPerTable};
/** Tells the LAG of a port from its ports; above the bits of ports. */
constexpr ControlField isGroup{31, 1};

/** A word that selects no port stores nothing: so defaults are written, and ports beyond the last bit. */
void addLayer2Table(Belmo::String const& prefix, std::vector<MemoryDescription>& memories) {
    memories.push_back({.name = prefix + "lagGroups",
                        .dataRegisters = {prefix + "lag_group_data0"},
                        .controlRegister = prefix + "lag_ctl",
                        .row = portBits,
                        .writeStrobe = portBits,
                        .rowsPerWay = lagPortsPerTable,
                        .select = isGroup,
                        .selected = 1,
                        .oneHotRow = true,
                        .takesIdleWords = true,
                        .content = isGroup});
    memories.push_back({.name = prefix + "lagPorts",
                        .dataRegisters = {prefix + "lag_mask_data0", prefix + "lag_mask_data1"},
                        .controlRegister = prefix + "lag_ctl",
                        .row = portBits,
                        .writeStrobe = portBits,
                        .rowsPerWay = lagPortsPerTable,
                        .select = isGroup,
                        .oneHotRow = true,
                        .takesIdleWords = true});
}

/** By the number of the LAG, of which the last is none: its ports are not kept. */
void addCpuPorts(std::vector<MemoryDescription>& memories) {
    Belmo::String const prefix = "cpu_pipeline[0]/lag_cpu[0]/";
    memories.push_back({.name = prefix + "lagPorts",
                        .dataRegisters = {prefix + "lag_mask_data0", prefix + "lag_mask_data1"},
                        .controlRegister = prefix + "lag_ctl",
                        .row = {0, 6},
                        .writeStrobe = {31, 1},
                        .rowsPerWay = 64,
                        .takesIdleWords = true,
                        .keptRowsPerWay = 63});
}

void addBuckets(ProfileInfo const& profile, Belmo::String const& pipeline,
                std::vector<MemoryDescription>& memories) {
    auto const add = [&](Belmo::String const& prefix, ControlField row, ControlField strobe, U32 rows) {
        memories.push_back({.name = prefix + "lagBuckets",
                            .dataRegisters = {prefix + "lag_lut_data0"},
                            .controlRegister = prefix + "lag_lut_ctl",
                            .row = row,
                            .writeStrobe = strobe,
                            .rowsPerWay = rows,
                            .oneHotRow = !lagBucketsInOneMemory(profile)});
    };
    if (lagBucketsInOneMemory(profile)) {
        add(pipeline, {1, 8}, {0, 1}, 256);
        return;
    }
    constexpr ControlField portInGroup{0, 4};
    for (U32 group = 0; 4 * group < profile.numPorts; ++group)
        add(fmt::format("{}lag_lut[{}]/", pipeline, group), portInGroup, portInGroup, 4);
}

}  // namespace

Belmo::String lagTablePrefix(ProfileInfo const& profile, U32 table) {
    return profile.noMuxInRegName ? fmt::format("ingress/processor_l2[{}]/", table)
                                  : fmt::format("pipeline[{}]/processor/", table);
}

bool lagBucketsInOneMemory(ProfileInfo const& profile) {
    return profile.hwApi.majorVersion() >= 8;
}

void addLagMemories(ProfileInfo const& profile, std::vector<MemoryDescription>& memories) {
    U32 tables = tableCount(profile, NerioSwitch::TableLayoutEnum::tableLayoutL2);
    if (!profile.noMuxInRegName) tables = std::min(tables, pipelineCount(profile));
    for (U32 table = 0; table < tables; ++table)
        addLayer2Table(lagTablePrefix(profile, table), memories);
    addCpuPorts(memories);
    for (U32 pipeline = 0; pipeline < pipelineCount(profile); ++pipeline)
        addBuckets(profile, fmt::format("pipeline[{}]/", pipeline), memories);
    addBuckets(profile, "cpu_pipeline[0]/", memories);
}

}  // namespace Chip
