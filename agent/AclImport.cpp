#include "agent/AclImport.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

#include "Belmo/Exceptions.h"

#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "agent/SparseJson.h"

namespace Agent {

using NerioSwitch::AclHashKey;
using NerioSwitch::HwAclPriority;
using NerioSwitch::HwAclRangeId;
using NerioSwitch::HwAclRule;
using NerioSwitch::HwCounterIndex;

namespace {

constexpr U8 firstAcl = 1;
constexpr U8 lastAcl = 15;
constexpr U8 tcp = 6;
constexpr U8 udp = 17;
constexpr U16 lastPort = 0xFFFF;
/** Before this version a row stores a bit less of a counter, and names no range. */
constexpr U16 versionOfRanges = 4;

struct PhysTable {
    U8 index;
    char const* name;
};
constexpr std::array<PhysTable, 3> physTables{{{0, "destinations"}, {1, "sources"}, {2, "pairs"}}};

/** What a rule looks at beside addresses. */
enum class Looks : U8 { nothing, protocol, destination, source, destinationRange, sourceRange };

/**
 * The combinations that may serve, the closest first. One that looks at a port serves those who do not with
 * the port of any; and a range holds of the source's port where the combination looks at that, and else of
 * the destination's.
 */
std::vector<U8> const& combinationsOf(U8 physTableIdx, Looks looks) {
    static std::array<std::array<std::vector<U8>, 6>, 3> const all{
        {{{{3}, {0, 4, 1, 5, 2, 6}, {1, 5}, {2, 6}, {0, 4, 1, 5}, {2, 6}}},
         {{{7}, {8, 9, 10}, {9}, {10}, {8, 9}, {10}}},
         {{{11}, {12, 13, 14}, {13}, {14}, {12, 13}, {14}}}}};
    return all[physTableIdx][static_cast<U8>(looks)];
}

bool overlap(Lanvo::Prefix const& a, Lanvo::Prefix const& b) {
    U32 const mask = Lanvo::Prefix::mask(std::min(a.len(), b.len()));
    return ((a.address().hostOrder() ^ b.address().hostOrder()) & mask) == 0;
}

bool overlap(PortRange const& a, PortRange const& b) {
    return a.first <= b.last && b.first <= a.last;
}

/** A packet may fit both. */
bool overlap(FilterRule const& a, FilterRule const& b) {
    return (!a.protocol || !b.protocol || a.protocol == b.protocol) && overlap(a.source, b.source) &&
           overlap(a.destination, b.destination) && overlap(a.sourcePorts, b.sourcePorts) &&
           overlap(a.destinationPorts, b.destinationPorts);
}

/** A port that a key can say: all ones are any port to it. */
bool isKeyPort(PortRange const& ports) {
    return ports.one() && ports.first != lastPort;
}

Looks looksOf(FilterRule const& match) {
    if (!match.destinationPorts.any())
        return isKeyPort(match.destinationPorts) ? Looks::destination : Looks::destinationRange;
    if (!match.sourcePorts.any()) return isKeyPort(match.sourcePorts) ? Looks::source : Looks::sourceRange;
    return match.protocol ? Looks::protocol : Looks::nothing;
}

/** The rules that together are one: ports are those of a protocol. */
std::vector<FilterRule> partsOf(FilterRule const& match) {
    if (match.protocol || (match.sourcePorts.any() && match.destinationPorts.any())) return {match};
    std::vector<FilterRule> parts(2, match);
    parts[0].protocol = tcp;
    parts[1].protocol = udp;
    return parts;
}

/** What a packed key does not tell from others, as people read it; nothing if it comes back as it was. */
std::optional<Belmo::String> blurredIn(AclHashKey const& key, NerioSwitchTable::AclKeyLayout const& layout,
                                       NerioSwitchTable::AclPackedKey const& packed) {
    auto const isBlurred = [](Lanvo::Prefix const& wanted, Lanvo::Prefix const& read) {
        return wanted.len() == 0 ? read.address() != Lanvo::IpAddr() : read != wanted;
    };
    try {
        auto const read = layout.unpack(packed);
        if (isBlurred(key.firstPrefix(), read.firstPrefix())) return key.firstPrefix().text();
        if (isBlurred(key.secondPrefix(), read.secondPrefix())) return key.secondPrefix().text();
    } catch (Belmo::RangeException const&) {
        return fmt::format("{} and {}", key.firstPrefix().text(), key.secondPrefix().text());
    }
    return std::nullopt;
}

Belmo::String textOf(PortRange const& range) {
    return fmt::format("{}-{}", range.first, range.last);
}

TableState tableOf(char const* family, Belmo::String const& name, FamilyNumbers numbers, Json entries) {
    return {{family, name, std::move(numbers)}, std::move(entries), ""};
}

}  // namespace

std::optional<U8> AclRanges::numberOf(PortRange const& range) {
    auto const* const known = std::ranges::find(ranges_, std::optional(range));
    if (known != ranges_.end()) return static_cast<U8>(known - ranges_.begin());
    bool const toLast = range.last == lastPort;
    bool const fromFirst = range.first == 0;
    std::vector<U8> fitting;
    // Two rows of two windows and two anchors. A window from port 0 would come back as a broken one.
    if (toLast || fromFirst) fitting = {2, 3, 6, 7};
    if (!fromFirst) fitting.insert(fitting.end(), {0, 1, 4, 5});
    for (U8 const place : fitting) {
        if (ranges_[place]) continue;
        ranges_[place] = range;
        return place;
    }
    return std::nullopt;
}

AclImport::AclImport(NerioSwitch::ProfileInfo const& profile, ImportReport& report)
    : profile_(profile), report_(report) {}

std::optional<U8> AclImport::aclIs(Belmo::String const& name, Belmo::String const& place,
                                   std::vector<AclImportRule> const& rules, AclImportOrder order) {
    if (rules.empty()) return std::nullopt;
    if (acls_.size() == lastAcl + 1 - firstAcl) {
        report_.lost(place, fmt::format("with its {} rules: the chip has numbers for {} ACLs alone",
                                        rules.size(), acls_.size()));
        return std::nullopt;
    }
    Acl acl{static_cast<U8>(firstAcl + acls_.size()), {}, {}};
    for (auto const& rule : rules) {
        std::size_t const before = acl.taken.size();
        for (auto const& match : rule.matches) {
            for (auto const& part : partsOf(match)) {
                if (auto const reason = add(acl, part, rule, order)) report_.lost(rule.place, *reason);
            }
        }
        if (acl.taken.size() != before) report_.took("ACL rules");
    }
    if (acl.taken.empty()) return std::nullopt;
    report_.took("ACLs");
    report_.named("ACL", name, acl.number);
    acls_.push_back(std::move(acl));
    return acls_.back().number;
}

AclImport::Reason AclImport::add(Acl& acl, FilterRule const& match, AclImportRule const& rule,
                                 AclImportOrder order) {
    U8 priority = 1;
    for (auto const& earlier : acl.taken) {
        if (earlier.match == match) return fmt::format("never decides: {} asks for the same", earlier.place);
        bool const matters = order == AclImportOrder::all || earlier.permit != rule.permit;
        if (matters && earlier.priority >= priority && overlap(earlier.match, match))
            priority = static_cast<U8>(earlier.priority + 1);
    }
    if (priority > HwAclPriority::max)
        return fmt::format("rules above it take all {} priorities", U32{HwAclPriority::max});
    auto const hwRule = HwAclRule().priorityIs(priority).ruleFlagIs(rule.permit).counterIs(nextCounter());
    if (auto reason = place(acl, match, hwRule)) return reason;
    acl.taken.push_back({match, rule.permit, priority, rule.place});
    report_.took("ACL entries");
    return std::nullopt;
}

AclImport::Reason AclImport::place(Acl& acl, FilterRule const& match, HwAclRule rule) {
    AclHashKey key;
    key.aclIdIs(acl.number).firstPrefixIs(match.source).secondPrefixIs(match.destination);
    if (!match.sourcePorts.any() && !match.destinationPorts.any())
        return "an entry looks at the source's port or at the destination's, not at both";
    auto const looks = looksOf(match);
    auto const& ports = match.destinationPorts.any() ? match.sourcePorts : match.destinationPorts;
    if (auto reason = protocolOf(match, key)) return reason;
    auto const ranges = acl.ranges;
    if (looks == Looks::destinationRange || looks == Looks::sourceRange) {
        if (auto reason = rangeOf(acl, ports, rule)) return reason;
        key.rangeIdIs(rule.rangeId());
    } else if (!ports.any()) {
        key.portIs(ports.first).portIsZeroIs(ports.first == 0);
    }
    bool const hasSource = match.source.len() != 0;
    U8 const table = !hasSource ? 0 : match.destination.len() == 0 ? 1 : 2;
    for (U8 const combination : combinationsOf(table, looks)) {
        key.combinationIs(combination);
        auto const& layout = NerioSwitchTable::aclKeyLayout(
            key.combination(), NerioSwitchTable::aclRowFormat(profile_).hasFilterMask());
        auto const packed = layout.pack(key);
        if (auto const blurred = blurredIn(key, layout, packed)) {
            acl.ranges = ranges;
            return fmt::format("{}: keys of this chip do not tell it from other addresses", *blurred);
        }
        if (!packedKeys_.emplace(table, packed).second) continue;
        entries_.push_back({key, rule, table});
        return std::nullopt;
    }
    acl.ranges = ranges;
    return "rules above it have its key in all combinations that look at its fields";
}

AclImport::Reason AclImport::protocolOf(FilterRule const& match, AclHashKey& key) {
    if (!match.protocol) return std::nullopt;
    bool const hasPort = !match.sourcePorts.any() || !match.destinationPorts.any();
    if (hasPort && *match.protocol != tcp && *match.protocol != udp)
        return fmt::format("protocol {}: ports are those of TCP and UDP", U32{*match.protocol});
    auto const number = protocols_.of(*match.protocol);
    if (!number) {
        return fmt::format("protocol {}: keys have numbers for {} protocols, and all are in use",
                           U32{*match.protocol}, knownProtocols_.size());
    }
    if (std::ranges::find(knownProtocols_, *match.protocol) == knownProtocols_.end())
        knownProtocols_.push_back(*match.protocol);
    key.protocolIs(*number);
    return std::nullopt;
}

AclImport::Reason AclImport::rangeOf(Acl& acl, PortRange const& range, HwAclRule& rule) const {
    if (profile_.hwApi.majorVersion() < versionOfRanges)
        return fmt::format("ports {}: rows have no ranges before hardware API {}", textOf(range),
                           versionOfRanges);
    auto const number = acl.ranges.numberOf(range);
    if (!number) return fmt::format("ports {}: no port range of the ACL is left", textOf(range));
    rule.rangeIdIs(HwAclRangeId(*number));
    return std::nullopt;
}

HwCounterIndex AclImport::nextCounter() const {
    U32 const last =
        profile_.hwApi.majorVersion() < versionOfRanges ? HwCounterIndex::max / 2 : U32{HwCounterIndex::max};
    auto const next = static_cast<U32>(entries_.size() + 1);
    return next <= last ? next : U32{HwCounterIndex::invalid};
}

Json AclImport::entriesOf(U8 physTableIdx) const {
    Json json = Json::array();
    for (auto const& entry : entries_) {
        if (entry.physTableIdx != physTableIdx) continue;
        json.push_back({{"key", sparseToJson(entry.key)},
                        {"result", {{"rules", Json::array({sparseToJson(entry.rule)})}}}});
    }
    return json;
}

Json AclImport::protocolEntries() const {
    Json json = Json::array();
    U32 number = 0;
    for (U8 const protocol : knownProtocols_)
        json.push_back({{"key", {{"protocol", protocol}}}, {"result", {{"remappedProtocol", ++number}}}});
    return json;
}

Json AclImport::rangeEntries() const {
    using NerioSwitchTable::AclPortRangeKey;
    using NerioSwitchTable::AclPortRangeResult;
    constexpr U8 rows = 2;
    constexpr U8 perRow = AclRanges::places / rows;
    Json json = Json::array();
    for (auto const& acl : acls_) {
        for (U8 row = 0; row < rows; ++row) {
            AclPortRangeResult result{NerioSwitchTable::AclPortRangeRow(row)};
            for (U32 number = U32{row} * perRow; number < (row + 1u) * perRow; ++number) {
                if (auto const& range = acl.ranges.ranges()[number])
                    result.addRange({HwAclRangeId(number), range->first, range->last});
            }
            if (result.isEmpty()) continue;
            json.push_back({{"key", toJson(AclPortRangeKey::fromAclIdAndRow(acl.number, row))},
                            {"result", sparseToJson(result)}});
        }
    }
    return json;
}

std::vector<TableState> AclImport::tables() const {
    std::vector<TableState> tables;
    auto const ranges = rangeEntries();
    auto const protocols = protocolEntries();
    auto const pipelines = profile_.numPipelinesOfTable(NerioSwitch::TableLayoutEnum::tableLayoutAcl);
    for (U32 pipeline = 0; pipeline < pipelines; ++pipeline) {
        auto const add = [&](char const* family, char const* what, FamilyNumbers numbers, Json entries) {
            if (entries.empty()) return;
            numbers["pipeline"] = pipeline;
            tables.push_back(tableOf(family, fmt::format("acl {} {}", what, pipeline), std::move(numbers),
                                     std::move(entries)));
        };
        for (auto const& [index, name] : physTables)
            add("aclHash", name, {{"physTableIdx", index}}, entriesOf(index));
        add("aclPortRange", "ranges", {}, ranges);
        add("protocolRemap", "protocols", {}, protocols);
    }
    return tables;
}

}  // namespace Agent
