#pragma once

#include <cstddef>
#include <set>
#include <utility>
#include <vector>

#include "Belmo/Ptr.h"
#include "Sorn/HashMap.h"

/* What the software tables of all shapes share: the maps that an agent talks to. */
namespace NerioSwitchTable {

/** The wanted result of each key, in a map of its own. */
template <class KeyType, class ResultType>
class EntryMap : public Belmo::Node {
public:
    using Key = KeyType;
    using Result = ResultType;
    using Entries = Sorn::HashMap<Key, Result>;

    /** Where a key's result is, or would be put. Holds until the map changes. */
    class Place {
    public:
        /** The key's result; null for none. */
        Result const* result() const { return result_; }

    private:
        friend class EntryMap;
        explicit Place(Result* result) : result_(result) {}
        Result* result_;
    };
    Place place(Key const& key) {
        auto const found = entries_.find(key);
        return Place(found == entries_.end() ? nullptr : &found.value());
    }
    void put(Place const& place, Key const& key, Result const& result) {
        if (place.result_ != nullptr) {
            *place.result_ = result;
        } else {
            entries_.emplace(key, result);
        }
    }

    /** The key's result; null for an absent key. Holds until the map changes. */
    Result const* find(Key const& key) const {
        auto const found = entries_.find(key);
        return found == entries_.end() ? nullptr : &found->second;
    }
    void erase(Key const& key) { entries_.erase(key); }
    Entries const& entries() const { return entries_; }

private:
    Entries entries_;
};

/**
 * A software table that keeps a result per key. `Base` is the framework's base of the shape, `Store` what
 * keeps the results: an `EntryMap` or a class with its operations.
 */
template <class Base, class Store>
class KeyedTable : public Base {
public:
    using Key = typename Store::Key;
    using Result = typename Store::Result;

    /**
     * Wants `result` at `key`. An equal result has no effect at all. Once the table is up, hardware is in
     * line when this returns. A key that the chip has no row for, or a result that no row can hold, is
     * refused with `Belmo::RangeException` before anything is stored; after a failure of the bus the table
     * keeps the result, and the same call tries again.
     */
    void entryIs(Key const& key, Result const& result) {
        auto const place = store_->place(key);
        if (place.result() != nullptr && *place.result() == result && !unprogrammed(key)) return;
        checkEntry(key, result);
        if (this->initialized()) checkKey(key);
        store_->put(place, key, result);
        programAndPublish(key);
    }

    /** Wants no entry at `key`; returns the removed result, or the default one. */
    Result entryDel(Key key) {
        auto const* stored = store_->find(key);
        if (stored == nullptr && !unprogrammed(key)) return Result();
        Result removed{};
        if (stored != nullptr) {
            removed = *stored;
            store_->erase(key);
        }
        programAndPublish(key);
        return removed;
    }

    /** Deletes each key in turn: a write and a notification each. */
    void entryDelAll() {
        for (auto const& key : keys())
            entryDel(key);
    }

    /** The stored result, or the default one. */
    Result entry(Key const& key) const {
        auto const* stored = store_->find(key);
        return stored == nullptr ? Result() : *stored;
    }
    bool entryHas(Key const& key) const { return store_->find(key) != nullptr; }
    /** Pairs of key and result, to walk over, in no order. */
    decltype(auto) entries() const { return store_->entries(); }

    /** Brings hardware in line with the table for one key; nothing before the table is up. */
    virtual void handleEntry(Key const& key) = 0;

    /** Keys whose rows disagreed when the shadow was read back. */
    bool hwInconsistentEntry(Key const& key) const {
        auto const found = hwInconsistentEntry_.find(key);
        return found != hwInconsistentEntry_.end() && found->second;
    }
    Sorn::HashMap<Key, bool> const& hwInconsistentEntries() const { return hwInconsistentEntry_; }
    void hwInconsistentEntryIs(Key const& key, bool inconsistent) {
        auto const [member, isNew] = hwInconsistentEntry_.try_emplace(key, inconsistent);
        if (!isNew && member->second == inconsistent) return;
        member.value() = inconsistent;
        this->publisher().publishChangeRecursive("hwInconsistentEntry", key);
    }
    void hwInconsistentEntryDel(Key key) {
        if (hwInconsistentEntry_.erase(key) == 0) return;
        this->publisher().publishChangeRecursive("hwInconsistentEntry", key);
    }
    void hwInconsistentEntryDelAll() {
        while (!hwInconsistentEntry_.empty())
            hwInconsistentEntryDel(hwInconsistentEntry_.begin()->first);
    }

protected:
    explicit KeyedTable(Belmo::String const& name) : Base(name) {}

    /** Throws `Belmo::RangeException` if the chip at hand has no row for the key. Asked once the table is up.
     */
    virtual void checkKey(Key const&) const {}
    /** Throws `Belmo::RangeException` for an entry that no chip's rows can carry; asked of every new one. */
    virtual void checkEntry(Key const&, Result const&) const {}

    /** The keys of all entries, apart from the map, so that a walk over them may change it. */
    std::vector<Key> keys() const {
        std::vector<Key> all;
        all.reserve(entries().size());
        for (auto const& [key, result] : entries())
            all.push_back(key);
        return all;
    }
    Store const& store() const { return *store_; }
    Store& store() { return *store_; }

private:
    bool unprogrammed(Key const& key) const { return !unprogrammed_.empty() && unprogrammed_.contains(key); }

    void programAndPublish(Key const& key) {
        try {
            handleEntry(key);
        } catch (...) {
            // The table keeps what is wanted, and remembers that hardware does not have it yet.
            unprogrammed_.insert(key);
            this->publisher().publishChangeRecursive("entry", key);
            throw;
        }
        if (!unprogrammed_.empty()) unprogrammed_.erase(key);
        this->publisher().publishChangeRecursive("entry", key);
    }

    Belmo::Ptr<Store> store_ = Belmo::make<Store>();
    Sorn::HashMap<Key, bool> hwInconsistentEntry_;
    std::set<Key> unprogrammed_;
};

}  // namespace NerioSwitchTable
