#pragma once

#include <array>

#include "Lanvo/Address.h"
#include "NerioSwitch/CrcHash.h"
#include "NerioSwitch/Nat.h"
#include "NerioSwitch/VlanGroup.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioNatHash.h"
#include "NerioSwitchTable/NerioTableHash.h"

/* What becomes of a translated packet at the egress side, one table for each pipeline. */
namespace NerioSwitchTable {

/**
 * The session of a packet, with the profile that it leaves by, or for a multicast one the VLAN group and the
 * group's member that a copy of it leaves by. The attributes of the other form keep their defaults: hardware
 * does not know them, but keys that differ in them are different keys.
 */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteKey {
    SORN_VALUE_TYPE(NerioSwitchTable, NatRewriteKey, (bool, isUnicast, false),
                    (NerioSwitch::NatSessionId, natSessionId, {}), (bool, oddPort, false),
                    (NerioSwitch::NatProfileId, natProfileId, {}), (bool, secondTnat, false),
                    (NerioSwitch::VlanGroupId, vlanGroupId, {}),
                    (NerioSwitch::GroupVlanIndex, vlanGroupMemberIdx, {}));

    Belmo::String stringValue() const;

    /** All attributes in two numbers, in declared order, to hash a key by. */
    std::array<U64, 2> hashNumbers() const {
        U64 const session = U64{isUnicast_} << 40 | U64{natSessionId_.value()} << 8 | U64{oddPort_};
        U64 const form = U64{natProfileId_.value()} << 40 | U64{secondTnat_} << 32 |
                         U64{vlanGroupId_.value()} << 8 | vlanGroupMemberIdx_.value();
        return {session, form};
    }
};

/** The new address and port, and what to add to the packet's checksum, which is stored as it is. */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteResult {
    SORN_VALUE_TYPE(NerioSwitchTable, NatRewriteResult, (bool, valid, false), (Lanvo::IpAddr, newIp, {}),
                    (U16, newPort, 0), (U16, checksumCorrection, 0));

    Belmo::String stringValue() const;
};

/** What is known of one key of the rewrite table. */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, NatRewriteEntryStatus, (NatRewriteKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteTableCuckooEntry final
    : public HashTableItem<NatRewriteKey, NatRewriteResult> {
public:
    explicit NatRewriteTableCuckooEntry(NatRewriteKey const& key);
    ~NatRewriteTableCuckooEntry() override;

    U32 getHash(U8 tableId) const override;
    /** 25 bits in both forms. */
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;
    /**
     * The part of the key that a row holds, 15 bits: all but the low 10 bits of the session. A number of more
     * bits than its place has spills into the places above.
     */
    U16 hwCompareEncoding() const;

private:
    NerioSwitch::CrcHashes hashes_;
};

/** The item as a text; "NULL" for none. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String toStrep(Belmo::Ptr<NatRewriteTableCuckooEntry const> const& item);

using NatRewriteTableStatus = HashTableStatus<NatRewriteTableCuckooEntry, NatRewriteEntryStatus>;

/** Geometry of the table: four hash tables of 1024 rows. */
class NERIO_SWITCH_TABLE_EXPORT NatRewritePhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    explicit NatRewritePhysicalHashProperties(U32 tableId);
    ~NatRewritePhysicalHashProperties() override;
};

/** Rewrites of one pipeline. The row of a result that is not `valid` is an empty one to hardware. */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteTable final
    : public NatHashTable<NatRewriteTableCuckooEntry, NatRewriteEntryStatus> {
public:
    NatRewriteTable(Belmo::String const& name, U8 pipeline);
    ~NatRewriteTable() override;

    Belmo::Ptr<NatRewriteTableCuckooEntry> createHashItem(NatRewriteKey const& key) override;
    Belmo::Ptr<NatRewriteTableCuckooEntry> hashItemIs(NatRewriteKey const& key) {
        return cachedItemMade(key);
    }

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;

protected:
    Belmo::Ptr<NatRewriteTableCuckooEntry> newItem(NatRewriteKey const& key) const override;
    char const* className() const override { return "NatRewriteTable"; }
};

/** Lays rewrite items out. */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteHelper final : public NatHashHelper<NatRewriteTable> {
public:
    NatRewriteHelper();
    ~NatRewriteHelper() override;

    U32 compareWidth() const { return 15; }

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr nullHashEntry() override;
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;
};

/** Places rewrite items in the rows of an egress processor. */
class NERIO_SWITCH_TABLE_EXPORT NatRewriteConvertor final : public NatHashConvertor {
public:
    explicit NatRewriteConvertor(U8 pipeline);
    ~NatRewriteConvertor() override;

    void doCreateHwTables(NerioSwitchApi::TableState state) override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatRewriteTable> NatRewriteTableIs(Belmo::String const& name,
                                                                        U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatRewriteTable> natRewriteTableFactory(Belmo::String const& name,
                                                                             U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NatRewritePhysicalHashProperties>
natRewritePhysicalHashPropertiesFactory(U32 tableId);

}  // namespace NerioSwitchTable
