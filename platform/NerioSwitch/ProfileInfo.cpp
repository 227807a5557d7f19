#include "NerioSwitch/ProfileInfo.h"

#include <cstddef>

#include "Sorn/Format.h"
#include "Sorn/Text.h"

namespace NerioSwitch {

namespace {

U16 elementOrZero(std::vector<U16> const& elements, U32 index) {
    return index < elements.size() ? elements[index] : U16{0};
}

void fillPipes(std::vector<PipeRangeInfo> const& pipes, PipeRangeInfoMap& ranges, PipeInfoMap& ports) {
    ranges.clear();
    ports.clear();
    for (auto const& pipe : pipes) {
        ranges[pipe.pipeId] = pipe;
        for (U32 port = pipe.firstPort; port <= pipe.lastPort; ++port) {
            ports[port] = {port, pipe.pipeId, static_cast<U16>(port - pipe.firstPort)};
        }
    }
}

Belmo::Ptr<ProfileInfo> defaultPreset() {
    auto profile = Belmo::make<ProfileInfo>();
    profile->numPorts = 52;
    profile->hwApi = {6, 2};
    profile->vlanRegVer = 7;
    profile->aclRegVer = 2;
    profile->numVrfs = 4;
    profile->numPipelines = 2;
    profile->hasCpuPipeline = true;
    profile->noMuxInRegName = true;
    profile->floodSetParity = true;
    profile->natProfile = true;
    profile->aclPipeModeCapable = true;
    std::vector<PipeRangeInfo> const pipes{{0, 0, 25}, {1, 26, 51}};
    profile->ingressPipesAre(pipes);
    profile->egressPipesAre(pipes);
    TableLayout const perPipe{2, 2, 2, 0, {0, 1}, {0, 1}};
    for (auto const& layout : enumerators(TableLayoutEnum{}))
        profile->layouts[layout.value] = perPipe;
    profile->layouts[TableLayoutEnum::tableLayoutAcl].size = 4096;
    profile->macVlanRows = {64, 16};
    profile->supportedEntries["floodSet"] = 128;
    return profile;
}

/** What a generation of the hardware does otherwise than the default preset. */
struct Generation {
    char const* preset;
    ProfileHwApi hwApi;
    RegisterFormatVersion vlanRegVer;
    U32 aclRegVer;
    U32 numVrfs;
    /** Four pipes of 13 ports, of which two share a copy or a processor at their ingress side; else two of
     * 26. */
    bool pipesInPairs;
    bool noMuxInRegName;
    bool floodSetParity;
    bool natProfile;
};

constexpr bool yes = true;
constexpr bool no = false;

// clang-format off
constexpr Generation generations[] = {
    //                VLAN, ACL, VRFs, in pairs, no mux, parity, NAT profile
    {"api2",  {2, 0},   1,   1,    4,      yes,     no,     no,          no},
    {"api3",  {3, 0},   2,   1,    4,      yes,     no,     no,          no},
    {"api4",  {4, 1},   3,   1,    4,      yes,     no,     no,          no},
    {"api5",  {5, 1},   4,   2,    4,      yes,    yes,    yes,         yes},
    {"api6",  {6, 1},   6,   2,    4,       no,    yes,    yes,         yes},
    {"api7",  {7, 9},   7,   2,    8,       no,    yes,    yes,         yes},
    {"api8",  {8, 0},   7,   2,    8,       no,    yes,    yes,         yes},
    {"api9",  {9, 0},   7,   2,    8,       no,    yes,    yes,         yes},
    {"api10", {10, 0},  7,   2,   32,       no,    yes,    yes,         yes},
};
// clang-format on

void pairPipes(ProfileInfo& profile) {
    std::vector<PipeRangeInfo> const pipes{{0, 0, 12}, {1, 13, 25}, {2, 26, 38}, {3, 39, 51}};
    profile.ingressPipesAre(pipes);
    profile.egressPipesAre(pipes);
    profile.numPipelines = 4;
    profile.aclPipeModeCapable = false;
    for (auto& [id, layout] : profile.layouts)
        layout = {2, 4, 2, 0, {0, 0, 1, 1}, {0, 0, 1, 1}};
    profile.layouts[TableLayoutEnum::tableLayoutAcl].size = 2048;
    profile.layouts[TableLayoutEnum::tableLayoutEgress] = {4, 4, 4, 0, {0, 1, 2, 3}, {0, 1, 2, 3}};
}

Belmo::Ptr<ProfileInfo> presetOf(Generation const& generation) {
    auto profile = defaultPreset();
    profile->hwApi = generation.hwApi;
    profile->vlanRegVer = generation.vlanRegVer;
    profile->aclRegVer = generation.aclRegVer;
    profile->numVrfs = generation.numVrfs;
    profile->noMuxInRegName = generation.noMuxInRegName;
    profile->floodSetParity = generation.floodSetParity;
    profile->natProfile = generation.natProfile;
    if (generation.pipesInPairs) pairPipes(*profile);
    return profile;
}

}  // namespace

Belmo::String ProfileHwApi::text() const {
    return Sorn::_fmt("%u.%u", major_, minor_);
}

ProfileHwApi ProfileHwApi::fromText(Sorn::CharRange& range) {
    auto const major = Sorn::parseNumber<U16>(range);
    range.expect(".");
    return {major, Sorn::parseNumber<U16>(range)};
}

ProfileInfo::ProfileInfo() = default;
ProfileInfo::~ProfileInfo() = default;

TableLayout const* ProfileInfo::getHardwareTableLayout(TableLayoutEnum layout) const {
    auto const found = layouts.find(layout);
    return found == layouts.end() ? nullptr : &found->second;
}

U16 ProfileInfo::numTables(TableLayoutEnum layout) const {
    auto const* record = getHardwareTableLayout(layout);
    return record != nullptr ? record->tables : U16{0};
}

U16 ProfileInfo::numPipelinesOfTable(TableLayoutEnum layout) const {
    auto const* record = getHardwareTableLayout(layout);
    return record != nullptr ? record->pipelines : U16{0};
}

U16 ProfileInfo::numProcessors(TableLayoutEnum layout) const {
    auto const* record = getHardwareTableLayout(layout);
    return record != nullptr ? record->processors : U16{0};
}

U16 ProfileInfo::pipeToTableId(U32 pipe, TableLayoutEnum layout) const {
    auto const* record = getHardwareTableLayout(layout);
    return record != nullptr ? elementOrZero(record->pipeToTable, pipe) : U16{0};
}

U16 ProfileInfo::pipeToProcessorId(U32 pipe, TableLayoutEnum layout) const {
    auto const* record = getHardwareTableLayout(layout);
    return record != nullptr ? elementOrZero(record->pipeToProcessor, pipe) : U16{0};
}

PipeInfo ProfileInfo::ingressPipeOfPort(U32 port) const {
    auto const found = portIdToIngressPipe.find(port);
    return found == portIdToIngressPipe.end() ? PipeInfo{} : found->second;
}

U16 ProfileInfo::portToIngressPipeId(U32 port) const {
    return ingressPipeOfPort(port).pipeId;
}

void ProfileInfo::ingressPipesAre(std::vector<PipeRangeInfo> const& pipes) {
    fillPipes(pipes, ingressPipeRangeInfo, portIdToIngressPipe);
}

void ProfileInfo::egressPipesAre(std::vector<PipeRangeInfo> const& pipes) {
    fillPipes(pipes, egressPipeRangeInfo, portIdToEgressPipe);
}

Belmo::Ptr<ProfileInfo> profilePreset(Belmo::String const& name) {
    if (name == "default") return defaultPreset();
    for (auto const& generation : generations) {
        if (name == generation.preset) return presetOf(generation);
    }
    return {};
}

}  // namespace NerioSwitch
