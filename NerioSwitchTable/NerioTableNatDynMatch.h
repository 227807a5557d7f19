#pragma once

#include "NerioSwitch/CrcHash.h"
#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/Nat.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioNatHash.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableNatMatchBase.h"

/* Translations that match on both addresses and both ports, one table for each pipeline. */
namespace NerioSwitchTable {

/** What a match yields. The row of a result that is not `valid` is an empty one to hardware. */
class NERIO_SWITCH_TABLE_EXPORT NatDynMatchResult {
public:
    static constexpr U16 defaultL3Lag = 57;

    SORN_VALUE_TYPE(NerioSwitchTable, NatDynMatchResult, (bool, valid, false),
                    (NerioSwitch::NatL4Proto, proto, {}), (NerioSwitch::NatSessionId, natSessionId, {}),
                    (bool, trapToCpu, false), (NerioSwitch::L3LagIndex, l3LagIndex, defaultL3Lag),
                    (NerioSwitch::RewriteIndex, rewriteIndex, {}));

    Belmo::String stringValue() const;
};

/** The type of a dynamic match as rows hold it; 0 stands for the first one. Another is a programming error.
 */
NERIO_SWITCH_TABLE_EXPORT U8 natTypeToHwVal(NerioSwitch::NatType natType);
/** The inverse, which yields no 0; 3 is a programming error. */
NERIO_SWITCH_TABLE_EXPORT NerioSwitch::NatType hwValToNatType(U8 value);

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT NatDynMatchTableCuckooEntry final
    : public HashTableItem<NatMatchKey, NatDynMatchResult> {
public:
    explicit NatDynMatchTableCuckooEntry(NatMatchKey const& key);
    ~NatDynMatchTableCuckooEntry() override;

    U32 getHash(U8 tableId) const override;
    /** 102 bits, without the type. */
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;

private:
    NerioSwitch::CrcHashes hashes_;
};

/** The item as a text; "NULL" for none. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String toStrep(Belmo::Ptr<NatDynMatchTableCuckooEntry const> const& item);

/** Geometry of the table: four hash tables of 1024 rows. */
class NERIO_SWITCH_TABLE_EXPORT NatDynMatchPhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    explicit NatDynMatchPhysicalHashProperties(U32 tableId);
    ~NatDynMatchPhysicalHashProperties() override;
};

/**
 * Exact matches on both sides, in memories behind the registers of `NatMatchTable`. Rows hold no filter, and
 * of a key of type 0 they say type 6.
 */
class NERIO_SWITCH_TABLE_EXPORT NatDynMatchTable final
    : public NatHashTable<NatDynMatchTableCuckooEntry, NatMatchEntryStatus> {
public:
    NatDynMatchTable(Belmo::String const& name, U8 pipeline);
    ~NatDynMatchTable() override;

    Belmo::Ptr<NatDynMatchTableCuckooEntry> createHashItem(NatMatchKey const& key) override;
    Belmo::Ptr<NatDynMatchTableCuckooEntry> hashItemIs(NatMatchKey const& key) { return cachedItemMade(key); }

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;

protected:
    Belmo::Ptr<NatDynMatchTableCuckooEntry> newItem(NatMatchKey const& key) const override;
    char const* className() const override { return "NatDynMatchTable"; }
};

/** Lays items of the dynamic match table out. */
class NERIO_SWITCH_TABLE_EXPORT NatDynMatchHelper final : public NatHashHelper<NatDynMatchTable> {
public:
    NatDynMatchHelper();
    ~NatDynMatchHelper() override;

    U32 compareWidth() const { return 89; }

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;
};

/** Places dynamic match items in the rows of a layer 4 processor. */
class NERIO_SWITCH_TABLE_EXPORT NatDynMatchConvertor final : public NatMatchBaseConvertor {
public:
    explicit NatDynMatchConvertor(U8 pipeline);
    ~NatDynMatchConvertor() override;

    void doCreateHwTables(NerioSwitchApi::TableState state) override;

protected:
    void registerHitBits(NerioSwitchApi::HitBitReadInfo& info) const override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatDynMatchTable> NatDynMatchTableIs(Belmo::String const& name,
                                                                          U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatDynMatchTable> natDynMatchTableFactory(Belmo::String const& name,
                                                                               U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatDynMatchPhysicalHashProperties>
natDynMatchPhysicalHashPropertiesFactory(U32 tableId);

}  // namespace NerioSwitchTable
