#pragma once

#include <limits>
#include <memory>
#include <string_view>
#include <vector>

#include "agent/Families.h"

namespace Agent {

/** A number of a table; 0 for one that was left out. */
inline U64 numberOf(FamilyNumbers const& numbers, char const* name) {
    auto const found = numbers.find(name);
    return found == numbers.end() ? 0 : found->second;
}

/** What speaks in JSON to a table of one type. */
template <class Shape, class Table>
std::unique_ptr<JsonTable> wrapped(Belmo::Ptr<NerioSwitchApi::SwTable> const& table) {
    auto* const typed = dynamic_cast<Table*>(table.get());
    if (typed == nullptr) return nullptr;
    return std::make_unique<Shape>(Belmo::Ptr<Table>(typed));
}

/** A family by its shape and its factory, whose numbers have these names. */
template <template <class> class Shape, class Table, class... Number, class... Name>
Family familyOf(std::string_view name, std::string_view summary,
                Belmo::Ptr<Table> (*factory)(Belmo::String const&, Number...), Name... numberNames) {
    static_assert(sizeof...(Number) == sizeof...(Name));
    return {name,
            summary,
            {FamilyNumber{numberNames, std::numeric_limits<Number>::max()}...},
            [=](Belmo::String const& tableName,
                [[maybe_unused]] FamilyNumbers const& numbers) -> std::unique_ptr<JsonTable> {
                return std::make_unique<Shape<Table>>(
                    factory(tableName, static_cast<Number>(numberOf(numbers, numberNames))...));
            },
            wrapped<Shape<Table>, Table>};
}

/** The same of a factory that gives its table a name of its own. */
template <template <class> class Shape, class Table>
Family familyOf(std::string_view name, std::string_view summary, Belmo::Ptr<Table> (*factory)()) {
    return {name,
            summary,
            {},
            [=](Belmo::String const&, FamilyNumbers const&) -> std::unique_ptr<JsonTable> {
                return std::make_unique<Shape<Table>>(factory());
            },
            wrapped<Shape<Table>, Table>};
}

/** Families of one subject, in a source of their own since each takes long to compile. */
std::vector<Family> layer2Families();
std::vector<Family> lagFamilies();
std::vector<Family> natFamilies();
std::vector<Family> multicastFamilies();
std::vector<Family> aclPlainFamilies();
std::vector<Family> rateFamilies();

}  // namespace Agent
