#pragma once

#include <memory>
#include <utility>

#include "NerioSwitchApi/TableFramework.h"

#include "NatFixture.h"
#include "agent/NatAgent.h"
#include "chip/NatLookup.h"
#include "chip/SimulatedChip.h"

namespace NerioTest {

/** A bus that goes down behind some writes and stays so until it is healed. */
class BrittleBus final : public NerioSwitchApi::RegisterBus {
public:
    explicit BrittleBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> around) : bus_(std::move(around)) {}

    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus_->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus_->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle handle) override { return bus_->read(handle); }
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override {
        if (writes_ >= downFrom_ && writes_ < downUntil_) {
            ++writes_;
            throw NerioSwitchApi::BusException("the bus is down");
        }
        bus_->write(handle, word);
        ++writes_;
    }

    /** The bus is down behind that many writes from now on, for so many further ones. */
    void failAfter(U64 writes, U64 count = ~U32{0}) {
        downFrom_ = writes_ + writes;
        downUntil_ = downFrom_ + count;
    }
    void heal() { downFrom_ = downUntil_ = ~U64{0}; }
    U64 writes() const { return writes_; }

private:
    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus_;
    U64 writes_ = 0;
    U64 downFrom_ = ~U64{0};
    U64 downUntil_ = ~U64{0};
};

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
