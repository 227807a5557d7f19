#pragma once

#include <cstddef>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FamilyCases.h"

/* What an agent wants of a table and what stands in hardware, for tests of any family. */
namespace NerioTest {

/** The entries that an agent wants: key to result, both as text, since JSON has no order of its own. */
using Model = std::map<std::string, std::string>;

/** One call of an agent. Without a result it is a deletion. */
struct Operation {
    Agent::Json key;
    std::optional<Agent::Json> result;
};

inline std::vector<Operation> randomOperations(FamilyCase const& family,
                                               NerioSwitch::ProfileInfo const& profile, Random& random,
                                               std::size_t count) {
    std::vector<Operation> operations;
    for (std::size_t i = 0; i < count; ++i) {
        Operation operation{family.randomKey(random, profile), std::nullopt};
        if (below(random, 4) != 0) operation.result = family.randomResult(random, operation.key);
        operations.push_back(std::move(operation));
    }
    return operations;
}

inline void carryOut(Operation const& operation, Agent::JsonTable& table) {
    if (operation.result) {
        table.entryIs(operation.key, *operation.result, Agent::Place());
    } else {
        table.entryDel(operation.key, Agent::Place());
    }
}

inline void carryOut(Operation const& operation, Model& model) {
    if (operation.result) {
        model[operation.key.dump()] = operation.result->dump();
    } else {
        model.erase(operation.key.dump());
    }
}

inline Model entriesOf(Agent::JsonTable const& table) {
    Model model;
    for (auto const& [key, result] : table.entries())
        model[key.dump()] = result.dump();
    return model;
}

/** The model behind a warm restart: without what hardware does not tell. */
inline Model afterRestart(FamilyCase const& family, Model const& model) {
    Model back;
    for (auto const& [key, result] : model) {
        auto const returned = family.comesBack(Agent::Json::parse(key), Agent::Json::parse(result));
        if (!returned.is_null()) back[key] = returned.dump();
    }
    return back;
}

/** Register writes that a warm restart owes for these entries. */
inline U64 restartWrites(FamilyCase const& family, Model const& model) {
    U64 writes = 0;
    if (!family.restartWrites) return writes;
    for (auto const& [key, result] : model)
        writes += family.restartWrites(Agent::Json::parse(key), Agent::Json::parse(result));
    return writes;
}

/**
 * An agent that comes back: wants nothing but what it wanted. Keys that are marked had copies that disagreed;
 * where none of them became an entry, the agent has their rows written again.
 */
inline void reconcile(Model const& wanted, Agent::JsonTable& table) {
    bool const isHash = table.placement().has_value();
    for (auto const& key : table.inconsistent()) {
        if (!isHash && !wanted.contains(key.dump())) table.handleEntry(key, Agent::Place());
    }
    for (auto const& [key, result] : table.entries()) {
        if (!wanted.contains(key.dump())) table.entryDel(key, Agent::Place());
    }
    for (auto const& [key, result] : wanted)
        table.entryIs(Agent::Json::parse(key), Agent::Json::parse(result), Agent::Place());
}

/** The entries that stand in hardware: all but those of a hash table that found no place. */
inline Model placedEntries(Agent::JsonTable const& table) {
    auto placed = entriesOf(table);
    auto const status = table.status();
    if (!status) return placed;
    EXPECT_EQ(status->size(), placed.size()) << "a status for each entry";
    for (auto const& record : *status) {
        if (record["status"] != 0) placed.erase(record["key"].dump());
    }
    return placed;
}

inline U64 movesSoFar(Agent::JsonTable const& table) {
    auto const placement = table.placement();
    if (!placement) return 0;
    U64 moves = 0;
    for (std::size_t length = 0; length < placement->moves.size(); ++length)
        moves += length * placement->moves[length];
    return moves;
}

/** Rows in which entries were found so far, as text. */
using RowsTaken = std::set<std::string>;

/** Each of these entries of a hash table stands in a row of its hashes, and in a row of its own. */
inline void takeRows(Agent::JsonTable const& table, Model const& placed, RowsTaken& rows) {
    for (auto const& [text, result] : placed) {
        auto const key = Agent::Json::parse(text);
        auto const location = *table.location(key, Agent::Place());
        ASSERT_FALSE(location.is_null()) << text;
        auto const hash = *table.hash(key, Agent::Place());
        EXPECT_EQ(location["row"], hash["hashes"][location["table"].get<std::size_t>()]) << text;
        EXPECT_GT(hash["bits"], 0) << text;
        EXPECT_TRUE(rows.insert(location.dump()).second) << text << " shares its row";
    }
}

}  // namespace NerioTest
