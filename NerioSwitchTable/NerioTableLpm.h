#pragma once

#include "Belmo/Duration.h"
#include "NerioSwitch/LpmKey.h"
#include "NerioSwitchApi/HashTable.h"
#include "Sorn/HashMap.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/LpmResult.h"
#include "NerioSwitchTable/NerioTableEntries.h"

/*
 * The top of the route look-up: whole routes and what is known of them. It touches no hardware. Whoever owns
 * the stages below cuts routes to their keys and programs them there.
 */
namespace NerioSwitchTable {

/** What is known of one route. */
class NERIO_SWITCH_TABLE_EXPORT LpmStatus final : public Belmo::Node {
public:
    using State = NerioSwitchApi::EntryProgrammedStatus;

    explicit LpmStatus(NerioSwitch::LpmKey const& key) : key_(key) {}
    ~LpmStatus() override;

    NerioSwitch::LpmKey const& key() const { return key_; }
    LpmResult const& result() const { return result_; }
    void resultIs(LpmResult const& result) { result_ = result; }
    Belmo::Duration lastHit() const { return lastHit_; }
    void lastHitIs(Belmo::Duration time) { lastHit_ = time; }
    /** When the hit state was polled last. */
    Belmo::Duration lastPolled() const { return lastPolled_; }
    void lastPolledIs(Belmo::Duration time) { lastPolled_ = time; }
    State state() const { return state_; }
    void stateIs(State state) { state_ = state; }

private:
    NerioSwitch::LpmKey key_;
    LpmResult result_;
    Belmo::Duration lastHit_;
    Belmo::Duration lastPolled_;
    State state_ = State::entryProgrammed;
};

/** Routes and their status. Changes are published, and go nowhere else. */
class NERIO_SWITCH_TABLE_EXPORT LpmTable final
    : public KeyedTable<NerioSwitchApi::SwTable, EntryMap<NerioSwitch::LpmKey, LpmResult>> {
public:
    using StatusMap = Sorn::HashMap<NerioSwitch::LpmKey, Belmo::Ptr<LpmStatus>>;

    explicit LpmTable(Belmo::String const& name);
    ~LpmTable() override;

    /** The status of a route, made and published if it is missing. */
    Belmo::Ptr<LpmStatus> entryStatusIs(NerioSwitch::LpmKey const& key);
    void entryStatusDel(NerioSwitch::LpmKey key);
    void entryStatusDelAll();
    /** The status of a route; null if there is none. */
    Belmo::Ptr<LpmStatus> entryStatus(NerioSwitch::LpmKey const& key) const;
    StatusMap const& entryStatuses() const { return entryStatus_; }

    /** There is no convertor to attach. */
    void doSetProfileConvertor(Belmo::Ptr<NerioSwitchApi::SwTableTypes> const& types) override;
    void handleEntry(NerioSwitch::LpmKey const& key) override;

private:
    StatusMap entryStatus_;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LpmTable> LpmTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LpmTable> lpmTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
