#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "agent/JsonTable.h"

namespace Agent {

/** The numbers that some factories take, by name: "pipeline", "physTableIdx", ... */
using FamilyNumbers = std::map<Belmo::String, U64>;

/** A number that a factory takes. */
struct FamilyNumber {
    std::string_view name;
    /** The largest that its type holds. */
    U64 max;
};

/** A table family by name: how tools make a table of it. */
struct Family {
    /** The factory's name without "TableFactory". */
    std::string_view name;
    /** What its tables are, in a sentence. */
    std::string_view summary;
    /** The numbers that the factory takes, in its order. */
    std::vector<FamilyNumber> numbers;
    std::function<std::unique_ptr<JsonTable>(Belmo::String const& name, FamilyNumbers const& numbers)> make;
    /** Speaks in JSON to a table that someone else made; null for one that is not of the family. */
    std::function<std::unique_ptr<JsonTable>(Belmo::Ptr<NerioSwitchApi::SwTable> const& table)> wrap;
};

/** Every family of the library. A family joins the tools by one line there. */
std::vector<Family> const& families();
/** The family of that name; null if there is none. */
Family const* family(std::string_view name);

/** What makes a table again: family, name, numbers. */
struct TableSpec {
    Belmo::String family;
    Belmo::String name;
    FamilyNumbers numbers;
};

/**
 * Reads "family", "name" and the family's numbers from an object; numbers left out are 0, and one that its
 * type does not hold is refused. Numbers of other families are passed over, so that one line form serves all.
 * `extra` names further members of the object.
 */
TableSpec tableSpecFromJson(Json const& json, Place const& place,
                            std::initializer_list<std::string_view> extra = {});
Json tableSpecToJson(TableSpec const& spec);
std::unique_ptr<JsonTable> makeTable(TableSpec const& spec);

}  // namespace Agent
