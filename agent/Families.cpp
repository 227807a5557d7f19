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
        familyOf<PlainJsonTable>("portConfig", NerioSwitchTable::portConfigTableFactory),
        familyOf<DirectJsonTable>("l3Lag", NerioSwitchTable::l3LagTableFactory),
        familyOf<DirectJsonTable>("lpm11", NerioSwitchTable::lpm11TableFactory),
        familyOf<HashJsonTable>("aclHash", NerioSwitchTable::aclHashTableFactory, "pipeline", "physTableIdx"),
        familyOf<HashJsonTable>("aclIndirectCounterHash",
                                NerioSwitchTable::aclIndirectCounterHashTableFactory, "pipelinePair"),
        familyOf<HashJsonTable>("hashTest", NerioSwitchTable::hashTestTableFactory),
        familyOf<PlainJsonTable>("lpm", NerioSwitchTable::lpmTableFactory),
        familyOf<HashJsonTable>("lpm14", NerioSwitchTable::lpm14TableFactory),
        familyOf<HashJsonTable>("lpm17", NerioSwitchTable::lpm17TableFactory),
        familyOf<HashJsonTable>("lpm20", NerioSwitchTable::lpm20TableFactory),
        familyOf<HashJsonTable>("lpm23", NerioSwitchTable::lpm23TableFactory),
        familyOf<HashJsonTable>("lpm26", NerioSwitchTable::lpm26TableFactory),
        familyOf<HashJsonTable>("lpm29", NerioSwitchTable::lpm29TableFactory),
        familyOf<HashJsonTable>("lpm32", NerioSwitchTable::lpm32TableFactory),
    };
    for (auto&& family : natFamilies())
        all.push_back(std::move(family));
    for (auto&& family : multicastFamilies())
        all.push_back(std::move(family));
    for (auto&& family : layer2Families())
        all.push_back(std::move(family));
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
