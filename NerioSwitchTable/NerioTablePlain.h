#pragma once

#include <set>
#include <utility>
#include <vector>

#include "Belmo/Exceptions.h"
#include "NerioSwitchApi/SwTable.h"
#include "Sorn/HashMap.h"

/*
 * The PLAIN shape: one row per key, at a computed index, on its own registers or through a control register.
 * A deletion rewrites the row with the default result; nothing deletes a row in hardware.
 */
namespace NerioSwitchTable {

template <class Key, class Result>
class PlainTable;

/** Base of the convertors of plain tables: writes one key's rows wherever they stand. */
template <class Key, class Result>
class PlainConvertor : public NerioSwitchApi::SwTableProfileConvertor {
public:
    using Table = PlainTable<Key, Result>;

    /** Throws `Belmo::RangeException` if the chip at hand has no row for the key. */
    virtual void checkKey(Key const& key) const = 0;
    /** Brings the key's rows in line with a result; writes only what differs from the shadow. */
    virtual void hwTableEntryIs(Key const& key, Result const& result) = 0;

    Table& swTable() const { return *swTable_; }
    void swTableIs(Table& table) { swTable_ = &table; }

private:
    Table* swTable_ = nullptr;
};

/** A plain software table: the map from key to result that an agent wants in hardware. */
template <class KeyType, class ResultType>
class PlainTable : public NerioSwitchApi::SwTable {
public:
    using Key = KeyType;
    using Result = ResultType;
    using Convertor = PlainConvertor<Key, Result>;

    /**
     * Wants `result` at `key`. An equal result has no effect at all. Once the table is up, hardware holds the
     * result when this returns. A key without a row is refused with `Belmo::RangeException` before anything
     * is stored; after a failure of the bus the table keeps the result, and the same call tries again.
     */
    void entryIs(Key const& key, Result const& result) {
        auto const found = entry_.find(key);
        if (found != entry_.end() && found->second == result && !unprogrammed(key)) return;
        if (auto* const live = liveConvertor()) live->checkKey(key);
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
        Result removed;
        if (found != entry_.end()) {
            removed = std::move(found.value());
            entry_.erase(found);
        }
        programAndPublish(key);
        return removed;
    }

    /** Deletes each key in turn: a write and a notification each. */
    void entryDelAll() {
        std::vector<Key> keys;
        keys.reserve(entry_.size());
        for (auto const& [key, result] : entry_)
            keys.push_back(key);
        for (auto const& key : keys)
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
    virtual void handleEntry(Key const& key) {
        if (auto* const live = liveConvertor()) live->hwTableEntryIs(key, entry(key));
    }

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
        publisher().publishChangeRecursive("hwInconsistentEntry", key);
    }
    void hwInconsistentEntryDel(Key key) {
        if (hwInconsistentEntry_.erase(key) != 0)
            publisher().publishChangeRecursive("hwInconsistentEntry", key);
    }
    void hwInconsistentEntryDelAll() {
        while (!hwInconsistentEntry_.empty())
            hwInconsistentEntryDel(hwInconsistentEntry_.begin()->first);
    }

    void doSetProfileConvertor(Belmo::Ptr<NerioSwitchApi::SwTableTypes> const& types) final {
        auto const convertor = profileConvertorFactory();
        convertor->typesAre(*types);
        convertor->profileIs(profile());
        convertor->swTableIs(*this);
        convertor_ = convertor.get();
        profileConvertorPtrIs(convertor);
    }

protected:
    using SwTable::SwTable;

    /** A new convertor: the family's one concrete class. */
    virtual Belmo::Ptr<Convertor> profileConvertorFactory() const = 0;

private:
    /** The convertor once changes are to reach hardware; null before. */
    Convertor* liveConvertor() const { return initialized() ? convertor_ : nullptr; }
    bool unprogrammed(Key const& key) const { return !unprogrammed_.empty() && unprogrammed_.contains(key); }

    void programAndPublish(Key const& key) {
        try {
            handleEntry(key);
        } catch (...) {
            // The table keeps what is wanted, and remembers that hardware does not have it yet.
            unprogrammed_.insert(key);
            publisher().publishChangeRecursive("entry", key);
            throw;
        }
        if (!unprogrammed_.empty()) unprogrammed_.erase(key);
        publisher().publishChangeRecursive("entry", key);
    }

    Sorn::HashMap<Key, Result> entry_;
    Sorn::HashMap<Key, bool> hwInconsistentEntry_;
    std::set<Key> unprogrammed_;
    Convertor* convertor_ = nullptr;
};

}  // namespace NerioSwitchTable
