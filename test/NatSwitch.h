#pragma once

#include <memory>

#include "NerioSwitchApi/TableFramework.h"

#include "BrittleBus.h"
#include "NatFixture.h"
#include "agent/NatAgent.h"
#include "chip/NatLookup.h"
#include "chip/SimulatedChip.h"

namespace NerioTest {

/** A switch of two pipelines with the tables of translations, and an agent that programs them. */
class NatSwitch {
public:
    explicit NatSwitch(NerioSwitch::ProfileHwApi api = {10, 0}) {
        profile->hwApi = api;
        chip = Chip::simulatedChip(*profile);
        bus = Belmo::make<BrittleBus>(chip);
        start(NerioSwitchApi::StartMode::cold);
    }

    void start(NerioSwitchApi::StartMode mode) {
        agent.reset();
        matches = nullptr;
        rewrites = {};
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, bus, shadows);
        matches = NerioSwitchTable::natMatchTableFactory("matches", 0);
        framework->tableIs(matches, mode);
        for (U8 pipeline = 0; pipeline < 2; ++pipeline) {
            auto const table =
                NerioSwitchTable::natRewriteTableFactory("rewrites" + std::to_string(pipeline), pipeline);
            framework->tableIs(table, mode);
            rewrites.push_back(table);
        }
        agent = std::make_unique<Agent::NatAgent>(Agent::NatAgent::MatchTables{matches}, rewrites);
    }

    /** The way of a packet from one pipeline to the other; true if it was translated. */
    bool translate(std::span<U8> packet, U8 profileId, U32 from = 0, U32 to = 1) {
        return Chip::translatePacket(*chip, *profile, {from, profileId, to, profileId}, packet);
    }
    /** Entries in software, in each table. */
    std::vector<std::size_t> entries() const {
        return {matches->entries().size(), rewrites[0]->entries().size(), rewrites[1]->entries().size()};
    }
    std::vector<U32> rowsInUse() const {
        return {matches->hashConvertor()->rowsInUse(), rewrites[0]->hashConvertor()->rowsInUse(),
                rewrites[1]->hashConvertor()->rowsInUse()};
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
    Belmo::Ptr<BrittleBus> bus;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<NerioSwitchTable::NatMatchTable> matches;
    Agent::NatAgent::RewriteTables rewrites;
    std::unique_ptr<Agent::NatAgent> agent;
};

}  // namespace NerioTest
