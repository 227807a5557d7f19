#pragma once

#include "NerioSwitch/AclHash.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashConvertor.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"

/* Counters of the ACL processors that are found by a number of 16 bits, one table for each pair of pipelines.
 */
namespace NerioSwitchTable {

/** What is known of one key of the indirect counter table. */
class NERIO_SWITCH_TABLE_EXPORT AclIndirectCounterHashEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, AclIndirectCounterHashEntryStatus,
                    (NerioSwitch::AclIndirectCounterHashKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT AclIndirectCounterHashTableCuckooEntry final
    : public HashTableItem<NerioSwitch::AclIndirectCounterHashKey,
                           NerioSwitch::AclIndirectCounterHashResult> {
public:
    explicit AclIndirectCounterHashTableCuckooEntry(NerioSwitch::AclIndirectCounterHashKey key)
        : HashTableItem(key) {}
    ~AclIndirectCounterHashTableCuckooEntry() override;

    /** Clears the buffer, of at least 2 bytes, packs the key into it, and returns the key's length in bits.
     */
    U8 copyKeyToBuffer(U8* buffer, U8 bufferSize) const;
    U32 getHash(U8 hashNumber) const override;
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;
};

using AclIndirectCounterHashTableStatus =
    HashTableStatus<AclIndirectCounterHashTableCuckooEntry, AclIndirectCounterHashEntryStatus>;

/** Geometry of the table: two hash tables of 2048 rows. */
class NERIO_SWITCH_TABLE_EXPORT AclCounterPhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    explicit AclCounterPhysicalHashProperties(U32 tableId);
    ~AclCounterPhysicalHashProperties() override;
};

/**
 * Counter rows by key. The key 0 cannot be told from an empty row: it is written like any other, and is gone
 * after a restart.
 */
class NERIO_SWITCH_TABLE_EXPORT AclIndirectCounterHashTable final
    : public HashTable<AclIndirectCounterHashTableCuckooEntry, AclIndirectCounterHashEntryStatus> {
public:
    AclIndirectCounterHashTable(Belmo::String const& name, U8 pipelinePair);
    ~AclIndirectCounterHashTable() override;

    U8 pipelinePair() const { return pipelinePair_; }

    /** The table's number among all tables of all pipeline pairs. */
    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;

protected:
    Belmo::Ptr<AclIndirectCounterHashTableCuckooEntry> newItem(
        NerioSwitch::AclIndirectCounterHashKey const& key) const override;
    char const* className() const override { return "AclIndirectCounterHashTable"; }
    Sorn::TraceHandle const& trace() const override;

private:
    U8 pipelinePair_;
};

/** Lays indirect counter items out. */
class NERIO_SWITCH_TABLE_EXPORT AclIndirectCounterHashHelper final : public NerioTableHashHelper {
public:
    AclIndirectCounterHashHelper();
    ~AclIndirectCounterHashHelper() override;

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr nullHashEntry() override;
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;

private:
    AclIndirectCounterHashTable& counterTable() const {
        return static_cast<AclIndirectCounterHashTable&>(*swTable());
    }
};

/** Places indirect counter items in the rows of one processor. */
class NERIO_SWITCH_TABLE_EXPORT AclIndirectCounterHashConvertor final : public NerioTableHashConvertor {
public:
    AclIndirectCounterHashConvertor();
    ~AclIndirectCounterHashConvertor() override;

    void handleInitialized() override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclIndirectCounterHashTable> AclIndirectCounterHashTableIs(
    Belmo::String const& name, U8 pipelinePair);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclIndirectCounterHashTable> aclIndirectCounterHashTableFactory(
    Belmo::String const& name, U8 pipelinePair);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclIndirectCounterHashConvertor>
aclIndirectCounterHashConvertorFactory();
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclIndirectCounterHashHelper> aclIndirectCounterHashHelperFactory();

}  // namespace NerioSwitchTable
