#pragma once

#include "NerioSwitch/LpmKey.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/LpmResult.h"
#include "NerioSwitchTable/NerioLpmRow.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashConvertor.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"

/*
 * What the hashing stages of the route look-up have in common. Each L3 processor has a copy of a stage's
 * rows. Stages differ in constants alone: `NerioLpmRow.h` lists them.
 */
namespace NerioSwitchTable {

/** What is known of one key of a stage. */
class NERIO_SWITCH_TABLE_EXPORT LpmEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, LpmEntryStatus, (NerioSwitch::LpmKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT LpmBaseTableCuckooEntry
    : public HashTableItem<NerioSwitch::LpmKey, LpmResult> {
public:
    ~LpmBaseTableCuckooEntry() override;

    U32 ipv4DipShift() const { return stage_.ipv4DipShift(); }
    U32 keyWidth() const { return stage_.keyWidth; }
    U32 crcLength() const { return stage_.crcLength; }
    /** The key's row in a way. A `crcLength` other than 10 and 12 is a programming error. */
    U32 getHash(U8 way) const override;
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;
    U32 swTableId() const override { return stage_.tableIndex; }

protected:
    LpmBaseTableCuckooEntry(LpmStage const& stage, NerioSwitch::LpmKey const& key)
        : HashTableItem(key), stage_(stage) {}

private:
    LpmStage const& stage_;
};

/** The item as a text; "NULL" for none. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String toStrep(Belmo::Ptr<LpmBaseTableCuckooEntry const> const& item);

using LpmTableStatus = HashTableStatus<LpmBaseTableCuckooEntry, LpmEntryStatus>;

/**
 * A stage. Its keys have the length `prefixBaseLen`, and each of their four cells with a next hop belongs to
 * a route of `prefixBaseLen` to `prefixBaseLen + prefixRange` bits. A key of another length and a cell that
 * rows cannot carry (`EntryCellResult::hwEncoding`) are refused with `Belmo::RangeException` before anything
 * is stored. Of the VRF rows hold the bits that the profile's `numVrfs` needs, and drop the rest.
 */
class NERIO_SWITCH_TABLE_EXPORT LpmBaseTable : public HashTable<LpmBaseTableCuckooEntry, LpmEntryStatus> {
public:
    static constexpr U32 prefixRange = LpmStage::prefixRange;

    ~LpmBaseTable() override;

    U8 prefixBaseLen() const { return prefixBaseLen_; }

    /** The key's item, made and published if it is missing; or, not cached, one that no map remembers. */
    virtual Belmo::Ptr<LpmBaseTableCuckooEntry> createHashItem(NerioSwitch::LpmKey const& key,
                                                               bool cached) = 0;
    Belmo::Ptr<LpmBaseTableCuckooEntry> createHashEntry(NerioSwitch::LpmKey const& key, bool cached) final {
        return createHashItem(key, cached);
    }
    void hashItemDel(NerioSwitch::LpmKey const& key) { cachedItemDel(key); }
    void hashItemDelAll() { cachedItemDelAll(); }

protected:
    explicit LpmBaseTable(Belmo::String const& name);

    void prefixBaseLenIs(U8 length) { prefixBaseLen_ = length; }
    /** The cached item of a key; a new one is published. */
    Belmo::Ptr<LpmBaseTableCuckooEntry> cachedItemMade(NerioSwitch::LpmKey const& key);
    void checkEntry(NerioSwitch::LpmKey const& key, LpmResult const& result) const override;
    Sorn::TraceHandle const& trace() const override;

private:
    U8 prefixBaseLen_ = 0;
};

/** Lays a stage's items out. */
class NERIO_SWITCH_TABLE_EXPORT LpmBaseHelper : public NerioTableHashHelper {
public:
    static constexpr U32 cellResultWidth = LpmRowLayout::cellResultWidth;
    static constexpr U32 cellNatResultWidth = LpmRowLayout::cellNatResultWidth;

    ~LpmBaseHelper() override;

    U8 numVrfBits() const { return numVrfBits_; }
    U32 compareWidth() const { return stage_.compareWidth(numVrfBits_); }
    U32 resultShift() const { return stage_.resultShift(numVrfBits_); }
    U8 hashTableId() const { return stage_.hashTableId; }
    /** The rows in which the chip looks a key up. */
    Dovra::Cuckoo::Rows rowsOf(NerioSwitch::LpmKey const& key) const;

    bool sharesTable() const override { return stage_.sharesRows; }
    /** Of shared rows those are a stage's that are valid and not of multicast. */
    bool entryOwned(NerioSwitchApi::HwIndex index) const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr nullHashEntry() override;
    /** Throws `Belmo::RangeException` for a row whose key cannot be one. */
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;

protected:
    LpmBaseHelper(LpmStage const& stage, U8 numVrfBits);

private:
    LpmBaseTable& lpmTable() const { return static_cast<LpmBaseTable&>(*swTable()); }
    LpmResult resultIn(U32 const* row, bool valid) const;

    LpmStage const& stage_;
    U8 numVrfBits_;
    LpmRowLayout layout_;
};

/** Places items in the rows of one stage, of which each L3 processor has a copy. */
class NERIO_SWITCH_TABLE_EXPORT LpmBaseConvertor : public NerioTableHashConvertor {
public:
    /** What `hitBitOffset` is until a stage sets it. */
    static constexpr U32 noHitBitOffset = 0xFFFFFFFF;

    LpmBaseConvertor();
    ~LpmBaseConvertor() override;

    /** First bit of the stage's hits in a read of hit bits. */
    U32 hitBitOffset() const { return hitBitOffset_; }

    void handleInitialized() override;
    void doInitTableStats() override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;

protected:
    void hitBitOffsetIs(U32 offset) { hitBitOffset_ = offset; }

private:
    U32 hitBitOffset_ = noHitBitOffset;
};

}  // namespace NerioSwitchTable
