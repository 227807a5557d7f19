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
    return name == "default" ? defaultPreset() : Belmo::Ptr<ProfileInfo>();
}

}  // namespace NerioSwitch
