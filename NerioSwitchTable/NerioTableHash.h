#pragma once

#include <array>
#include <utility>

#include "Belmo/Assert.h"
#include "NerioSwitchApi/HashTable.h"
#include "Sorn/HashMap.h"
#include "Sorn/Text.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTableEntries.h"

/*
 * The HASH shape: a key has no fixed row. The table keeps the wanted results, one cached item per key that
 * carries it through the cuckoo table, and a status per key that says whether it found a place and when it
 * was last hit. An entry that finds no place stays wanted.
 */
namespace NerioSwitchTable {

using NerioSwitchApi::EntryProgrammedStatus;

/** What an agent may read back of each key; published on change. */
template <class Key, class EntryStatus>
class HashTableStatus : public Belmo::Node {
public:
    explicit HashTableStatus(Belmo::Publisher& publisher) : publisher_(publisher) {}

    /** Stores a record under its key; an equal one publishes nothing. */
    void entryStatusIs(EntryStatus const& status) {
        auto const [member, isNew] = entryStatus_.try_emplace(status.key(), status);
        if (!isNew && member->second == status) return;
        member.value() = status;
        publisher_.publishChangeRecursive("entryStatus", status.key());
    }
    /** Removes the key's record and returns it, or the default one. */
    EntryStatus entryStatusDel(Key key) {
        auto const found = entryStatus_.find(key);
        if (found == entryStatus_.end()) return EntryStatus();
        EntryStatus const removed = found->second;
        entryStatus_.erase(found);
        publisher_.publishChangeRecursive("entryStatus", key);
        return removed;
    }
    void entryStatusDelAll() {
        while (!entryStatus_.empty())
            entryStatusDel(entryStatus_.begin()->first);
    }
    /** The key's record; the default one, with a default key, for an absent key. */
    EntryStatus entryStatus(Key const& key) const {
        auto const found = entryStatus_.find(key);
        return found == entryStatus_.end() ? EntryStatus() : found->second;
    }
    bool entryStatusHas(Key const& key) const { return entryStatus_.contains(key); }
    Sorn::HashMap<Key, EntryStatus> const& entryStatuses() const { return entryStatus_; }

private:
    Belmo::Publisher& publisher_;
    Sorn::HashMap<Key, EntryStatus> entryStatus_;
};

/** What the chip hashes of a key: its first `bits` bits, of which bit i is bit i % 8 of byte i / 8. */
struct HashInput {
    std::array<U8, 20> bytes{};
    U8 bits = 0;
};

/** An item of a hash table: the key and a copy of the result. A family adds the hash and its text. */
template <class KeyType, class ResultType>
class HashTableItem : public NerioSwitchApi::HashBaseCuckooEntry {
public:
    using Key = KeyType;
    using Result = ResultType;

    Key const& key() const { return key_; }
    Result const& result() const { return result_; }
    void resultIs(Result const& result) { result_ = result; }

