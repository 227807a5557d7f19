#pragma once

#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/Imported.h"

/* What the importers of the parts of a configuration database share. */
namespace Agent::Import {

/** "1 entry", "2 entries", as the report counts them. */
Belmo::String entriesText(std::size_t count);

/** An entry of a table: "Vlan100|Ethernet0": {"tagging_mode": "untagged"}. */
class ConfigEntry {
public:
    ConfigEntry(Belmo::String const& name, Json const& values, Place const& place)
        : name_(name), values_(values), place_(place) {}

    Belmo::String const& name() const { return name_; }
    Place const& place() const { return place_; }
    Json const& values() const { return values_; }
    /** The parts of its name, between bars; throws `JsonException` for another number of them. */
    std::vector<Belmo::String> nameParts(std::size_t count) const;

    /** An attribute, or nothing if it is left out or empty. Numbers count as their text. */
    std::optional<Belmo::String> text(char const* attribute) const;
    /** An attribute with what is read of it; throws `JsonException` where `read` finds nothing. */
    template <class Read>
    auto value(char const* attribute, char const* what, Read const& read) const
        -> decltype(read(std::string_view())) {
        auto const given = text(attribute);
        if (!given) return std::nullopt;
        auto const value = read(*given);
        if (!value) refuse(attribute, *given, what);
        return value;
    }
    std::optional<U32> number(char const* attribute, U32 first, U32 last) const;
    /** An array of texts, or a text with commas. */
    std::vector<Belmo::String> list(char const* attribute) const;
    [[noreturn]] void refuse(char const* attribute, Belmo::String const& found, char const* what) const;
    /** The JSON pointer of the entry or an attribute. */
    Belmo::String at() const { return place_.text(); }
    Belmo::String at(char const* attribute) const { return place_.member(attribute).text(); }

private:
    Belmo::String const& name_;
    Json const& values_;
    Place const& place_;
};

/** The tables, what is made of them, and what their names mean to the chip. */
class ConfigDb {
public:
    ConfigDb(Json const& tables, Place const& root, Imported& imported)
        : file(imported.state), report(imported.report), tables_(tables), root_(root) {}

    StateFile& file;
    ImportReport& report;
    std::map<Belmo::String, NerioSwitch::ChipPortId> ports;
    std::map<Belmo::String, Ports> portChannels;
    std::map<Belmo::String, PortChannelNumber> portChannelNumbers;
    std::map<Belmo::String, U8> vrfs;
    std::map<Belmo::String, Bridging::VlanId> vlans;

    NerioSwitch::ProfileInfo const& profile() const { return *file.profile; }

    /**
     * Calls `take` for each entry of a table, in natural order of their names. Attributes that are not among
     * `known` are gathered for the report. Throws `JsonException` for what is no table.
     */
    void forEachEntry(char const* table, std::initializer_list<std::string_view> known,
                      std::function<void(ConfigEntry const&)> const& take);
    /** The same, and all attributes are the caller's matter. */
    void forEachEntry(char const* table, std::function<void(ConfigEntry const&)> const& take);
    std::size_t entriesOf(char const* table) const;
    Belmo::String at(char const* table) const { return root_.member(table).text(); }

    /** The ports of a port or a port channel; what is neither goes to the report. */
    std::optional<Ports> portsNamed(Belmo::String const& name, Belmo::String const& place);
    /** An attribute whose value cannot be said: one line of the report for all of them with that reason. */
    void passOver(char const* table, std::string_view attribute, Belmo::String const& reason);
    /** What was passed over, and the tables that nobody asked for. */
    void reportRest();

private:
    Json const& tables_;
    Place const& root_;
    std::set<Belmo::String, std::less<>> asked_;
    std::map<std::tuple<Belmo::String, Belmo::String, Belmo::String>, std::size_t> passedOver_;
};

void importPorts(ConfigDb& db);
void importPortChannels(ConfigDb& db);
void importVlans(ConfigDb& db);
void importMirrors(ConfigDb& db);
void importStormControl(ConfigDb& db);
void importCopp(ConfigDb& db);
void importAcls(ConfigDb& db);
void importTranslations(ConfigDb& db);
void importVrfs(ConfigDb& db);
void importVlanInterfaces(ConfigDb& db);
void importStaticRoutes(ConfigDb& db);

}  // namespace Agent::Import
