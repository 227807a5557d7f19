#pragma once

#include <utility>

#include "Belmo/Assert.h"
#include "NerioSwitchApi/HashTable.h"
#include "Sorn/Text.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTableEntries.h"
#include "NerioSwitchTable/NerioTableHashRecords.h"

/*
 * The HASH shape: a key has no fixed row. The table keeps the wanted results, one cached item per key that
 * carries it through the cuckoo table, and a status per key that says whether it found a place and when it
 * was last hit. An entry that finds no place stays wanted.
 */
namespace NerioSwitchTable {

/** What an agent may read back of each key; published on change. Outlives its table as it was then. */
template <class Item, class EntryStatus>
class HashTableStatus : public Belmo::Node {
public:
    using Key = typename Item::Key;
    using Records = HashRecords<Item, EntryStatus>;

    HashTableStatus(Belmo::Ptr<Records> records, Belmo::Publisher& publisher)
        : records_(std::move(records)), publisher_(&publisher) {}

    /** Stores a record under its key; an equal one publishes nothing. */
    void entryStatusIs(EntryStatus const& status) {
        if (records_->statusIs(status)) publish(status.key());
    }
    /** The same for the key of a cached item, which the caller holds. */
    void entryStatusIs(Item& item, EntryProgrammedStatus status) {
        if (records_->statusIs(item, status)) publish(item.key());
    }
    void entryStatusDel(Item& item) {
        if (records_->statusDel(item)) publish(item.key());
    }
    /** Removes the key's record and returns it, or the default one. */
    EntryStatus entryStatusDel(Key key) {
        EntryStatus const removed = records_->status(key);
        if (records_->statusDel(key)) publish(key);
        return removed;
    }
    void entryStatusDelAll() {
        while (!entryStatuses().empty())
            entryStatusDel((*entryStatuses().begin()).key());
    }
    /** The key's record; the default one, with a default key, for an absent key. */
    EntryStatus entryStatus(Key const& key) const { return records_->status(key); }
    bool entryStatusHas(Key const& key) const { return records_->hasStatus(key); }
    /** The records, to walk over, in no order. */
    auto entryStatuses() const { return records_->statuses(); }

    /** The table is gone: what is written from now on is told to nobody. */
    void publisherDel() { publisher_ = nullptr; }

private:
    void publish(Key const& key) {
        if (publisher_ != nullptr) publisher_->publishChangeRecursive("entryStatus", key);
    }

    Belmo::Ptr<Records> records_;
    Belmo::Publisher* publisher_;
};

/**
 * A hash software table. `Item` is the family's cuckoo entry, `EntryStatus` its status record with the
 * attributes `key`, `status` and `lastHit`. A family says how an item is made, and its class name for traces.
 * Whether an entry found a place is told by `tableStatus`.
 */
template <class ItemType, class EntryStatus>
class HashTable : public KeyedTable<NerioSwitchApi::HashBaseTable, HashRecords<ItemType, EntryStatus>> {
public:
    using Item = ItemType;
    using Key = typename Item::Key;
    using Result = typename Item::Result;
    using Records = HashRecords<Item, EntryStatus>;
    using Keyed = KeyedTable<NerioSwitchApi::HashBaseTable, Records>;
    using Status = HashTableStatus<Item, EntryStatus>;
    using HashItem = Dovra::Cuckoo::HashItem;
    using Ptr = NerioSwitchApi::HashBaseTable::Ptr;
    using PtrConst = NerioSwitchApi::HashBaseTable::PtrConst;

    ~HashTable() override {
        this->store().makerDel();
        if (tableStatus_) tableStatus_->publisherDel();
    }

    /** The item of a key; null if there is none. */
    Belmo::Ptr<Item> cachedItem(Key const& key) const { return this->store().item(key); }
    void cachedItemIs(Belmo::Ptr<Item> const& item) { this->store().itemIs(item); }
    void cachedItemDel(Key const& key) { this->store().itemDel(key); }
    void cachedItemDelAll() { this->store().itemDelAll(); }
    std::size_t cachedItems() const { return this->store().items(); }

    /** The key's item, made if it is missing; or, not cached, a new one that no map remembers. */
    virtual Belmo::Ptr<Item> createHashEntry(Key const& key, bool cached) {
        return cached ? this->store().itemIs(key) : newItem(key);
    }

