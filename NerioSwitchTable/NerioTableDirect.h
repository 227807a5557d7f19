#pragma once

#include <utility>

#include "Belmo/Assert.h"
#include "Sorn/Text.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/DirectTable.h"
#include "NerioSwitchTable/NerioTableEntries.h"

/*
 * The DIRECT shape: each key has a row of its own, at an index that follows from the key and leads back to
 * it. A row without an entry holds the null entry. A family says its entry (key, result, text), its table
 * (names), and its convertor (registers, layout, index).
 */
namespace NerioSwitchTable {

/** A direct item of a family, which adds its text. */
template <class KeyType, class ResultType>
class DirectEntry : public DirectBaseEntry {
public:
    using Key = KeyType;
    using Result = ResultType;

    Key const& key() const { return key_; }
    Result const& result() const { return result_; }
    void resultIs(Result result) { result_ = std::move(result); }

protected:
    explicit DirectEntry(Key key) : key_(std::move(key)) {}

    /** "Name( key result )" */
    Belmo::String namedText(char const* name) const {
        return fmt::format("{}( {} {} )", name, Sorn::text(key_), result_.resultString());
    }

private:
    template <class>
    friend class DirectItems;

    void reset(Key const& key) {
        key_ = key;
        result_ = Result();
        this->validIs(false);
    }

    Key key_;
    Result result_{};
};

/** Makes the items of a table. One that nobody holds any more is used again, so that rows cost no memory. */
template <class Entry>
class DirectItems {
public:
    Belmo::Ptr<Entry> item(typename Entry::Key const& key) const {
        if (last_ && last_->references() == 1) {
            last_->reset(key);
        } else {
            last_ = Belmo::make<Entry>(key);
        }
        return last_;
    }

private:
    mutable Belmo::Ptr<Entry> last_;
};

/** A direct software table. `Entry` is the family's item; a family names its class and its trace. */
template <class EntryType>
class DirectTable
    : public KeyedTable<DirectBaseTable, EntryMap<typename EntryType::Key, typename EntryType::Result>> {
public:
    using Entry = EntryType;
    using Key = typename Entry::Key;
    using Result = typename Entry::Result;
    using Keyed = KeyedTable<DirectBaseTable, EntryMap<Key, Result>>;
    using Ptr = DirectBaseTable::Ptr;
    using PtrConst = DirectBaseTable::PtrConst;

    /** An entry with the default result leaves its row as if there were none. */
    static constexpr bool defaultIsEmpty = true;

    void handleEntry(Key const& key) override {
        if (!this->initialized()) return;
        auto const item = itemOf(key);
        handleStatus(key, item->valid());
        SORN_TRACE(trace(), 6, "{}: Programming Entry {}", className(), item->toStrep());
        this->handleDirectEntry(item, static_cast<U32>(this->entries().size()));
    }

    bool entryHasByDirectItem(PtrConst const& item) const override {
        return this->entryHas(cast(item).key());
    }
    void entryIsByDirectItem(PtrConst const& item) override {
        BELMO_ASSERT(item->valid());
        handleStatusFromItem(cast(item));
        this->entryIs(cast(item).key(), cast(item).result());
    }
    bool entryEqualByDirectItem(PtrConst const& item) const override {
        auto const* wanted = this->store().find(cast(item).key());
        return wanted != nullptr && *wanted == cast(item).result();
    }
    bool updateDirectItem(Ptr const& item) const override {
        auto& target = static_cast<Entry&>(*item);
        auto const* wanted = this->store().find(target.key());
        if (wanted == nullptr || target.result() == *wanted) return false;
        target.resultIs(*wanted);
        return true;
    }
    bool hwInconsistentEntryFromDirectItem(PtrConst const& item) const override {
        return this->hwInconsistentEntry(cast(item).key());
    }
    void hwInconsistentEntryDelFromDirectItem(PtrConst const& item) override {
        this->hwInconsistentEntryDel(cast(item).key());
    }

    virtual Sorn::TraceHandle const& trace() const = 0;

protected:
    explicit DirectTable(Belmo::String const& name) : Keyed(name) {}

    /** The class's name, which tags what is traced as programmed. */
    virtual char const* className() const = 0;
    /** The key is to be programmed: as an entry, or as none. For tables with status. */
    virtual void handleStatus(Key const& /*key*/, bool /*isEntry*/) {}
    /** The item was found in hardware. For tables with status. */
    virtual void handleStatusFromItem(Entry const& /*item*/) {}

    void checkKey(Key const& key) const override { this->directConvertor()->checkItem(itemOf(key)); }

private:
    static Entry const& cast(PtrConst const& item) { return static_cast<Entry const&>(*item); }

    Belmo::Ptr<Entry> itemOf(Key const& key) const {
        auto item = items_.item(key);
        auto const* wanted = this->store().find(key);
        if (wanted != nullptr) item->resultIs(*wanted);
        item->validIs(wanted != nullptr);
        return item;
    }

    DirectItems<Entry> items_;
};

/**
 * Convertor of a direct table. `Convertor` is the family's class itself, with `hwIndexFromKey(key)` and its
 * inverse `keyFromHwIndex(index)`, which throws the key type's range failure for a row beyond it.
 */
template <class Convertor, class TableType>
class DirectConvertor : public DirectBaseConvertor {
public:
    using Table = TableType;
    using Entry = typename Table::Entry;

    HwIndex hwIndexFromItem(PtrConst const& item) const override {
        return family().hwIndexFromKey(cast(item).key());
    }
    void setHwBuffer(PtrConst const& item, Sorn::BytePtr buffer) const override {
        encode(cast(item), reinterpret_cast<U32*>(buffer));
        setStaticBuffer(hwIndexFromItem(item), buffer);
    }
    Ptr nullDirectEntry(HwIndex index) const override { return newItem(index); }
    Ptr decodeHwEntry(HwIndex index) override {
        auto const words = storedWords(index);
        auto item = newItem(index);
        decode(words.data(), *item);
        if (item->valid()) SORN_TRACE(table().trace(), 7, "Decoded entry is {}", item->toStrep());
        if ((item->valid() || comparesEmptyRows()) && copiesDiffer(index, words))
            table().hwInconsistentEntryIs(item->key(), true);
        return item;
    }

protected:
    using DirectBaseConvertor::DirectBaseConvertor;

    /** Lays key and result out in zeroed words, but for what `setStaticBuffer` writes. */
    virtual void encode(Entry const& item, U32* words) const = 0;
    /** Gives an item of the row's key the result of these words, and says whether it is valid. */
    virtual void decode(U32 const* words, Entry& item) const = 0;
    /** Whether a row that decodes as not valid marks its key, too, where copies disagree. */
    virtual bool comparesEmptyRows() const { return true; }

    Table& table() const { return static_cast<Table&>(swTable()); }

private:
    static Entry const& cast(PtrConst const& item) { return static_cast<Entry const&>(*item); }
    Convertor const& family() const { return static_cast<Convertor const&>(*this); }
    Belmo::Ptr<Entry> newItem(HwIndex index) const { return items_.item(family().keyFromHwIndex(index)); }

    DirectItems<Entry> items_;
};

}  // namespace NerioSwitchTable
