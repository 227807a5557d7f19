#include "agent/StateFile.h"

#include <fmt/format.h>
#include <set>

#include "NerioSwitch/Indexes.h"

#include "agent/ProfileJson.h"
#include "agent/SwitchEntries.h"
#include "agent/TextFile.h"

namespace Agent {

namespace {

/** What the chip's port numbers tell apart. A profile may claim more, and no table comes up over it. */
void checkPorts(NerioSwitch::ProfileInfo const& profile, Place const& place) {
    constexpr U32 most = NerioSwitch::ChipPortId::last + 1;
    if (profile.numPorts > most) {
        throw JsonException(place.member("numPorts"),
                            fmt::format("numPorts {} > {} not allowed", profile.numPorts, most));
    }
}

TableState tableStateFromJson(Json const& json, Place const& place) {
    TableState state{tableSpecFromJson(json, place, {"entries"}), Json::array(), place.text()};
    if (auto const* entries = optionalMember(json, "entries")) {
        if (!entries->is_array()) refuseKind(*entries, "an array", place.member("entries"));
        state.entries = *entries;
    }
    return state;
}

std::vector<TableState> tablesFromJson(Json const& json, Place const& place) {
    if (!json.is_array()) refuseKind(json, "an array", place);
    std::vector<TableState> tables;
    std::set<Belmo::String> names;
    for (auto const& table : json) {
        auto const at = place.element(tables.size());
        tables.push_back(tableStateFromJson(table, at));
        auto const& name = tables.back().spec.name;
        if (!names.insert(name).second) {
            throw JsonException(at.member("name"),
                                fmt::format("name: there is a table {} already", shown(name)));
        }
    }
    return tables;
}

Route routeFromJson(Json const& json, Place const& place) {
    membersAre(json, {"vrf", "prefix", "nexthop"}, place);
    Json key = json;
    key.erase("nexthop");
    requiredMember(json, "prefix", place);
    return {fromJson<NerioSwitch::LpmKey>(key, place),
            numberFromJson(requiredMember(json, "nexthop", place), ~U32{0}, place.member("nexthop"))};
}

MulticastRoute multicastRouteFromJson(Json const& json, Place const& place) {
    auto route = fromJson<MulticastRoute>(json, place);
    for (auto const* name : {"group", "vlanId"})
        requiredMember(json, name, place);
    return route;
}

NatTranslation translationFromJson(Json const& json, Place const& place) {
    auto translation = fromJson<NatTranslation>(json, place);
    for (auto const* name : {"inside", "outside"})
        requiredMember(json, name, place);
    return translation;
}

template <class Value>
std::vector<Value> listFromJson(Json const& json, Place const& place,
                                Value (*read)(Json const&, Place const&)) {
    if (!json.is_array()) refuseKind(json, "an array", place);
    std::vector<Value> all;
    for (auto const& element : json)
        all.push_back(read(element, place.element(all.size())));
    return all;
}

[[noreturn]] void refuseTable(TableState const& table, Place const& place) {
    throw JsonException(
        place, fmt::format("{}: the table {} belongs to them", place.name(), shown(Json(table.spec.name))));
}

/** Refuses tables that stand in the way of those of agents. */
template <class Tables>
void namesAreFree(Tables const& agentTables, std::vector<TableState> const& tables, Place const& place) {
    for (auto const& taken : agentTables) {
        for (auto const& table : tables) {
            if (table.spec.name == taken->name()) refuseTable(table, place);
        }
    }
}

/** The same for those of a switch state, of which a chip has one of a family. */
void familiesAreFree(StateFile const& file, Place const& root) {
    for (auto const& [spec, part] : tablesOf(file.switchState)) {
        for (auto const& table : file.tables) {
            if (table.spec.family == spec.family || table.spec.name == spec.name)
                refuseTable(table, root.member(part));
        }
    }
}

void keysDiffer(std::vector<MulticastRoute> const& routes, Place const& place) {
    std::set<NerioSwitch::MrouteKey> keys;
    std::size_t number = 0;
    for (auto const& route : routes) {
        auto const at = place.element(number++);
        if (!keys.insert(route.key()).second) {
            throw JsonException(at,
                                fmt::format("{}: another route has this source, group and VLAN", at.name()));
        }
    }
}

/** What agents share out among tables of their own. */
void agentsFromJson(StateFile& file, Json const& json, Place const& root) {
    if (auto const* routes = optionalMember(json, "routes")) {
        auto const place = root.member("routes");
        file.routes = listFromJson<Route>(*routes, place, routeFromJson);
        namesAreFree(RouteStages::made().tables(), file.tables, place);
    }
    if (auto const* routes = optionalMember(json, "multicastRoutes")) {
        auto const place = root.member("multicastRoutes");
        file.multicastRoutes = listFromJson<MulticastRoute>(*routes, place, multicastRouteFromJson);
        keysDiffer(file.multicastRoutes, place);
        namesAreFree(RouteStages::made().tables(), file.tables, place);
        namesAreFree(MulticastTables::made().tables(), file.tables, place);
    }
    if (auto const* translations = optionalMember(json, "translations")) {
        auto const place = root.member("translations");
        file.translations = listFromJson<NatTranslation>(*translations, place, translationFromJson);
        Detail::placed(place, [&] {
            namesAreFree(NatTables::made(*file.profile).tables(), file.tables, place);
            return 0;
        });
    }
}

}  // namespace

StateFileException::StateFileException(Belmo::String const& path, Belmo::String const& place,
                                       Belmo::String const& text)
    : Exception(oneLine(place.empty() ? fmt::format("{}: {}", path, text)
                                      : fmt::format("{}: {}: {}", path, place, text))) {}

StateFile readStateFile(Belmo::String const& path) {
    Belmo::String text;
    try {
        text = textOfFile(path);
    } catch (Belmo::ResourceException const& failure) {
        throw StateFileException(path, "", failure.what());
    }
    return parseState(text, path);
}

Json stateToJson(StateFile const& file) {
    Json json{{"profile", profileToJson(*file.profile)}, {"tables", Json::array()}};
    for (auto const& state : file.tables) {
        auto table = tableSpecToJson(state.spec);
        table["entries"] = state.entries;
        json["tables"].push_back(std::move(table));
    }
    for (auto const& route : file.routes) {
        auto entry = toJson(route.key);
        entry["nexthop"] = route.nexthop.value();
        json["routes"].push_back(std::move(entry));
    }
    for (auto const& route : file.multicastRoutes)
        json["multicastRoutes"].push_back(toJson(route));
    for (auto const& translation : file.translations)
        json["translations"].push_back(toJson(translation));
    switchStateToJson(file.switchState, json);
    return json;
}

StateFile parseState(Belmo::String const& text, Belmo::String const& path) {
    try {
        Place const root;
        auto const json = parseJson(text);
        membersAre(json,
                   {"profile", "tables", "routes", "multicastRoutes", "translations", "vlans", "ports",
                    "portChannels", "mirrors", "stormLimits", "cpuLimits"},
                   root);
        auto const* profile = optionalMember(json, "profile");
        StateFile file;
        file.path = path;
        file.profile =
            profileFromJson(profile == nullptr ? Json::object() : *profile, root.member("profile"));
        checkPorts(*file.profile, root.member("profile"));
        file.tables = tablesFromJson(requiredMember(json, "tables", root), root.member("tables"));
        agentsFromJson(file, json, root);
        file.switchState = switchStateFromJson(json, root, *file.profile);
        familiesAreFree(file, root);
        return file;
    } catch (JsonException const& failure) {
        throw StateFileException(path, failure.place(), failure.what());
    }
}

namespace {

/** Calls `visit(entry, place)` for each entry of a table, and gives a failure its place in the file. */
template <class Visit>
void forEachEntry(StateFile const& file, TableState const& state, Visit const& visit) {
    Place const root;
    auto const entries = root.member("entries");
    std::size_t number = 0;
    for (auto const& entry : state.entries) {
        auto const here = entries.element(number++);
        try {
            membersAre(entry, {"key", "result"}, here);
            visit(entry, here);
        } catch (JsonException const& failure) {
            throw StateFileException(file.path, state.place + failure.place(), failure.what());
        }
    }
}

/** The keys of a table in its file, in the form that the table gives them. */
std::set<Belmo::String> keysOf(StateFile const& file, TableState const& state, JsonTable const& table) {
    std::set<Belmo::String> keys;
    forEachEntry(file, state, [&](Json const& entry, Place const& here) {
        keys.insert(table.keyForm(requiredMember(entry, "key", here), here).dump());
    });
    return keys;
}

}  // namespace

void applyEntries(StateFile const& file, TableState const& state, JsonTable& table) {
    forEachEntry(file, state, [&](Json const& entry, Place const& here) {
        table.entryIs(requiredMember(entry, "key", here), requiredMember(entry, "result", here), here);
    });
}

void entriesAre(StateFile const& file, TableState const& state, JsonTable& table) {
    if (table.entryCount() != 0) {
        auto const wanted = keysOf(file, state, table);
        for (auto const& [key, result] : table.entries()) {
            if (!wanted.contains(key.dump())) table.entryDel(key, {});
        }
    }
    applyEntries(file, state, table);
    for (auto const& key : table.inconsistent())
        table.handleEntry(key, {});
}

}  // namespace Agent