    Belmo::Ptr<Status> const& tableStatus() const { return tableStatus_; }
    void tableStatusIs() {
        if (tableStatus_) return;
        tableStatus_ = Belmo::make<Status>(Belmo::Ptr<Records>(&this->store()), this->publisher());
        this->publisher().publishChangeRecursive("tableStatus");
    }
    void tableStatusDel() {
        if (!tableStatus_) return;
        tableStatus_->entryStatusDelAll();
        tableStatus_->publisherDel();
        tableStatus_ = nullptr;
        this->publisher().publishChangeRecursive("tableStatus");
    }

    /** Brings hardware and status in line with the table for one key; nothing before the table is up. */
    void handleEntry(Key const& key) override {
        if (this->initialized()) program(key);
    }

    void handleAllEntries() override {
        for (auto const& key : this->keys())
            program(key);
    }
    void doInitStatus() override {
        this->store().makerIs([this](Key const& key) {
            auto item = newItem(key);
            item->tableIs(this);
            return item;
        });
        auto const& convertor = *this->hashConvertor();
        this->store().reserve(std::size_t{convertor.tableSize()} * convertor.numHashTables());
        tableStatusIs();
    }
    bool entryHasByHashItem(PtrConst const& item) const override { return this->entryHas(cast(item).key()); }
    void entryIsByHashItem(PtrConst const& item) override {
        auto const& hashItem = &cast(item);
        BELMO_ASSERT(hashItem->valid());
        SORN_TRACE(trace(), 8, "entryIsByHashItem {}", hashItem->toStrep());
        tableStatus_->entryStatusIs(EntryStatus().keyIs(hashItem->key()).lastHitIs(hashItem->lastHit()));
        this->entryIs(hashItem->key(), hashItem->result());
    }
    bool entryEqualByHashItem(PtrConst const& item) const override {
        auto const* wanted = this->store().find(cast(item).key());
        return wanted != nullptr && *wanted == cast(item).result();
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
    /** An item that is not cached, such as one decoded from an empty row, ends alone: its key may be
     * another's.
     */
    void hashItemDelFromHashItem(PtrConst const& item) override {
        // A reference to an item that nobody may change is the framework's way to say which one it means.
        this->store().itemDel(const_cast<Item&>(cast(item)));  // NOLINT
    }

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
    explicit HashTable(Belmo::String const& name) : Keyed(name) {}

    /** A new item of the key, with the default result, for the profile that the table is attached to. */
    virtual Belmo::Ptr<Item> newItem(Key const& key) const = 0;
    /** The class's name, which tags what is traced as programmed. */
    virtual char const* className() const = 0;
    virtual Sorn::TraceHandle const& trace() const = 0;

private:
    static Item const& cast(PtrConst const& item) { return static_cast<Item const&>(*item); }

    /** The order of these steps is fixed: the counter must see the item's old result. */
    void program(Key const& key) {
        SORN_TRACE(trace(), 8, "handleEntry {}", Sorn::text(key));
        Ptr const hashItem = createHashEntry(key, true);
        auto& item = static_cast<Item&>(*hashItem);
        if (Records::hasStatus(item)) {
            SORN_TRACE(trace(), 8, "entry has status: {}", Sorn::text(Records::status(item)));
        } else {
            SORN_TRACE(trace(), 8, "entry has no status");
        }
        bool const wasProgrammed = Records::status(item) == EntryProgrammedStatus::entryProgrammed;
        auto& convertor = *this->hashConvertor();
        if (wasProgrammed) convertor.updateHashEntryCounter(hashItem, false);
        auto const* wanted = Records::wanted(item);
        item.resultIs(wanted != nullptr ? *wanted : Result());
        item.validIs(wanted != nullptr);
        if (wanted != nullptr) {
            SORN_TRACE(trace(), 6, "{}: Programming Entry {}", className(), item.toStrep());
            tableStatus_->entryStatusIs(item, convertor.handleHashEntry(hashItem)
                                                  ? EntryProgrammedStatus::entryProgrammed
                                                  : EntryProgrammedStatus::entryProgrammingFailed);
        } else {
            SORN_TRACE(trace(), 6, "{}: Removing Entry {}", className(), item.toStrep());
            if (wasProgrammed) {
                bool const success = convertor.handleHashEntry(hashItem);
                BELMO_ASSERT(success);
            }
            tableStatus_->entryStatusDel(item);
        }
    }

    Belmo::Ptr<Status> tableStatus_;
};

}  // namespace NerioSwitchTable
