#pragma once

#include <map>
#include <vector>

#include "NerioSwitchApi/SwTable.h"

#include "NerioSwitchTable/NerioTableCopp.h"
#include "NerioSwitchTable/NerioTableFloodSet.h"
#include "NerioSwitchTable/NerioTableL2Control.h"
#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "NerioSwitchTable/NerioTableNativeVlan.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "NerioSwitchTable/NerioTableStormControl.h"
#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "agent/Families.h"
#include "agent/SwitchState.h"

namespace Agent {

/** The entries of a table, as a value. */
template <class TableType>
struct TableEntries : std::map<typename TableType::Key, typename TableType::Result> {
    using Table = TableType;
};

/**
 * A switch state in the entries of its tables. Each part of a state has tables of its own; those of a part
 * that is empty need not be there.
 */
struct SwitchEntries {
    TableEntries<NerioSwitchTable::VlanMembershipTable> vlanMembership;
    TableEntries<NerioSwitchTable::NativeVlanTable> nativeVlan;
    TableEntries<NerioSwitchTable::FloodSetTable> floodSet;
    TableEntries<NerioSwitchTable::MacVlanTable> macVlan;
    TableEntries<NerioSwitchTable::PortConfigTable> portConfig;
    TableEntries<NerioSwitchTable::L2ControlTable> l2Control;
    TableEntries<NerioSwitchTable::LagHashControlTable> lagHashControl;
    TableEntries<NerioSwitchTable::LagGroupTable> lagGroup;
    TableEntries<NerioSwitchTable::LagMembershipTable> lagMembership;
    TableEntries<NerioSwitchTable::LagLookUpTable> lagLookUp;
    TableEntries<NerioSwitchTable::RxPortMirrorTable> rxPortMirror;
    TableEntries<NerioSwitchTable::StormControlTable> stormControl;
    TableEntries<NerioSwitchTable::CoppTable> copp;

    /** The entries that make a state, which `switchStateFromJson` has found to make sense for the profile. */
    static SwitchEntries of(SwitchState const& state, NerioSwitch::ProfileInfo const& profile);
    /**
     * The state that entries make. What entries do not tell is as it is by default: untagged ports of a VLAN
     * whose tables came back from hardware without them, and limits beyond what a rate can say.
     */
    SwitchState state(NerioSwitch::ProfileInfo const& profile) const;

    /**
     * Brings a table to its entries: sets those that differ, deletes those that are there and should not be,
     * and writes anew those that came back from hardware in disorder. Nothing else is called, so that doing
     * it again does nothing. Does nothing for a table of another family. Lets failures of the bus through; an
     * entry that could not be set is set by the next call, a deletion that failed by the next start.
     */
    void applyTo(NerioSwitchApi::SwTable& table) const;
    /** Takes over the entries of a table; nothing for one of another family. */
    void readFrom(NerioSwitchApi::SwTable const& table);

    /** Calls `visit(part, family, entries)` for each table, in the order in which tables are brought up. */
    template <class Entries, class Visit>
    static void forEachTable(Entries& entries, Visit const& visit) {
        visit("vlans", "vlanMembership", entries.vlanMembership);
        visit("vlans", "nativeVlan", entries.nativeVlan);
        visit("vlans", "floodSet", entries.floodSet);
        visit("vlans", "macVlan", entries.macVlan);
        visit("ports", "portConfig", entries.portConfig);
        visit("ports", "l2Control", entries.l2Control);
        visit("ports", "lagHashControl", entries.lagHashControl);
        visit("portChannels", "lagGroup", entries.lagGroup);
        visit("portChannels", "lagMembership", entries.lagMembership);
        visit("portChannels", "lagLookUp", entries.lagLookUp);
        visit("mirrors", "rxPortMirror", entries.rxPortMirror);
        visit("stormLimits", "stormControl", entries.stormControl);
        visit("cpuLimits", "copp", entries.copp);
    }
};

/** A table that a state needs. */
struct SwitchTable {
    TableSpec spec;
    /** The name of the part of the state that needs it. */
    Belmo::String part;
};

/** The tables that a state needs: those of its parts, named after their families. */
std::vector<SwitchTable> tablesOf(SwitchState const& state);

}  // namespace Agent
