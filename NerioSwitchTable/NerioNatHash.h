#pragma once

#include "NerioSwitch/Nat.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashConvertor.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"

/* What the tables of address translation share: the parts of rows that mean the same in several of them, and
 * the bases of helpers and convertors. */
namespace NerioSwitchTable {

/** The control word of the layer 4 processor, of whose tables `select` tells which is meant. */
struct NatMatchControl {
    static constexpr U8 word = 4;
    static constexpr U16 first = 32 * word;
    BitField row;
    BitField unused;
    static constexpr BitField way{"way", first + 14, 2};
    static constexpr BitField readStrobe{"readStrobe", first + 16, 1};
    static constexpr BitField writeStrobe{"writeStrobe", first + 17, 1};
    static constexpr BitField select{"select", first + 18, 2};

    constexpr explicit NatMatchControl(U8 rowBits)
        : row{"row", first, rowBits},
          unused{"unused", static_cast<U16>(first + rowBits), static_cast<U8>(14 - rowBits)} {}

    /** Lays out the word that stores a row of that location. */
    void set(Dovra::Cuckoo::CuckooLocation const& location, U32 selected, U32* words) const;
};

/** What both match tables say of a session. */
struct NatMatchResultFields {
    BitField valid;
    BitField proto;
    BitField session;
    BitField parity;
    BitField trapToCpu;
    BitField rewriteIndex;
    BitField l3LagIndex;

    template <class Result>
    void encode(Result const& result, Sorn::TraceHandle const& handle, U32* words) const {
        valid.set(words, result.valid());
        proto.set(words, protoToHwVal(result.proto(), handle));
        session.set(words, result.natSessionId().value());
        trapToCpu.set(words, result.trapToCpu());
        rewriteIndex.set(words, result.rewriteIndex().value());
        l3LagIndex.set(words, result.l3LagIndex().value());
    }
    template <class Result>
    Result decode(U32 const* words) const {
        return Result()
            .validIs(valid.get(words) != 0)
            .protoIs(proto.get(words))
            .natSessionIdIs(session.get(words))
            .trapToCpuIs(trapToCpu.get(words) != 0)
            .rewriteIndexIs(rewriteIndex.get(words))
            .l3LagIndexIs(l3LagIndex.get(words));
    }
    /** Makes the parity of the data words even; all other fields stand already. */
    void setParity(U32* words) const;

private:
    /** The set as two bits; a number that is no set of the two protocols is traced, and holds neither. */
    static U8 protoToHwVal(NerioSwitch::NatL4Proto proto, Sorn::TraceHandle const& handle);
};

/** Base of these tables, each of which belongs to a pipeline. */
template <class ItemType, class EntryStatus>
class NatHashTable : public HashTable<ItemType, EntryStatus> {
public:
    using Base = HashTable<ItemType, EntryStatus>;
    using Item = ItemType;
    using Key = typename Item::Key;

    U8 pipeline() const { return pipeline_; }

    /** The key's item, made if it is missing. */
    virtual Belmo::Ptr<Item> createHashItem(Key const& key) = 0;
    Belmo::Ptr<Item> createHashEntry(Key const& key, bool cached) final {
        return cached ? createHashItem(key) : this->newItem(key);
    }
    /** The key's item; null if there is none. */
    Belmo::Ptr<Item> hashItem(Key const& key) const { return this->cachedItem(key); }
    void hashItemDel(Key const& key) { this->cachedItemDel(key); }
    void hashItemDelAll() { this->cachedItemDelAll(); }

    Sorn::TraceHandle const& trace() const override { return trace_; }

protected:
    NatHashTable(Belmo::String const& name, U8 pipeline, bool hasHitBits, Sorn::TraceHandle const& trace)
        : Base(name), trace_(trace), pipeline_(pipeline) {
        this->statusSupportedIs(true);
        this->hitBitsSupportedIs(hasHitBits);
        this->hwTablesDuplicateIs(true);
    }

    /** The cached item of a key, made if it is missing. */
    Belmo::Ptr<Item> cachedItemMade(Key const& key) { return Base::createHashEntry(key, true); }

private:
    Sorn::TraceHandle const& trace_;
    U8 pipeline_;
};

/** Base of the helpers of these tables. */
template <class Table>
class NatHashHelper : public NerioTableHashHelper {
public:
    using Item = typename Table::Item;

    Ptr nullHashEntry() override { return natTable().createHashEntry(typename Table::Key(), false); }

protected:
    explicit NatHashHelper(TableIndex tableIdx) : NerioTableHashHelper(tableIdx) {}

    Table& natTable() const { return static_cast<Table&>(*swTable()); }

    /** The item of a row that says this; a cached one if the row is in use, since the key of an empty one may
     * stand in another row. */
    Belmo::Ptr<Item> itemOf(typename Table::Key const& key, typename Table::Result const& result) const {
        auto item = natTable().createHashEntry(key, result.valid());
        item->resultIs(result);
        item->validIs(result.valid());
        return item;
    }
    /** Marks a decoded item's key if the row stores another key than the shadow keeps, or copies differ. */
    void checkItem(Item const& item, NerioSwitchApi::HwIndex index, Words const& words,
                   bool storesKey) const {
        if (storesKey) SORN_TRACE(natTable().trace(), 7, "{} decoded entry is {}", index, item.toStrep());
        if (!storesKey || copiesDiffer(index, words)) natTable().hwInconsistentEntryIs(item.key(), true);
    }
};

/** Base of the convertors of these tables, each of which has one hardware table. */
class NERIO_SWITCH_TABLE_EXPORT NatHashConvertor : public NerioTableHashConvertor {
public:
    ~NatHashConvertor() override;

    U8 pipeline() const { return pipeline_; }
    TableIndex familyIndex() const { return tableIndex_; }

    void handleInitialized() override;
    void doInitTableStats() override;

protected:
    /** `pipeText` says how people call the pipeline whose rows are counted. */
    NatHashConvertor(U8 pipeline, TableIndex tableIndex, U8 controlWord, char const* pipeText);

private:
    U8 pipeline_;
    TableIndex tableIndex_;
    U8 controlWord_;
    char const* pipeText_;
};

/** Base of the convertors of the two match tables, which share the registers of a layer 4 processor. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchBaseConvertor : public NatHashConvertor {
public:
    ~NatMatchBaseConvertor() override;

protected:
    NatMatchBaseConvertor(U8 pipeline, TableIndex tableIndex);

    /** Makes the hardware table, whose name says `number`, and the table of its hit bits. The processor
     * serves the convertor's pipeline and its neighbour. */
    void createMatchTables(NerioSwitchApi::TableState state, U32 number);
    /** Says which bits of a read of hit bits are the table's. */
    virtual void registerHitBits(NerioSwitchApi::HitBitReadInfo& info) const = 0;
};

}  // namespace NerioSwitchTable
