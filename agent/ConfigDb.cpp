#include "agent/ConfigDb.h"

#include <algorithm>
#include <fmt/format.h>

#include "agent/ImportText.h"

namespace Agent::Import {

namespace {

char const* const noMatter = "not a matter of these tables";

/** Tables whose reason is another one. */
std::map<std::string_view, char const*> const reasonsOfTables{
    {"INTERFACE", "a port is routed by its VLAN, and addresses of the switch are its CPU's"},
    {"VLAN_SUB_INTERFACE", "a port is routed by its VLAN, and addresses of the switch are its CPU's"},
    {"PORTCHANNEL_INTERFACE", "a port is routed by its VLAN, and addresses of the switch are its CPU's"},
    {"LOOPBACK_INTERFACE", "addresses of the switch are its CPU's"},
    {"NEIGH", "neighbours are next hops, whose ports an agent resolves"},
    {"NAT_POOL", "dynamic translations are made by an agent as sessions come"},
    {"NAT_BINDINGS", "dynamic translations are made by an agent as sessions come"},
    {"POLICER", "limits are those of ports and of the CPU's classes"},
    {"ACL_TABLE_TYPE", "the fields of an ACL's keys are the chip's"},
    {"SWITCH_HASH", "what hashes are made of is told by port"},
};

/** A number or a text as text. */
Belmo::String textOf(Json const& json, Place const& place) {
    if (json.is_string()) return json.get<Belmo::String>();
    if (json.is_number() || json.is_boolean()) return json.dump();
    refuseKind(json, "a text", place);
}

Json const& tableOf(Json const& json, Place const& place) {
    if (!json.is_object()) refuseKind(json, "an object", place);
    return json;
}

}  // namespace

Belmo::String entriesText(std::size_t count) {
    return fmt::format("{} {}", count, count == 1 ? "entry" : "entries");
}

std::vector<Belmo::String> ConfigEntry::nameParts(std::size_t count) const {
    auto parts = splitText(name_, '|');
    if (parts.size() != count)
        throw JsonException(place_,
                            fmt::format("{}: expected {} names with bars between them", name_, count));
    return parts;
}

std::optional<Belmo::String> ConfigEntry::text(char const* attribute) const {
    auto const* value = optionalMember(values_, attribute);
    if (value == nullptr) return std::nullopt;
    auto given = textOf(*value, place_.member(attribute));
    return given.empty() ? std::nullopt : std::optional(std::move(given));
}

std::optional<U32> ConfigEntry::number(char const* attribute, U32 first, U32 last) const {
    return value(attribute, fmt::format("a number from {} to {}", first, last).c_str(),
                 [&](std::string_view given) -> std::optional<U32> {
                     auto const number = numberFromText(given, last);
                     return number && *number >= first ? number : std::nullopt;
                 });
}

std::vector<Belmo::String> ConfigEntry::list(char const* attribute) const {
    auto const* value = optionalMember(values_, attribute);
    if (value == nullptr) return {};
    auto const at = place_.member(attribute);
    if (!value->is_array()) return splitText(textOf(*value, at), ',');
    std::vector<Belmo::String> all;
    for (auto const& element : *value)
        all.push_back(textOf(element, at.element(all.size())));
    return all;
}

void ConfigEntry::refuse(char const* attribute, Belmo::String const& found, char const* what) const {
    throw JsonException(place_.member(attribute),
                        fmt::format("{}: expected {}, found {}", attribute, what, shown(Json(found))));
}

void ConfigDb::forEachEntry(char const* table, std::function<void(ConfigEntry const&)> const& take) {
    asked_.emplace(table);
    auto const* found = optionalMember(tables_, table);
    if (found == nullptr) return;
    auto const place = root_.member(table);
    std::vector<std::pair<Belmo::String, Json const*>> entries;
    for (auto const& [name, values] : tableOf(*found, place).items())
        entries.emplace_back(name, &values);
    std::ranges::stable_sort(entries, naturalLess, &std::pair<Belmo::String, Json const*>::first);
    for (auto const& [name, values] : entries) {
        auto const at = place.member(name);
        take(ConfigEntry(name, tableOf(*values, at), at));
    }
}

void ConfigDb::forEachEntry(char const* table, std::initializer_list<std::string_view> known,
                            std::function<void(ConfigEntry const&)> const& take) {
    forEachEntry(table, [&](ConfigEntry const& entry) {
        for (auto const& [attribute, value] : entry.values().items()) {
            if (std::ranges::find(known, attribute) == known.end()) passOver(table, attribute, noMatter);
        }
        take(entry);
    });
}

std::size_t ConfigDb::entriesOf(char const* table) const {
    auto const* found = optionalMember(tables_, table);
    return found == nullptr ? 0 : found->size();
}

std::optional<Ports> ConfigDb::portsNamed(Belmo::String const& name, Belmo::String const& place) {
    if (auto const port = ports.find(name); port != ports.end()) return Ports().add(port->second);
    if (auto const channel = portChannels.find(name); channel != portChannels.end()) return channel->second;
    report.lost(place, fmt::format("{}: the chip has no such port", name));
    return std::nullopt;
}

void ConfigDb::passOver(char const* table, std::string_view attribute, Belmo::String const& reason) {
    ++passedOver_[{table, Belmo::String(attribute), reason}];
}

void ConfigDb::reportRest() {
    for (auto const& [what, count] : passedOver_) {
        auto const& [table, attribute, reason] = what;
        report.lost(root_.member(table).member("*").member(attribute).text(),
                    fmt::format("{}: {}", entriesText(count), reason));
    }
    for (auto const& [table, entries] : tables_.items()) {
        if (asked_.contains(table)) continue;
        auto const reason = reasonsOfTables.find(table);
        report.lost(root_.member(table).text(),
                    fmt::format("{}: {}", entriesText(entries.is_structured() ? entries.size() : 1),
                                reason == reasonsOfTables.end() ? noMatter : reason->second));
    }
}

}  // namespace Agent::Import
