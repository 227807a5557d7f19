#pragma once

#include <vector>

#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"

#include "agent/Families.h"
#include "agent/MulticastAgent.h"
#include "agent/NatAgent.h"
#include "agent/RouteAgent.h"
#include "agent/SwitchState.h"

namespace Agent {

/** One table of a state file: what makes it, and what it is to hold. */
struct TableState {
    TableSpec spec;
    /** The entries' JSON array, as it stands in the file. */
    Json entries;
    /** Where the table stands in the file, "/tables/0". */
    Belmo::String place;
};

/**
 * A whole switch as a file: a profile, tables with their entries, in the JSON forms of scripts, and what
 * agents share out among several tables: routes, multicast routes, and translations of addresses:
 *
 *     {"profile": {"preset": "default"},
 *      "tables": [{"family": "portConfig", "name": "ports",
 *                  "entries": [{"key": {"portId": 0}, "result": {"portMode": "trunk"}}]}],
 *      "routes": [{"vrf": 0, "prefix": "10.0.0.0/8", "nexthop": 7}],
 *      "multicastRoutes": [{"source": "10.0.0.5/32", "group": "239.1.1.1", "vlanId": 20,
 *                           "out": {"30": 6, "31": "0x10"}}],
 *      "translations": [{"inside": "10.0.0.5", "insidePort": 8080,
 *                        "outside": "192.0.2.1", "outsidePort": 80, "proto": 1, "profile": 3}]}
 *
 * The ports of each outgoing VLAN of a multicast route are a mask. A file with any of the three has no tables
 * of the names that the agents' tables have: "lpm11" to "lpm32", which multicast routes need as well, "sg",
 * "starG", "vlanGroups", "natMatch0", "natRewrite0" and so on.
 *
 * The parts of a `SwitchState` are members as well: "vlans", "ports", "portChannels", "mirrors",
 * "stormLimits" and "cpuLimits". A file with one of them has no tables of its families.
 */
struct StateFile {
    Belmo::String path;
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile;
    std::vector<TableState> tables;
    std::vector<Route> routes;
    /** No two of them have the same key. */
    std::vector<MulticastRoute> multicastRoutes;
    std::vector<NatTranslation> translations;
    SwitchState switchState;
};

/** A state file that cannot be taken: one line that names the file, the place in it and what is wrong. */
class StateFileException : public Belmo::Exception {
public:
    /** "PATH: PLACE: TEXT", with the place left out where it is the whole file. */
    StateFileException(Belmo::String const& path, Belmo::String const& place, Belmo::String const& text);
    char const* typeName() const noexcept override { return "StateFileException"; }
};

/** Reads a state file; throws `StateFileException`. Entries are checked when they are put into tables. */
StateFile readStateFile(Belmo::String const& path);
/** The same of a text; `path` is what errors name. */
StateFile parseState(Belmo::String const& text, Belmo::String const& path);
/** The state as a file of its own, every attribute of the profile written out. */
Json stateToJson(StateFile const& file);

/**
 * Sets the entries of a table, in the file's order; throws `StateFileException` at the first that fails. A
 * key without a row is only refused by a table that is up.
 */
void applyEntries(StateFile const& file, TableState const& state, JsonTable& table);
/**
 * The same, and before it deletes all other entries; behind it writes those anew that came back from hardware
 * in disorder.
 */
void entriesAre(StateFile const& file, TableState const& state, JsonTable& table);

}  // namespace Agent
