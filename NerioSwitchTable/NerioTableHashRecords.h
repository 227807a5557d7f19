#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "Belmo/Assert.h"
#include "NerioSwitchApi/HashTable.h"
#include "Sorn/HashMap.h"

/*
 * What a hash table knows of its keys. Agents and the framework see three maps by key: the wanted results,
 * the cached items, and the status records. All three live in one node per key, the item itself, so that a
 * new key costs one allocation, and a call that goes through all three looks its key up once.
 */
namespace NerioSwitchTable {

using NerioSwitchApi::EntryProgrammedStatus;

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
    /** What `getHash` hashes, for tools to work a row out by other means. Nothing unless a family says. */
    virtual HashInput hashInput() const { return {}; }

protected:
    explicit HashTableItem(Key key) : key_(std::move(key)) {}

private:
    template <class, class>
    friend class HashRecords;

    /** Takes over what the table remembers, from the node that stood for the key so far. */
    void remember(HashTableItem const& old) {
        wanted_ = old.wanted_;
        statusLastHit_ = old.statusLastHit_;
        status_ = old.status_;
        isWanted_ = old.isWanted_;
        hasStatus_ = old.hasStatus_;
    }

    Key key_;
    Result result_{};
    // What the table remembers under the key. An item that is not cached is none to anybody else.
    Result wanted_{};
    Belmo::Duration statusLastHit_ = Belmo::Duration::never();
    U32 hash_ = 0;
    EntryProgrammedStatus status_ = EntryProgrammedStatus::entryProgrammed;
    bool isWanted_ = false;
    bool isCached_ = false;
    bool hasStatus_ = false;
    /** Stands for a key that was wanted before the table could make its item. */
    bool isPlaceholder_ = false;
};

/** The nodes of all keys that a table knows anything of. `EntryStatus` has `key`, `status` and `lastHit`. */
template <class ItemType, class EntryStatus>
class HashRecords : public Belmo::Node {
public:
    using Item = ItemType;
    using Key = typename Item::Key;
    using Result = typename Item::Result;
    using Record = HashTableItem<Key, Result>;

    /**
     * The table is about to be brought up: from now on `maker` makes the items of keys. Items and statuses of
     * an earlier attempt go.
     */
    void makerIs(std::function<Belmo::Ptr<Item>(Key const&)> maker) {
        maker_ = std::move(maker);
        for (auto const& record : all()) {
            record->isCached_ = record->hasStatus_ = false;
            record->isPlaceholder_ = true;
            forgetIfIdle(*record);
        }
        items_ = statuses_ = 0;
    }

    /** There will be that many keys: while there are no more, no call has to make room for all of them anew.
     */
    void reserve(std::size_t keys) { set_.reserve(keys); }
    /** The table is gone: from now on nobody makes items. */
    void makerDel() { maker_ = nullptr; }

    /** The wanted result of a key; null for none. Holds until the key's entry changes. */
    Result const* find(Key const& key) const {
        auto const* record = recordOf(key);
        return record != nullptr && record->isWanted_ ? &record->wanted_ : nullptr;
    }

    /** Where a key's result is, or would be put. Holds until another key joins or leaves. */
    class Place {
    public:
        /** The key's wanted result; null for none. */
        Result const* result() const {
            return record_ != nullptr && record_->isWanted_ ? &record_->wanted_ : nullptr;
        }

    private:
        friend class HashRecords;
        Place(Record* record, U32 hash) : record_(record), hash_(hash) {}
        Record* record_;
        U32 hash_;
    };
    Place place(Key const& key) const {
        auto* record = recordOf(key);
        return Place(record, record == nullptr ? lastHash_ : record->hash_);
    }
    void put(Place const& place, Key const& key, Result const& result) {
        auto& record = place.record_ != nullptr ? *place.record_ : newRecord(key, place.hash_);
        record.wanted_ = result;
        if (!std::exchange(record.isWanted_, true)) ++wanted_;
    }
    void erase(Key const& key) {
        auto* record = recordOf(key);
        if (record == nullptr || !std::exchange(record->isWanted_, false)) return;
        --wanted_;
        forgetIfIdle(*record);
    }
    /** Pairs of key and result. */
    auto entries() const { return View<WantedEntry>(set_, wanted_); }

