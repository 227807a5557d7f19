#include "agent/Families.h"

#include <algorithm>
#include <array>

#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "agent/HashJsonTable.h"

namespace Agent {

namespace {

/** A family whose factory takes the name alone. */
template <template <class> class Shape, class Table>
Family named(std::string_view name, Belmo::Ptr<Table> (*factory)(Belmo::String const&)) {
    return {name, {}, [factory](Belmo::String const& tableName, FamilyNumbers const&) {
                return std::make_unique<Shape<Table>>(factory(tableName));
            }};
}

constexpr std::array<std::string_view, 4> allNumbers = {"pipeline", "physTableIdx", "pipelinePair",
                                                        "numFloodsForEcmp"};

}  // namespace

JsonTable::~JsonTable() = default;

std::vector<Family> const& families() {
    static std::vector<Family> const all = {
        named<PlainJsonTable>("portConfig", NerioSwitchTable::portConfigTableFactory),
        named<HashJsonTable>("hashTest", NerioSwitchTable::hashTestTableFactory),
    };
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
        auto const number = fromJson<U64>(value, place.member(name));
        if (isOneOf(known->numbers)) spec.numbers[name] = number;
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
