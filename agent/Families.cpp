#include "agent/Families.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "NerioSwitchTable/NerioTableAclIndirectCounter.h"
#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTableL3Lag.h"
#include "NerioSwitchTable/NerioTableLpm.h"
#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "agent/FamilyOf.h"
#include "agent/HashJsonTable.h"

namespace Agent {

namespace {

constexpr std::array<std::string_view, 4> allNumbers = {"pipeline", "physTableIdx", "pipelinePair",
                                                        "numFloodsForEcmp"};

std::vector<Family> allFamilies() {
    std::vector<Family> all = {
        familyOf<PlainJsonTable>("portConfig", "Per chip port, the VLAN mode and two disable flags.",
                                 NerioSwitchTable::portConfigTableFactory),
        familyOf<DirectJsonTable>("l3Lag",
                                  "Per L3 LAG index, the ports that packets of a route or flow go out of.",
                                  NerioSwitchTable::l3LagTableFactory),
        familyOf<DirectJsonTable>("lpm11",
                                  "The direct stage of the route look-up: a row for each VRF and each value "
                                  "of the first 11 address bits.",
                                  NerioSwitchTable::lpm11TableFactory),
        familyOf<HashJsonTable>("aclHash",
                                "ACL rules of one pipeline and physical table, found by a hash of the fields "
                                "of a packet that a combination looks at.",
                                NerioSwitchTable::aclHashTableFactory, "pipeline", "physTableIdx"),
        familyOf<HashJsonTable>(
            "aclIndirectCounterHash",
            "Per counter key of an ACL rule, the counter that counts its packets, for a pair of pipelines.",
            NerioSwitchTable::aclIndirectCounterHashTableFactory, "pipelinePair"),
        familyOf<HashJsonTable>("hashTest",
                                "The smallest hash table, whose hash the key itself dictates: it drives the "
                                "framework on known rows.",
                                NerioSwitchTable::hashTestTableFactory),
        familyOf<PlainJsonTable>("lpm", "Whole routes and what is known of them; it touches no hardware.",
                                 NerioSwitchTable::lpmTableFactory),
        familyOf<HashJsonTable>("lpm14", "A hashing stage of the route look-up, for routes of 12 to 14 bits.",
                                NerioSwitchTable::lpm14TableFactory),
        familyOf<HashJsonTable>("lpm17", "A hashing stage of the route look-up, for routes of 15 to 17 bits.",
                                NerioSwitchTable::lpm17TableFactory),
        familyOf<HashJsonTable>("lpm20", "A hashing stage of the route look-up, for routes of 18 to 20 bits.",
                                NerioSwitchTable::lpm20TableFactory),
        familyOf<HashJsonTable>("lpm23", "A hashing stage of the route look-up, for routes of 21 to 23 bits.",
                                NerioSwitchTable::lpm23TableFactory),
        familyOf<HashJsonTable>("lpm26", "A hashing stage of the route look-up, for routes of 24 to 26 bits.",
                                NerioSwitchTable::lpm26TableFactory),
        familyOf<HashJsonTable>("lpm29", "A hashing stage of the route look-up, for routes of 27 to 29 bits.",
                                NerioSwitchTable::lpm29TableFactory),
        familyOf<HashJsonTable>("lpm32", "A hashing stage of the route look-up, for routes of 30 to 32 bits.",
                                NerioSwitchTable::lpm32TableFactory),
    };
    for (auto const& ofSubject :
         {layer2Families, lagFamilies, natFamilies, multicastFamilies, aclPlainFamilies, rateFamilies}) {
        for (auto&& family : ofSubject())
            all.push_back(std::move(family));
    }
    return all;
}

}  // namespace

JsonTable::~JsonTable() = default;

std::vector<Family> const& families() {
    static std::vector<Family> const all = allFamilies();
    return all;
}

Family const* family(std::string_view name) {
    auto const found = std::find_if(families().begin(), families().end(),
                                    [&](auto const& candidate) { return candidate.name == name; });
    return found == families().end() ? nullptr : &*found;
}

TableSpec tableSpecFromJson(Json const& json, Place const& place,
                            std::initializer_list<std::string_view> extra) {
    TableSpec spec;
    spec.family = requiredString(json, "family", place);
    auto const* known = family(spec.family);
    if (known == nullptr) {
        throw JsonException(place.member("family"),
                            fmt::format("family: unknown family {}", shown(spec.family)));
    }
    spec.name = requiredString(json, "name", place);
    for (auto const& [name, value] : json.items()) {
        auto const isOneOf = [&name = name](auto const& names) {
            return std::find(names.begin(), names.end(), name) != names.end();
        };
        if (name == "family" || name == "name" || isOneOf(extra)) continue;
        if (!isOneOf(allNumbers)) {
            throw JsonException(place.member(name), fmt::format("unknown member {}", shown(name)));
        }
        auto const own = std::find_if(known->numbers.begin(), known->numbers.end(),
                                      [&name = name](auto const& number) { return number.name == name; });
        bool const isOwn = own != known->numbers.end();
        auto const number =
            numberFromJson(value, isOwn ? own->max : std::numeric_limits<U64>::max(), place.member(name));
        if (isOwn) spec.numbers[name] = number;
    }
    return spec;
}

Json tableSpecToJson(TableSpec const& spec) {
    Json json{{"family", spec.family}, {"name", spec.name}};
    for (auto const& [name, number] : spec.numbers)
        json[name] = number;
    return json;
}

std::unique_ptr<JsonTable> makeTable(TableSpec const& spec) {
    return family(spec.family)->make(spec.name, spec.numbers);
}

}  // namespace Agent
