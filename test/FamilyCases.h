#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "NerioSwitch/ProfileInfo.h"

#include "RandomValue.h"
#include "agent/Families.h"
#include "agent/ValueJson.h"

namespace NerioTest {

/** A family, or one kind of its tables, as the tests that hold for every family see it. */
struct FamilyCase {
    /** The table's name is the case's. */
    Agent::TableSpec spec;
    /** A key that the chip has a place for. Drawn from few, so that operations meet. */
    std::function<Agent::Json(Random&, NerioSwitch::ProfileInfo const&)> randomKey;
    std::function<Agent::Json(Random&, Agent::Json const& key)> randomResult;
    /** What a warm restart makes of an entry; null where it does not come back. */
    std::function<Agent::Json(Agent::Json const& key, Agent::Json const& result)> comesBack;
    /** Register writes that a warm restart owes for an entry, where what comes back is not what its rows
     * held. */
    std::function<U64(Agent::Json const& key, Agent::Json const& result)> restartWrites{};
    /**
     * The result as which a deleted key comes back from a warm restart, and no other key does; null where
     * none comes back. The rows of such a key are others than those of a key that never was.
     */
    Agent::Json deletedComesBack{};
    /** Keys that an agent sets anew when a write was cut off, and deletes where it wants nothing of them. */
    std::vector<Agent::Json> setAfterCut{};
};

inline void PrintTo(FamilyCase const& family, std::ostream* stream) {
    *stream << family.spec.name;
}

/** A case whose entries come back as they were, but for those that equal the default result. */
template <class Table, class RandomKey>
FamilyCase familyCase(Belmo::String const& family, RandomKey randomKey) {
    using Result = typename Table::Result;
    return {{family, family, {}},
            [randomKey](Random& random, auto const& profile) {
                return Agent::toJson(randomKey(random, profile));
            },
            [](Random& random, auto const&) { return Agent::toJson(randomValue<Result>(random)); },
            [](auto const&, auto const& result) {
                return result == Agent::toJson(Result()) ? Agent::Json() : result;
            }};
}

/** Draws from keys that are found when the first one is drawn: few processes need those of every family. */
template <class FindKeys>
auto drawnFrom(FindKeys findKeys) {
    auto const keys = std::make_shared<std::vector<Agent::Json>>();
    return [findKeys, keys](Random& random, auto const&) {
        if (keys->empty()) *keys = findKeys();
        return (*keys)[below(random, keys->size())];
    };
}

/** Every family, a line each; the tables of a hash family for keys that crowd in few rows. */
std::vector<FamilyCase> const& familyCases();

}  // namespace NerioTest
