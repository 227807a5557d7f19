#pragma once

#include "NerioSwitch/CrcHash.h"
#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/Nat.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioNatHash.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableNatMatchBase.h"

/* Translations that match on one side of a packet, one table for each pair of pipelines. */
namespace NerioSwitchTable {

/** What a match yields. The row of a result that is not `valid` is an empty one to hardware. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchResult {
public:
    static constexpr U16 defaultL3Lag = 57;

    SORN_VALUE_TYPE(NerioSwitchTable, NatMatchResult, (bool, valid, false),
                    (NerioSwitch::NatL4Proto, proto, {}), (NerioSwitch::NatSessionId, natSessionId, {}),
                    (bool, useAcl, false), (bool, trapToCpu, false),
                    (NerioSwitch::L3LagIndex, l3LagIndex, defaultL3Lag),
                    (NerioSwitch::RewriteIndex, rewriteIndex, {}));

    Belmo::String stringValue() const;
};

/** The port that a static match looks at, 0 without one. An address-only key with a port is a programming
 * error. */
NERIO_SWITCH_TABLE_EXPORT U16 keyPort(NatMatchKey const& key);
/** The address that a static match looks at, in host order. */
NERIO_SWITCH_TABLE_EXPORT U32 keyAddress(NatMatchKey const& key);
/** The type of a static match, and in bit 2 whether it has a filter; a dynamic type is a programming error.
 */
NERIO_SWITCH_TABLE_EXPORT U8 natTypeToHwVal(NerioSwitch::NatType natType, bool filtered);

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchTableCuckooEntry final
    : public HashTableItem<NatMatchKey, NatMatchResult> {
public:
    NatMatchTableCuckooEntry(NatMatchKey const& key, bool hasFilterMask);
    ~NatMatchTableCuckooEntry() override;

    /** The chip's keys hold the length of a filter; without, its address alone. */
    bool hasFilterMask() const { return hasFilterMask_; }
    U32 getHash(U8 tableId) const override;
    /** 91 bits with a filter mask, 89 without. */
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;

private:
    NerioSwitch::CrcHashes hashes_;
    bool hasFilterMask_;
};

/** The item as a text; "NULL" for none. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String toStrep(Belmo::Ptr<NatMatchTableCuckooEntry const> const& item);

/** Geometry of the table: three hash tables of 4096 rows. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchPhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    explicit NatMatchPhysicalHashProperties(U32 tableId);
    ~NatMatchPhysicalHashProperties() override;
};

/**
 * Matches on one address, with a port and a filter where the key has them. Before hardware API version 10.0
 * rows hold no length of a filter: after a restart a filter's length is that of its address without the zeros
 * at its end.
 */
class NERIO_SWITCH_TABLE_EXPORT NatMatchTable final
    : public NatHashTable<NatMatchTableCuckooEntry, NatMatchEntryStatus> {
public:
    NatMatchTable(Belmo::String const& name, U8 pipeline);
    ~NatMatchTable() override;

    Belmo::Ptr<NatMatchTableCuckooEntry> createHashItem(NatMatchKey const& key) override;
    /** The key's item, made if it is missing; one of the other kind of filter is a programming error. */
    Belmo::Ptr<NatMatchTableCuckooEntry> hashItemIs(NatMatchKey const& key, bool hasFilterMask);

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;

protected:
    Belmo::Ptr<NatMatchTableCuckooEntry> newItem(NatMatchKey const& key) const override;
    char const* className() const override { return "NatMatchTable"; }

private:
    bool hasFilterMask() const;
};

/** Lays items of the match table out. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchHelper final : public NatHashHelper<NatMatchTable> {
public:
    NatMatchHelper();
    ~NatMatchHelper() override;

    U32 compareWidth() const { return 47; }

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;
};

/** Places match items in the rows of a layer 4 processor. */
class NERIO_SWITCH_TABLE_EXPORT NatMatchConvertor final : public NatMatchBaseConvertor {
public:
    explicit NatMatchConvertor(U8 pipeline);
    ~NatMatchConvertor() override;

    void doCreateHwTables(NerioSwitchApi::TableState state) override;

protected:
    void registerHitBits(NerioSwitchApi::HitBitReadInfo& info) const override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatMatchTable> NatMatchTableIs(Belmo::String const& name, U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatMatchTable> natMatchTableFactory(Belmo::String const& name,
                                                                         U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatMatchPhysicalHashProperties> natMatchPhysicalHashPropertiesFactory(
    U32 tableId);

}  // namespace NerioSwitchTable
