#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "Belmo/Publisher.h"
#include "NerioSwitchApi/HashTable.h"
#include "NerioSwitchApi/SwTable.h"

#include "agent/Json.h"
#include "agent/ValueAttributes.h"
#include "agent/ValueJson.h"

namespace Agent {

/** How the entries of a hash table stand in their rows. */
struct HashPlacement {
    U32 rowsInUse = 0;
    /** Rows of all hash tables together. */
    U32 rows = 0;
    /** Placements so far, by the moves that each of them needed. */
    NerioSwitchApi::MoveHistogram moves{};
    /** Attempts so far that found no place. */
    U64 failedPlacements = 0;
    /** Entries that have no place now. */
    std::size_t entriesWithoutPlace = 0;
};

/**
 * A software table of any family, spoken to in JSON: what scripts, state files and tests drive tables
 * through. Every call throws `JsonException` for a key or result that the family does not take.
 */
class JsonTable {
public:
    /** Told of each change: the attribute, and the key in JSON (null for a change of a whole attribute). */
    using ChangeObserver = std::function<void(std::string_view attribute, Json key)>;

    virtual ~JsonTable();
    JsonTable(JsonTable const&) = delete;
    JsonTable& operator=(JsonTable const&) = delete;

    virtual Belmo::Ptr<NerioSwitchApi::SwTable> table() const = 0;
    virtual void entryIs(Json const& key, Json const& result, Place const& place) = 0;
    /** The removed result, or the default one. */
    virtual Json entryDel(Json const& key, Place const& place) = 0;
    virtual void entryDelAll() = 0;
    /** Brings hardware in line with the table for one key, whether it has an entry or not. */
    virtual void handleEntry(Json const& key, Place const& place) = 0;
    /** The stored result, if there is one; the default otherwise. */
    virtual std::pair<bool, Json> entry(Json const& key, Place const& place) const = 0;
    /** Keys and results, in key order. */
    virtual std::vector<std::pair<Json, Json>> entries() const = 0;
    virtual std::size_t entryCount() const = 0;
    /** How many entries equal the default result, which leaves no trace in hardware. */
    virtual std::size_t defaultEntryCount() const = 0;
    /** Keys marked as disagreeing with hardware, in key order. */
    virtual std::vector<Json> inconsistent() const = 0;
    /** The status records, in key order: [{"key":K,"status":0,"lastHit":null},...]; none without status. */
    virtual std::optional<Json> status() const { return std::nullopt; }
    /** Where a key stands: {"table":W,"row":R}, null for a key in no row; none for tables without a hash. */
    virtual std::optional<Json> location(Json const& /*key*/, Place const& /*place*/) const {
        return std::nullopt;
    }
    /**
     * A key's row in each hash table, and what is hashed: {"hashes":[R,...],"bits":N,"input":HEX}, the bytes
     * first byte first. The key need not be in the table, but the table must be started, since the profile
     * decides. None for tables without a hash.
     */
    virtual std::optional<Json> hash(Json const& /*key*/, Place const& /*place*/) const {
        return std::nullopt;
    }
    /** None for tables without a hash, and before the start. */
    virtual std::optional<HashPlacement> placement() const { return std::nullopt; }
    /** The key as `entries` gives it: numbers as numbers, and attributes that were left out as well. */
    virtual Json keyForm(Json const& key, Place const& place) const = 0;
    virtual Belmo::String keyText(Json const& key, Place const& place) const = 0;
    virtual Belmo::String resultText(Json const& result, Place const& place) const = 0;
    [[nodiscard]] virtual Belmo::Subscription observe(ChangeObserver observer) = 0;
    /** What its keys and results are made of. */
    virtual ValueAttributes keyAttributes() const = 0;
    virtual ValueAttributes resultAttributes() const = 0;

protected:
    JsonTable() = default;
};

/** The text form that a key or result shows to people: its own, or the one that follows from its attributes.
 */
template <class T>
Belmo::String shownText(T const& value) {
    if constexpr (requires { value.resultString(); }) {
        return value.resultString();
    } else if constexpr (requires { value.keyString(); }) {
        return value.keyString();
    } else if constexpr (requires { value.stringValue(); }) {
        return value.stringValue();
    } else {
        return Sorn::text(value);
    }
}

/** Keys of a range of pairs for which `wanted(value)` holds, in order. */
template <class Range, class Wanted>
auto sortedKeys(Range const& map, Wanted&& wanted) {
    std::vector<std::remove_cvref_t<decltype((*map.begin()).first)>> keys;
    for (auto const& [key, value] : map) {
        if (wanted(value)) keys.push_back(key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

/** A table that keeps a result per key, in JSON: what the tables of all shapes share. */
template <class Table>
class KeyedJsonTable : public JsonTable {
public:
    using Key = typename Table::Key;
    using Result = typename Table::Result;

    explicit KeyedJsonTable(Belmo::Ptr<Table> table) : table_(std::move(table)) {}

    Belmo::Ptr<NerioSwitchApi::SwTable> table() const override { return table_; }

    void entryIs(Json const& key, Json const& result, Place const& place) override {
        auto const typedKey = fromJson<Key>(key, place.member("key"));
        auto const typedResult = fromJson<Result>(result, place.member("result"));
        try {
            table_->entryIs(typedKey, typedResult);
        } catch (Belmo::Exception const& failure) {
            throw JsonException(place.member("key"), failure);
        }
    }

    Json entryDel(Json const& key, Place const& place) override {
        return toJson(table_->entryDel(fromJson<Key>(key, place.member("key"))));
    }

    void entryDelAll() override { table_->entryDelAll(); }

    void handleEntry(Json const& key, Place const& place) override {
        table_->handleEntry(fromJson<Key>(key, place.member("key")));
    }

    std::pair<bool, Json> entry(Json const& key, Place const& place) const override {
        auto const typedKey = fromJson<Key>(key, place.member("key"));
        return {table_->entryHas(typedKey), toJson(table_->entry(typedKey))};
    }

    std::vector<std::pair<Json, Json>> entries() const override {
        std::vector<std::pair<Json, Json>> all;
        for (auto const& key : sortedKeys(table_->entries(), [](auto const&) { return true; })) {
            all.emplace_back(toJson(key), toJson(table_->entry(key)));
        }
        return all;
    }

    std::size_t entryCount() const override { return table_->entries().size(); }
    std::size_t defaultEntryCount() const override {
        std::size_t count = 0;
        for (auto const& [key, result] : table_->entries())
            count += result == Result() ? 1 : 0;
        return count;
    }

    std::vector<Json> inconsistent() const override {
        std::vector<Json> all;
        for (auto const& key :
             sortedKeys(table_->hwInconsistentEntries(), [](bool marked) { return marked; })) {
            all.push_back(toJson(key));
        }
        return all;
    }

    std::optional<Json> status() const override {
        if constexpr (requires { table_->tableStatus(); }) {
            return statusToJson();
        } else {
            return std::nullopt;
        }
    }

    Json keyForm(Json const& key, Place const& place) const override {
        return toJson(fromJson<Key>(key, place.member("key")));
    }

    Belmo::String keyText(Json const& key, Place const& place) const override {
        return shownText(fromJson<Key>(key, place.member("key")));
    }

    Belmo::String resultText(Json const& result, Place const& place) const override {
        return shownText(fromJson<Result>(result, place.member("result")));
    }

    Belmo::Subscription observe(ChangeObserver observer) override {
        return table_->publisher().observeAll([observer = std::move(observer)](Belmo::Change const& change) {
            auto const* key = change.key.template as<Key>();
            observer(change.attribute, key == nullptr ? Json() : toJson(*key));
        });
    }

    ValueAttributes keyAttributes() const override { return attributesOf<Key>(); }
    ValueAttributes resultAttributes() const override { return attributesOf<Result>(); }

protected:
    Table& keyed() const { return *table_; }

private:
    Json statusToJson() const {
        auto const& status = table_->tableStatus();
        Json all = Json::array();
        if (!status) return all;
        std::vector<Key> keys;
        for (auto const& record : status->entryStatuses())
            keys.push_back(record.key());
        std::sort(keys.begin(), keys.end());
        for (auto const& key : keys) {
            auto const record = status->entryStatus(key);
            all.push_back({{"key", toJson(key)},
                           {"status", statusNumber(record)},
                           {"lastHit", toJson(record.lastHit())}});
        }
        return all;
    }

    /** 0 is in hardware, which goes without saying where each key has a row of its own. */
    template <class Record>
    static U32 statusNumber(Record const& record) {
        if constexpr (requires { record.status(); }) {
            return static_cast<U32>(record.status());
        } else {
            return 0;
        }
    }

    Belmo::Ptr<Table> table_;
};

/** A table of the plain shape. */
template <class Table>
class PlainJsonTable final : public KeyedJsonTable<Table> {
public:
    using KeyedJsonTable<Table>::KeyedJsonTable;
};

/** A table of the direct shape. */
template <class Table>
class DirectJsonTable final : public KeyedJsonTable<Table> {
public:
    using KeyedJsonTable<Table>::KeyedJsonTable;

    std::size_t defaultEntryCount() const override {
        return Table::defaultIsEmpty ? KeyedJsonTable<Table>::defaultEntryCount() : 0;
    }
};

}  // namespace Agent
