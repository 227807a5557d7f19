#include "agent/StateDiff.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <utility>

#include "agent/ProfileJson.h"

namespace Agent {

namespace {

/** What a part has: by its place in the order, the key that is shown, and the value. */
using Order = std::pair<U64, Belmo::String>;
struct Thing {
    Json key;
    Json value;
};
using Things = std::map<Order, Thing>;
/** The parts of a state, by name. */
using Parts = std::vector<std::pair<Belmo::String, Things>>;

Things tableThings(StateFile const& file, TableState const& state) {
    auto const table = makeTable(state.spec);
    applyEntries(file, state, *table);
    Things things;
    for (auto& [key, result] : table->entries())
        things.emplace(Order(things.size(), key.dump()), Thing{key, std::move(result)});
    return things;
}

/** Members of an object that stand for one thing each, but for lists of ports, which stand for every one. */
Things memberThings(Json const& part, bool byPort) {
    Things things;
    for (auto const& [name, value] : part.items()) {
        if (byPort) {
            auto const ports = fromJson<Ports>(Json(name), {});
            ports.forEach([&, &value = value](NerioSwitch::ChipPortId port) {
                things.emplace(Order(port.value(), {}), Thing{port.value(), value});
            });
        } else {
            U64 number = 0;
            auto const isNumber =
                std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
            if (isNumber) number = std::stoull(name);
            things.emplace(Order(number, name), Thing{isNumber ? Json(number) : Json(name), value});
        }
    }
    return things;
}

/** Values that are told apart by some of their members. */
Things listThings(Json const& list, std::initializer_list<char const*> keyMembers) {
    Things things;
    for (auto const& element : list) {
        Thing thing{Json::object(), element};
        for (auto const* member : keyMembers) {
            if (!element.contains(member)) continue;
            thing.key[member] = element[member];
            thing.value.erase(member);
        }
        things.emplace(Order(0, thing.key.dump()), std::move(thing));
    }
    return things;
}

Parts partsOf(StateFile const& file) {
    Parts parts;
    parts.emplace_back("profile", memberThings(profileToJson(*file.profile), false));
    for (auto const& state : file.tables)
        parts.emplace_back("table " + state.spec.name, tableThings(file, state));
    Json json = Json::object();
    for (auto const& route : file.multicastRoutes)
        json["multicastRoutes"].push_back(toJson(route));
    for (auto const& translation : file.translations)
        json["translations"].push_back(toJson(translation));
    switchStateToJson(file.switchState, json);
    for (auto const& [name, part] : json.items()) {
        if (name == "multicastRoutes") {
            parts.emplace_back(name, listThings(part, {"source", "group", "vlanId"}));
        } else if (name == "translations") {
            parts.emplace_back(name, listThings(part, {"inside", "insidePort", "outside", "outsidePort",
                                                       "proto", "profile", "filterPfx"}));
        } else {
            bool const byPort = name == "ports" || name == "mirrors" || name == "stormLimits";
            parts.emplace_back(name, memberThings(part, byPort));
        }
    }
    return parts;
}

Things const& thingsOf(Parts const& parts, Belmo::String const& name) {
    static Things const none;
    auto const found = std::ranges::find(parts, name, &Parts::value_type::first);
    return found == parts.end() ? none : found->second;
}

/** The same by key alone: the place of an entry says nothing beyond its own table. */
std::map<Belmo::String, Thing const*> byKey(Things const& things) {
    std::map<Belmo::String, Thing const*> all;
    for (auto const& [order, thing] : things)
        all.emplace(thing.key.dump(), &thing);
    return all;
}

void compare(std::vector<StateDifference>& all, Belmo::String const& part, Things const& before,
             Things const& after) {
    auto const old = byKey(before);
    auto const young = byKey(after);
    for (auto const& [order, thing] : before) {
        auto const found = young.find(thing.key.dump());
        if (found == young.end()) {
            all.push_back({part, thing.key, thing.value, std::nullopt});
        } else if (found->second->value != thing.value) {
            all.push_back({part, thing.key, thing.value, found->second->value});
        }
    }
    for (auto const& [order, thing] : after) {
        if (!old.contains(thing.key.dump())) all.push_back({part, thing.key, std::nullopt, thing.value});
    }
}

/** There may be very many routes, of which few differ. Of several of one key the last one counts. */
void compareRoutes(std::vector<StateDifference>& all, std::vector<Route> const& before,
                   std::vector<Route> const& after) {
    using Nexthops = std::map<NerioSwitch::LpmKey, U32>;
    auto const byRoute = [](std::vector<Route> const& routes) {
        Nexthops nexthops;
        for (auto const& route : routes)
            nexthops.insert_or_assign(route.key, route.nexthop.value());
        return nexthops;
    };
    auto const old = byRoute(before);
    auto const young = byRoute(after);
    auto const nexthopIn = [](Nexthops const& nexthops, NerioSwitch::LpmKey const& key) {
        auto const found = nexthops.find(key);
        return found == nexthops.end() ? std::nullopt : std::optional(Json{{"nexthop", found->second}});
    };
    for (auto const& [key, nexthop] : old) {
        auto const found = young.find(key);
        if (found == young.end() || found->second != nexthop)
            all.push_back({"routes", toJson(key), nexthopIn(old, key), nexthopIn(young, key)});
    }
    for (auto const& [key, nexthop] : young) {
        if (!old.contains(key)) all.push_back({"routes", toJson(key), std::nullopt, nexthopIn(young, key)});
    }
}

Belmo::String shownKey(Json const& key) {
    return key.is_string() ? key.get<Belmo::String>() : key.dump();
}

/** The members of two objects that are not alike, one by one. */
Belmo::String changeText(Json const& before, Json const& after) {
    if (!before.is_object() || !after.is_object())
        return fmt::format("{} -> {}", before.dump(), after.dump());
    Belmo::String text;
    auto const add = [&](Belmo::String const& name, Json const& from, Json const& to) {
        text += fmt::format("{}{} {} -> {}", text.empty() ? "" : ", ", name, from.dump(), to.dump());
    };
    for (auto const& [name, value] : before.items()) {
        auto const* other = optionalMember(after, name);
        if (other == nullptr) {
            add(name, value, Json());
        } else if (*other != value) {
            add(name, value, *other);
        }
    }
    for (auto const& [name, value] : after.items()) {
        if (!before.contains(name)) add(name, Json(), value);
    }
    return text;
}

}  // namespace

Belmo::String StateDifference::text() const {
    auto const what = fmt::format("{} {}", part, shownKey(key));
    auto const withValue = [&](char sign, Json const& value) {
        return value.empty() ? fmt::format("{} {}", sign, what)
                             : fmt::format("{} {}: {}", sign, what, value.dump());
    };
    if (!before) return withValue('+', *after);
    if (!after) return withValue('-', *before);
    return fmt::format("~ {}: {}", what, changeText(*before, *after));
}

std::vector<StateDifference> differences(StateFile const& before, StateFile const& after) {
    auto const old = partsOf(before);
    auto const young = partsOf(after);
    std::vector<StateDifference> all;
    for (auto const& [name, things] : old)
        compare(all, name, things, thingsOf(young, name));
    for (auto const& [name, things] : young) {
        auto const isNew = std::ranges::find(old, name, &Parts::value_type::first) == old.end();
        if (isNew) compare(all, name, {}, things);
    }
    compareRoutes(all, before.routes, after.routes);
    return all;
}

Json toJson(std::vector<StateDifference> const& differences) {
    Json all = Json::array();
    for (auto const& difference : differences) {
        all.push_back({{"part", difference.part},
                       {"key", difference.key},
                       {"before", difference.before.value_or(Json())},
                       {"after", difference.after.value_or(Json())}});
    }
    return all;
}

}  // namespace Agent