    /** The item of a key; null if none is cached. */
    Belmo::Ptr<Item> item(Key const& key) const {
        auto* record = recordOf(key);
        return record != nullptr && record->isCached_ ? static_cast<Item*>(record) : nullptr;
    }
    /** The same, made if it is missing. */
    Belmo::Ptr<Item> itemIs(Key const& key) {
        auto& record = recordIs(key);
        if (record.isCached_) return static_cast<Item*>(&record);
        if (record.isPlaceholder_) {
            auto item = maker_(key);
            itemIs(item);
            return item;
        }
        record.result_ = Result();
        record.validIs(false);
        record.lastHitIs(Belmo::Duration::never());
        record.isCached_ = true;
        ++items_;
        return static_cast<Item*>(&record);
    }
    /** Caches an item under its key, in place of the one that was there. */
    void itemIs(Belmo::Ptr<Item> const& item) {
        Record& record = *item;
        record.hash_ = Sorn::hashOf(item->key());
        auto* old = recordOf(item->key());
        if (old == &record) {
            if (!std::exchange(record.isCached_, true)) ++items_;
            return;
        }
        if (old != nullptr) {
            if (old->isCached_) --items_;
            record.remember(*old);
            remove(*old);
        }
        record.isCached_ = true;
        ++items_;
        set_.insert(item);
    }
    void itemDel(Key const& key) {
        auto* record = recordOf(key);
        if (record == nullptr || !std::exchange(record->isCached_, false)) return;
        --items_;
        forgetIfIdle(*record);
    }
    /** The same for an item that may be cached or not. */
    void itemDel(Item& item) {
        Record& record = item;
        if (!std::exchange(record.isCached_, false)) return;
        --items_;
        forgetIfIdle(record);
    }
    void itemDelAll() {
        for (auto const& record : all())
            itemDel(record->key());
    }
    std::size_t items() const { return items_; }

    /** The wanted result of a cached item's key; null for none. */
    static Result const* wanted(Item const& item) {
        Record const& record = item;
        return record.isWanted_ ? &record.wanted_ : nullptr;
    }
    /** Whether a cached item's key has a status, and which; that of a key without one is the default. */
    static bool hasStatus(Item const& item) { return static_cast<Record const&>(item).hasStatus_; }
    static EntryProgrammedStatus status(Item const& item) {
        Record const& record = item;
        return record.hasStatus_ ? record.status_ : EntryProgrammedStatus::entryProgrammed;
    }
    /** Stores the status of a cached item's key; false if it stood there already. */
    bool statusIs(Item& item, EntryProgrammedStatus status) {
        Record& record = item;
        bool const had = hasStatusIs(record);
        return std::exchange(record.status_, status) != status || !had;
    }
    bool hasStatus(Key const& key) const {
        auto const* record = recordOf(key);
        return record != nullptr && record->hasStatus_;
    }
    /** The key's status record; the default one for a key without. */
    EntryStatus status(Key const& key) const {
        auto const* record = recordOf(key);
        return record != nullptr && record->hasStatus_ ? ShownStatus::of(*record) : EntryStatus();
    }
    /** Stores a status; false if it stood there already. */
    bool statusIs(EntryStatus const& status) {
        auto& record = recordIs(status.key());
        bool const had = hasStatusIs(record);
        if (had && record.status_ == status.status() && record.statusLastHit_ == status.lastHit())
            return false;
        record.status_ = status.status();
        record.statusLastHit_ = status.lastHit();
        return true;
    }
    bool statusDel(Key const& key) {
        auto* record = recordOf(key);
        return record != nullptr && statusDel(*record);
    }
    bool statusDel(Item& item) { return statusDel(static_cast<Record&>(item)); }
    auto statuses() const { return View<ShownStatus>(set_, statuses_); }

private:
    using RecordPtr = Belmo::Ptr<Record>;
    struct Hash {
        std::size_t operator()(RecordPtr const& record) const { return record->hash_; }
        std::size_t operator()(Key const& key) const { return Sorn::hashOf(key); }
    };
    struct Equal {
        using is_transparent = void;
        bool operator()(RecordPtr const& a, RecordPtr const& b) const { return a->key() == b->key(); }
        bool operator()(RecordPtr const& a, Key const& b) const { return a->key() == b; }
        bool operator()(Key const& a, RecordPtr const& b) const { return b->key() == a; }
    };
    using Set = Sorn::HashSet<RecordPtr, Hash, Equal>;

