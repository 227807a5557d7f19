#pragma once

#include "NerioSwitchTable/NerioTableDirect.h"

/* Direct tables that keep a status per key: when the key's row was hit last. */
namespace NerioSwitchTable {

/** What an agent may read back of each key; published on change. Outlives its table as it was then. */
template <class EntryStatusType>
class DirectTableStatus : public Belmo::Node {
public:
    using EntryStatus = EntryStatusType;
    using Key = std::remove_cvref_t<decltype(EntryStatus().key())>;

    explicit DirectTableStatus(Belmo::Publisher& publisher) : publisher_(&publisher) {}

    /** Stores a record under its key; an equal one publishes nothing. */
    void entryStatusIs(EntryStatus const& status) {
        auto const [member, isNew] = records_.try_emplace(status.key(), status);
        if (!isNew && member->second == status) return;
        member.value() = status;
        publish(status.key());
    }
    /** Removes the key's record and returns it, or the default one. */
    EntryStatus entryStatusDel(Key key) {
        auto const removed = entryStatus(key);
        if (records_.erase(key) != 0) publish(key);
        return removed;
    }
    void entryStatusDelAll() {
        while (!records_.empty())
            entryStatusDel(records_.begin()->first);
    }
    /** The key's record; the default one, with a default key, for an absent key. */
    EntryStatus entryStatus(Key const& key) const {
        auto const found = records_.find(key);
        return found == records_.end() ? EntryStatus() : found->second;
    }
    bool entryStatusHas(Key const& key) const { return records_.contains(key); }
    /** The records, in no order. */
    std::vector<EntryStatus> entryStatuses() const {
        std::vector<EntryStatus> all;
        all.reserve(records_.size());
        for (auto const& [key, status] : records_)
            all.push_back(status);
        return all;
    }

    /** The table is gone: what is written from now on is told to nobody. */
    void publisherDel() { publisher_ = nullptr; }

private:
    void publish(Key const& key) {
        if (publisher_ != nullptr) publisher_->publishChangeRecursive("entryStatus", key);
    }

    Sorn::HashMap<Key, EntryStatus> records_;
    Belmo::Publisher* publisher_;
};

/** A direct table with status. `EntryStatus` is the family's record, with `key` and `lastHit`. */
template <class EntryType, class EntryStatus>
class DirectStatusTable : public DirectTable<EntryType> {
public:
    using Entry = EntryType;
    using Key = typename Entry::Key;
    using Status = DirectTableStatus<EntryStatus>;

    ~DirectStatusTable() override {
        if (tableStatus_) tableStatus_->publisherDel();
    }

    Belmo::Ptr<Status> const& tableStatus() const { return tableStatus_; }
    void tableStatusIs() {
        if (tableStatus_) return;
        tableStatus_ = Belmo::make<Status>(this->publisher());
        this->publisher().publishChangeRecursive("tableStatus");
    }
    void tableStatusDel() {
        if (!tableStatus_) return;
        tableStatus_->entryStatusDelAll();
        tableStatus_->publisherDel();
        tableStatus_ = nullptr;
        this->publisher().publishChangeRecursive("tableStatus");
    }

    /** Makes the status object, with a record for each key that was wanted before. */
    void doInitDirectTable() override {
        tableStatusIs();
        tableStatus_->entryStatusDelAll();
        for (auto const& key : this->keys())
            tableStatus_->entryStatusIs(EntryStatus().keyIs(key));
    }

    /** The row of the key was seen hit at that time; of several times the latest counts. */
    void lastHitIs(Key const& key, Belmo::Duration time) {
        if (!this->entryHas(key)) {
            SORN_TRACE(this->trace(), 8, "SW table has no entry for key {}. Ignoring.", Sorn::text(key));
            return;
        }
        auto const last = tableStatus_->entryStatus(key).lastHit();
        auto const latest = last.isNever() || last < time ? time : last;
        SORN_TRACE(this->trace(), 8, "key: {} new hit time: {}", Sorn::text(key), latest.seconds());
        tableStatus_->entryStatusIs(EntryStatus().keyIs(key).lastHitIs(latest));
    }

protected:
    using DirectTable<Entry>::DirectTable;

    void handleStatus(Key const& key, bool isEntry) override {
        if (!isEntry) {
            tableStatus_->entryStatusDel(key);
        } else if (!tableStatus_->entryStatusHas(key)) {
            tableStatus_->entryStatusIs(EntryStatus().keyIs(key));
        }
    }
    void handleStatusFromItem(Entry const& item) override {
        tableStatus_->entryStatusIs(EntryStatus().keyIs(item.key()).lastHitIs(item.lastHit()));
    }

private:
    Belmo::Ptr<Status> tableStatus_;
};

}  // namespace NerioSwitchTable
