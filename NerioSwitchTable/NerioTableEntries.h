#pragma once

#include <cstddef>
#include <set>
#include <utility>
#include <vector>

#include "Sorn/HashMap.h"

/* What the software tables of all shapes share: the maps that an agent talks to. */
namespace NerioSwitchTable {

/** A software table that keeps a result per key. `Base` is the framework's base of the shape. */
template <class Base, class KeyType, class ResultType>
class KeyedTable : public Base {
public:
    using Key = KeyType;
    using Result = ResultType;

    /**
     * Wants `result` at `key`. An equal result has no effect at all. Once the table is up, hardware is in
     * line when this returns. A key that the chip has no row for is refused with `Belmo::RangeException`
     * before anything is stored; after a failure of the bus the table keeps the result, and the same call
     * tries again.
     */
    void entryIs(Key const& key, Result const& result) {
        auto const found = entry_.find(key);
        if (found != entry_.end() && found->second == result && !unprogrammed(key)) return;
        if (this->initialized()) checkKey(key);
        if (found != entry_.end()) {
            found.value() = result;
        } else {
            entry_.emplace(key, result);
        }
        programAndPublish(key);
    }

    /** Wants no entry at `key`; returns the removed result, or the default one. */
    Result entryDel(Key key) {
        auto const found = entry_.find(key);
        if (found == entry_.end() && !unprogrammed(key)) return Result();
        Result removed{};
        if (found != entry_.end()) {
            removed = std::move(found.value());
            entry_.erase(found);
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
        auto const found = entry_.find(key);
        return found == entry_.end() ? Result() : found->second;
    }
    bool entryHas(Key const& key) const { return entry_.contains(key); }
    Sorn::HashMap<Key, Result> const& entries() const { return entry_; }

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
    using Base::Base;

    /** Throws `Belmo::RangeException` if the chip at hand has no row for the key. Asked once the table is up.
     */
    virtual void checkKey(Key const&) const {}

    /** The keys of all entries, apart from the map, so that a walk over them may change it. */
    std::vector<Key> keys() const {
        std::vector<Key> all;
        all.reserve(entry_.size());
        for (auto const& [key, result] : entry_)
            all.push_back(key);
        return all;
    }

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

    Sorn::HashMap<Key, Result> entry_;
    Sorn::HashMap<Key, bool> hwInconsistentEntry_;
    std::set<Key> unprogrammed_;
};

}  // namespace NerioSwitchTable
