#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "agent/Families.h"
#include "agent/Verify.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace Nerio {

class FillSampler;

/** Makes a switch's directory if it is missing; throws `Belmo::ResourceException`. */
void directoryIs(std::filesystem::path const& directory);

/** Register writes, by path. */
using RegisterWrites = std::vector<std::pair<Belmo::String, U32>>;

/** Told of what is done with a switch, for as long as the switch has it. */
class SwitchObserver {
public:
    virtual ~SwitchObserver() = default;
    /** The switch has a new table, which is not up yet. */
    virtual void made(Agent::TableSpec const&, Agent::JsonTable&) {}
    /** All tables that are not up yet are about to be brought up. */
    virtual void starting(NerioSwitchApi::StartMode) {}
    /** A table is up, and nobody has touched it since. */
    virtual void cameUp(Agent::TableSpec const&, Agent::JsonTable&) {}
    /** Registers were written since the last such call; told when someone asks the switch for them. */
    virtual void written(RegisterWrites const&) {}
};

/**
 * A switch over a simulated chip: the chip, the shadow of what it holds, and the tables of one process. Kept
 * in a directory, chip and shadow outlive the process; otherwise they live as long as this object.
 *
 * A bus to a chip elsewhere may take the place of the simulated one. Its shadow is kept apart from that of a
 * simulated chip in the same directory.
 */
class Switch {
public:
    using Directory = std::optional<std::filesystem::path>;
    /** Told of each table that has been made, or brought up. */
    using Visitor = std::function<void(Agent::TableSpec const&, Agent::JsonTable&)>;

    explicit Switch(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile, Directory directory = {},
                    Belmo::Ptr<NerioSwitchApi::RegisterBus> elsewhere = {});
    ~Switch();

    /** The observer has to be there for as long as the switch is used; null for none. */
    void observerIs(SwitchObserver* observer) { observer_ = observer; }

    NerioSwitch::ProfileInfo const& profile() const { return *profile_; }
    /** The chip is made when the first table is started; until then its profile may change. */
    bool hasChip() const { return bus_ != nullptr; }
    void profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile);

    /** Watches how tables fill up, from now on; told before the first one is started. */
    void samplerIs(FillSampler& sampler) { sampler_ = &sampler; }
    /** Makes a software table; it is not attached yet. Null if the name is taken. */
    Agent::JsonTable* tableIs(Agent::TableSpec const& spec);
    /** The table of that name; null if there is none. */
    Agent::JsonTable* table(std::string_view name) const;
    std::size_t tableCount() const { return tables_.size(); }

    /** Attaches and brings up, in order of creation, every table that is not yet up. */
    void start(NerioSwitchApi::StartMode mode, Visitor const& started = {});
    /** Brings up a table of whoever calls, who keeps it for as long as this switch is there. */
    void attach(Belmo::Ptr<NerioSwitchApi::SwTable> const& table, NerioSwitchApi::StartMode mode);
    /** The same of one that is to be among the tables of this switch, as what would make it again. */
    void adopt(Agent::TableSpec const& spec, Belmo::Ptr<NerioSwitchApi::SwTable> const& table,
               NerioSwitchApi::StartMode mode);
    /** Calls `visit` for each table, in order of creation. */
    void forEachTable(Visitor const& visit) const;
    /** Whether the chip is the simulated one: `chip`, `verify` and `hitIs` are about that alone. */
    bool isSimulated() const { return elsewhere_ == nullptr; }
    /** The chip, which is made by now or here. */
    Chip::SimulatedChip& chip();
    /** The shadow of what the chip holds, likewise. */
    NerioSwitchApi::ShadowStore& shadows();
    /**
     * Starts copies of these tables on a chip in memory, and where the chip is elsewhere, with its registers
     * but without writing any: throws what their start would throw.
     */
    void rehearseStart() const;
    /**
     * The process's end and return: every table is made anew, told to `made`, and brought up; then the old
     * ones go. Where a table does not come up, the old ones stay.
     */
    void restart(NerioSwitchApi::StartMode mode, Visitor const& made);

    /** Holds software, shadow and chip of a table against each other. */
    Agent::Verification verify(NerioSwitchApi::SwTable const& table) const;
    /** A packet hit the row that this word in that control register stores; throws as the chip does. */
    void hitIs(Belmo::String const& controlRegister, U32 word);
    /** Reads the hit bits of every started table that has them; each hit is one at that time, in seconds. */
    void pollHitBits(Belmo::Duration time);

    /** The register writes since the last call, by path. */
    RegisterWrites takeWrites();
    /** Their number alone. */
    std::size_t takeWriteCount();
    TableGauge::Gauges const* gauges() const { return framework_ ? &framework_->gauges() : nullptr; }

private:
    struct Member {
        Agent::TableSpec spec;
        std::unique_ptr<Agent::JsonTable> table;
    };
    using Members = std::vector<Member>;
    void open();
    void rehearseStartOf(Switch& copy) const;
    std::unique_ptr<NerioSwitchApi::TableFramework> newFramework() const;

    Belmo::Ptr<NerioSwitch::ProfileInfo const> profile_;
    Directory directory_;
    Belmo::Ptr<NerioSwitchApi::RegisterBus> elsewhere_;
    Belmo::Ptr<Chip::SimulatedChip> chip_;
    Belmo::Ptr<Chip::RecordingBus> bus_;
    /** What tables are written through: `bus_`, or the sampler around it. */
    Belmo::Ptr<NerioSwitchApi::RegisterBus> tableBus_;
    FillSampler* sampler_ = nullptr;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_;
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    Members tables_;
    SwitchObserver* observer_ = nullptr;
};

}  // namespace Nerio
