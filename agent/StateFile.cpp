#include "agent/StateFile.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <set>

#include "agent/ProfileJson.h"

namespace Agent {

namespace {

/** "FILE: PLACE: TEXT", with the place left out where it is the whole file. */
[[noreturn]] void refuse(Belmo::String const& path, Belmo::String const& place, Belmo::String const& text) {
    throw StateFileException(place.empty() ? fmt::format("{}: {}", path, text)
                                           : fmt::format("{}: {}: {}", path, place, text));
}

Json parseText(Belmo::String const& text, Belmo::String const& path) {
    try {
        return Json::parse(text);
    } catch (Json::exception const& error) {
        // "[json.exception.parse_error.101] parse error at line 3, column 5: ...": line and column count
        // here.
        Belmo::String message = error.what();
        auto const start = message.find(" at line ");
        refuse(path, "", start == Belmo::String::npos ? message : message.substr(start + 4));
    }
}

TableState tableStateFromJson(Json const& json, Place const& place) {
    TableState state{tableSpecFromJson(json, place, {"entries"}), Json::array(),
                     place.member("entries").text()};
    if (auto const* entries = optionalMember(json, "entries")) {
        if (!entries->is_array()) {
            throw JsonException(place.member("entries"), "entries: expected an array");
        }
        state.entries = *entries;
    }
    return state;
}

}  // namespace

StateFile readStateFile(Belmo::String const& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) refuse(path, "", std::strerror(errno));
    Belmo::String const text{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad()) refuse(path, "", "cannot be read");
    return parseState(text, path);
}

Json stateToJson(StateFile const& file) {
    Json json{{"profile", profileToJson(*file.profile)}, {"tables", Json::array()}};
    for (auto const& state : file.tables) {
        auto table = tableSpecToJson(state.spec);
        table["entries"] = state.entries;
        json["tables"].push_back(std::move(table));
    }
    return json;
}

StateFile parseState(Belmo::String const& text, Belmo::String const& path) {
    auto const json = parseText(text, path);
    StateFile file;
    file.path = path;
    try {
        Place const root;
        membersAre(json, {"profile", "tables"}, root);
        auto const* profile = optionalMember(json, "profile");
        file.profile =
            profileFromJson(profile == nullptr ? Json::object() : *profile, root.member("profile"));
        auto const place = root.member("tables");
        auto const& tables = requiredMember(json, "tables", root);
        if (!tables.is_array()) throw JsonException(place, "tables: expected an array");
        std::set<Belmo::String> names;
        for (auto const& table : tables) {
            auto const at = place.element(file.tables.size());
            file.tables.push_back(tableStateFromJson(table, at));
            if (!names.insert(file.tables.back().spec.name).second) {
                throw JsonException(at.member("name"), "name: another table has this name");
            }
        }
    } catch (JsonException const& failure) {
        refuse(path, failure.place(), failure.what());
    }
    return file;
}

void applyEntries(StateFile const& file, TableState const& state, JsonTable& table) {
    std::size_t number = 0;
    for (auto const& entry : state.entries) {
        auto const root = Place();
        auto const here = root.element(number++);
        try {
            membersAre(entry, {"key", "result"}, here);
            table.entryIs(requiredMember(entry, "key", here), requiredMember(entry, "result", here), here);
        } catch (JsonException const& failure) {
            refuse(file.path, state.place + failure.place(), failure.what());
        }
    }
}

}  // namespace Agent
