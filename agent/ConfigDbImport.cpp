#include "agent/ConfigDbImport.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "agent/ConfigDb.h"

namespace Agent {

namespace {

constexpr std::array<std::string_view, 16> knownTables{
    "PORT",      "PORTCHANNEL", "PORTCHANNEL_MEMBER", "VLAN",           "VLAN_MEMBER", "MIRROR_SESSION",
    "ACL_TABLE", "ACL_RULE",    "PORT_STORM_CONTROL", "COPP_GROUP",     "COPP_TRAP",   "STATIC_NAT",
    "VRF",       "STATIC_NAPT", "STATIC_ROUTE",       "DEVICE_METADATA"};

bool hasTables(Json const& json) {
    return json.is_object() &&
           std::ranges::any_of(knownTables, [&](auto const name) { return json.contains(name); });
}

/** The name under which the tables stand; throws for none or several. */
Belmo::String const& nameOfTables(Json const& json, Place const& root, ImportReport& report) {
    Belmo::String const* found = nullptr;
    for (auto const& [name, member] : json.items()) {
        if (!hasTables(member)) {
            report.lost(root.member(name).text(), fmt::format("members ({}): not a matter of these tables",
                                                              member.is_structured() ? member.size() : 0));
            continue;
        }
        if (found != nullptr)
            throw JsonException(root.member(name),
                                fmt::format("{}: there are tables in {} as well", name, *found));
        found = &name;
    }
    if (found == nullptr) throw JsonException(root, "no configuration database: it has none of its tables");
    return *found;
}

void importTables(Import::ConfigDb& db) {
    importPorts(db);
    importPortChannels(db);
    importVlans(db);
    importMirrors(db);
    importStormControl(db);
    importCopp(db);
    importAcls(db);
    importTranslations(db);
    importVrfs(db);
    importVlanInterfaces(db);
    importStaticRoutes(db);
    db.reportRest();
}

}  // namespace

Imported importConfigDb(std::string_view text, Belmo::Ptr<NerioSwitch::ProfileInfo> profile) {
    Imported imported;
    imported.state.profile = std::move(profile);
    Place const root;
    auto const json = parseJson(text);
    if (!json.is_object()) refuseKind(json, "an object", root);
    if (hasTables(json)) {
        Import::ConfigDb db(json, root, imported);
        importTables(db);
        return imported;
    }
    auto const& name = nameOfTables(json, root, imported.report);
    auto const place = root.member(name);
    Import::ConfigDb db(json[name], place, imported);
    importTables(db);
    return imported;
}

}  // namespace Agent