    bool isEqual(Belmo::Ptr<Dovra::Cuckoo::HashItem const> const& other) const override {
        return static_cast<HashTableItem const&>(*other).key() == key_;
    }
    /** What `getHash` hashes; for tools, so that a row can be worked out by other means. */
    virtual HashInput hashInput() const = 0;

protected:
    explicit HashTableItem(Key key) : key_(std::move(key)) {}

private:
    Key key_;
    Result result_{};
};

/**
 * A hash software table. `Item` is the family's cuckoo entry, `EntryStatus` its status record with the
 * attributes `key`, `status` and `lastHit`. A family says how an item is made, and its class name for traces.
 * Whether an entry found a place is told by `tableStatus`.
 */
template <class ItemType, class EntryStatus>
class HashTable
    : public KeyedTable<NerioSwitchApi::HashBaseTable, typename ItemType::Key, typename ItemType::Result> {
public:
    using Item = ItemType;
    using Key = typename Item::Key;
    using Result = typename Item::Result;
    using Keyed = KeyedTable<NerioSwitchApi::HashBaseTable, Key, Result>;
    using Status = HashTableStatus<Key, EntryStatus>;
    using HashItem = Dovra::Cuckoo::HashItem;
    using Ptr = NerioSwitchApi::HashBaseTable::Ptr;
    using PtrConst = NerioSwitchApi::HashBaseTable::PtrConst;

    /** The item of a key; null if there is none. */
    Belmo::Ptr<Item> cachedItem(Key const& key) const {
        auto const found = cachedItem_.find(key);
        return found == cachedItem_.end() ? nullptr : found->second;
    }
    void cachedItemIs(Belmo::Ptr<Item> const& item) { cachedItem_[item->key()] = item; }
    void cachedItemDel(Key const& key) { cachedItem_.erase(key); }
    void cachedItemDelAll() { cachedItem_.clear(); }
    std::size_t cachedItems() const { return cachedItem_.size(); }

    /** The key's item, made if it is missing; or, not cached, a new one that no map remembers. */
    Belmo::Ptr<Item> createHashEntry(Key const& key, bool cached) {
        if (!cached) return newItem(key);
        if (auto const found = cachedItem_.find(key); found != cachedItem_.end()) return found->second;
        auto item = newItem(key);
        item->tableIs(this);
        cachedItem_.emplace(key, item);
        return item;
    }

    Belmo::Ptr<Status> const& tableStatus() const { return tableStatus_; }
    void tableStatusIs() {
        if (!tableStatus_) tableStatus_ = Belmo::make<Status>(this->publisher());
    }
    void tableStatusDel() { tableStatus_ = nullptr; }

    /** Brings hardware and status in line with the table for one key; nothing before the table is up. */
    void handleEntry(Key const& key) override {
        if (this->initialized()) program(key);
    }

    void handleAllEntries() override {
        for (auto const& key : this->keys())
            program(key);
    }
    void doInitStatus() override { tableStatusIs(); }
    bool entryHasByHashItem(PtrConst const& item) const override { return this->entryHas(cast(item).key()); }
    void entryIsByHashItem(PtrConst const& item) override {
        auto const& hashItem = &cast(item);
        BELMO_ASSERT(hashItem->valid());
        SORN_TRACE(trace(), 8, "entryIsByHashItem {}", hashItem->toStrep());
        tableStatus_->entryStatusIs(EntryStatus().keyIs(hashItem->key()).lastHitIs(hashItem->lastHit()));
        this->entryIs(hashItem->key(), hashItem->result());
    }
    bool entryEqualByHashItem(PtrConst const& item) const override {
        auto const found = this->entries().find(cast(item).key());
        return found != this->entries().end() && found->second == cast(item).result();
    }
    Ptr cachedCuckooEntry(Belmo::Ptr<HashItem const> const& item) override {
        return cachedItem(static_cast<Item const&>(*item).key());
    }
    bool updateHashItem(Ptr const& item) const override {
        auto& target = static_cast<Item&>(*item);
        auto const wanted = this->entry(target.key());
        if (target.result() == wanted) return false;
        target.resultIs(wanted);
        return true;
    }
    bool hwInconsistentEntryFromHashItem(PtrConst const& item) const override {
        return this->hwInconsistentEntry(cast(item).key());
    }
    bool hwInconsistentEntryDelFromHashItem(PtrConst const& item) override {
        this->hwInconsistentEntryDel(cast(item).key());
        return true;
    }
    void hashItemDelFromHashItem(PtrConst const& item) override { cachedItemDel(cast(item).key()); }

    void lastHitByHashItemIs(Belmo::Ptr<HashItem const> const& hit, Belmo::Duration time) override {
        auto const item = cachedItem(static_cast<Item const&>(*hit).key());
        if (!item) return;
        SORN_TRACE(trace(), 8, "lastHitByHashItemIs {} time: {}", item->toStrep(), time.seconds());
        if (!item->valid()) return;
        auto status = tableStatus_->entryStatus(item->key());
        BELMO_ASSERT(item->lastHit() == status.lastHit());
        auto const last = status.lastHit();
        status.lastHitIs(last.isNever() || last < time ? time : last);
        item->lastHitIs(status.lastHit());
        tableStatus_->entryStatusIs(status.keyIs(item->key()));
    }

protected:
    using Keyed::Keyed;

    virtual Belmo::Ptr<Item> newItem(Key const& key) const = 0;
    /** The class's name, which tags what is traced as programmed. */
    virtual char const* className() const = 0;
    virtual Sorn::TraceHandle const& trace() const = 0;

private:
    static Item const& cast(PtrConst const& item) { return static_cast<Item const&>(*item); }

    /** The order of these steps is fixed: the counter must see the item's old result. */
    void program(Key const& key) {
        SORN_TRACE(trace(), 8, "handleEntry {}", Sorn::text(key));
        bool const hasStatus = tableStatus_->entryStatusHas(key);
        auto status = tableStatus_->entryStatus(key);
        if (hasStatus) {
            SORN_TRACE(trace(), 8, "entry has status: {}", Sorn::text(status.status()));
        } else {
            SORN_TRACE(trace(), 8, "entry has no status");
            status.keyIs(key);
        }
        bool const wasProgrammed = status.status() == EntryProgrammedStatus::entryProgrammed;
        auto const item = createHashEntry(key, true);
        if (wasProgrammed) this->hashConvertor()->updateHashEntryCounter(item, false);
        auto const found = this->entries().find(key);
        bool const isWanted = found != this->entries().end();
        item->resultIs(isWanted ? found->second : Result());
        item->validIs(isWanted);
        if (isWanted) {
            SORN_TRACE(trace(), 6, "{}: Programming Entry {}", className(), item->toStrep());
            bool const success = this->hashConvertor()->handleHashEntry(item);
            tableStatus_->entryStatusIs(status.statusIs(success
                                                            ? EntryProgrammedStatus::entryProgrammed
                                                            : EntryProgrammedStatus::entryProgrammingFailed));
        } else {
            SORN_TRACE(trace(), 6, "{}: Removing Entry {}", className(), item->toStrep());
            if (wasProgrammed) {
                bool const success = this->hashConvertor()->handleHashEntry(item);
                BELMO_ASSERT(success);
            }
            tableStatus_->entryStatusDel(key);
        }
    }

    Sorn::HashMap<Key, Belmo::Ptr<Item>> cachedItem_;
    Belmo::Ptr<Status> tableStatus_;
};

}  // namespace NerioSwitchTable