    /** A key that was wanted before the table could make its item; never cached. */
    struct Placeholder final : Record {
        explicit Placeholder(Key const& key) : Record(key) {}
        U32 getHash(U8) const override {
            BELMO_ASSERT_TEXT(false, "a placeholder has no row");
            return 0;
        }
        Belmo::String toStrep() const override { return {}; }
    };

    struct WantedEntry {
        static bool isIn(Record const& record) { return record.isWanted_; }
        static auto of(Record const& record) {
            return std::pair<Key const&, Result const&>(record.key_, record.wanted_);
        }
    };
    struct ShownStatus {
        static bool isIn(Record const& record) { return record.hasStatus_; }
        static EntryStatus of(Record const& record) {
            return EntryStatus().keyIs(record.key_).statusIs(record.status_).lastHitIs(record.statusLastHit_);
        }
    };

    /** What `Shown` makes of each record that is in it, to walk over in no order. */
    template <class Shown>
    class View {
    public:
        using key_type = Key;
        class iterator {
        public:
            iterator(typename Set::const_iterator at, typename Set::const_iterator end) : at_(at), end_(end) {
                skip();
            }
            auto operator*() const { return Shown::of(**at_); }
            iterator& operator++() {
                ++at_;
                skip();
                return *this;
            }
            bool operator==(iterator const& other) const { return at_ == other.at_; }

        private:
            void skip() {
                while (at_ != end_ && !Shown::isIn(**at_))
                    ++at_;
            }
            typename Set::const_iterator at_;
            typename Set::const_iterator end_;
        };

        View(Set const& set, std::size_t size) : set_(set), size_(size) {}
        iterator begin() const { return {set_.begin(), set_.end()}; }
        iterator end() const { return {set_.end(), set_.end()}; }
        std::size_t size() const { return size_; }
        bool empty() const { return size_ == 0; }

    private:
        Set const& set_;
        std::size_t size_;
    };

    Record* recordOf(Key const& key) const {
        if (last_ != nullptr && last_->key_ == key) return last_;
        lastHash_ = Sorn::hashOf(key);
        auto const found = set_.find(key, lastHash_);
        if (found == set_.end()) return nullptr;
        last_ = found->get();
        return last_;
    }
    Record& recordIs(Key const& key) {
        auto* record = recordOf(key);
        return record != nullptr ? *record : newRecord(key, lastHash_);
    }
    Record& newRecord(Key const& key, U32 hash) {
        RecordPtr record;
        if (maker_) {
            record = maker_(key);
        } else {
            record = Belmo::make<Placeholder>(key);
            record->isPlaceholder_ = true;
        }
        record->hash_ = hash;
        last_ = record.get();
        set_.insert(std::move(record));
        return *last_;
    }
    /** Gives the record a status, the default one if it had none; whether it had one. */
    bool hasStatusIs(Record& record) {
        if (std::exchange(record.hasStatus_, true)) return true;
        ++statuses_;
        record.status_ = EntryProgrammedStatus::entryProgrammed;
        record.statusLastHit_ = Belmo::Duration::never();
        return false;
    }
    bool statusDel(Record& record) {
        if (!std::exchange(record.hasStatus_, false)) return false;
        --statuses_;
        forgetIfIdle(record);
        return true;
    }
    void forgetIfIdle(Record& record) {
        if (!record.isWanted_ && !record.isCached_ && !record.hasStatus_) remove(record);
    }
    void remove(Record& record) {
        if (last_ == &record) last_ = nullptr;
        set_.erase(record.key_, record.hash_);
    }
    std::vector<RecordPtr> all() const { return {set_.begin(), set_.end()}; }

    Set set_;
    std::function<Belmo::Ptr<Item>(Key const&)> maker_;
    /** The record that was asked for last; and the hash of the key that was. */
    mutable Record* last_ = nullptr;
    mutable U32 lastHash_ = 0;
    std::size_t wanted_ = 0;
    std::size_t items_ = 0;
    std::size_t statuses_ = 0;
};

}  // namespace NerioSwitchTable
