#pragma once

#include <optional>

#include "NerioSwitch/AclHash.h"
#include "NerioSwitch/CrcHash.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioAclRow.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashConvertor.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"

/*
 * The ACL processors of the ingress side. Each pipeline has four physical tables, numbered 0, 1, 2 and 5,
 * for keys of different combinations of fields.
 */
namespace NerioSwitchTable {

/** What is known of one ACL key. */
class NERIO_SWITCH_TABLE_EXPORT AclHashEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, AclHashEntryStatus, (NerioSwitch::AclHashKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** One ACL key's item. The key never changes, so that it is packed and hashed once. */
class NERIO_SWITCH_TABLE_EXPORT AclHashTableCuckooEntry final
    : public HashTableItem<NerioSwitch::AclHashKey, NerioSwitch::AclHashResult> {
public:
    AclHashTableCuckooEntry(NerioSwitch::AclHashKey const& key, bool singleAclPipeMode, bool hasFilterMask);
    ~AclHashTableCuckooEntry() override;

    bool singleAclPipeMode() const { return singleAclPipeMode_; }
    bool hasFilterMask() const { return hasFilterMask_; }

    AclPackedKey const& packedKey() const { return packedKey_; }
    /** Clears the buffer, of at least 14 bytes, packs the key into it, and returns the key's length in bits.
     */
    U8 copyKeyToBuffer(U8* buffer, U8 bufferSize) const;
    /** The key's row in hash table `hashNumber`: 12 bits in single pipe mode, 11 otherwise. */
    U32 getHash(U8 hashNumber) const override { return hashes_.way(hashNumber); }
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;

private:
    AclPackedKey packedKey_{};
    NerioSwitch::CrcHashes hashes_{0};
    U8 keyBits_ = 0;
    bool singleAclPipeMode_;
    bool hasFilterMask_;
};

using AclHashTableStatus = HashTableStatus<AclHashTableCuckooEntry, AclHashEntryStatus>;

/** Geometry of one physical table; without hash bits there are no rows. */
class NERIO_SWITCH_TABLE_EXPORT AclPhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    AclPhysicalHashProperties(U32 aclTableId, std::optional<U32> hashBits);
    ~AclPhysicalHashProperties() override;

    U32 aclTableId() const { return tableId(); }
};

/** ACL rules of one pipeline and physical table. Whether a rule found a place is told by `tableStatus`. */
class NERIO_SWITCH_TABLE_EXPORT AclHashTable final
    : public HashTable<AclHashTableCuckooEntry, AclHashEntryStatus> {
public:
    AclHashTable(Belmo::String const& name, U8 pipeline, U8 physTableIdx);
    ~AclHashTable() override;

    U8 pipeline() const { return pipeline_; }
    U8 physTableIdx() const { return physTableIdx_; }
    /** The table's number among all tables of all pipelines. */
    U32 aclTableId() const;

    U32 swTableId() const override { return aclTableId(); }
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;
    /** Keys of this family are never marked. */
    bool hwInconsistentEntryFromHashItem(PtrConst const& item) const override;
    bool hwInconsistentEntryDelFromHashItem(PtrConst const& item) override;

protected:
    Belmo::Ptr<AclHashTableCuckooEntry> newItem(NerioSwitch::AclHashKey const& key) const override;
    char const* className() const override { return "AclHashTable"; }
    Sorn::TraceHandle const& trace() const override;

private:
    U8 pipeline_;
    U8 physTableIdx_;
};

/** Lays ACL items out. What it needs of the profile it reads once, when it is attached. */
class NERIO_SWITCH_TABLE_EXPORT AclHashHelper final : public NerioTableHashHelper {
public:
    explicit AclHashHelper(TableIndex tableIdx);
    ~AclHashHelper() override;

    AclRowFormat const& format() const { return layouts_->format(); }

    void doInit() override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr nullHashEntry() override;
    bool reachable(Dovra::Cuckoo::CuckooLocation const& location) const override;
    /** Throws `Belmo::RangeException` for a row whose key cannot be one. */
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;

private:
    AclHashTable& aclTable() const { return static_cast<AclHashTable&>(*swTable()); }

    std::optional<AclRowLayouts> layouts_;
};

/** Places ACL items in the rows of one processor. */
class NERIO_SWITCH_TABLE_EXPORT AclHashConvertor final : public NerioTableHashConvertor {
public:
    AclHashConvertor();
    ~AclHashConvertor() override;

    void handleInitialized() override;
    void doInitTableStats() override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;

private:
    AclHashTable& aclTable() const { return static_cast<AclHashTable&>(*swTable(0)); }
};

/** `physTableIdx` is 0, 1, 2 or 5. */
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclHashTable> AclHashTableIs(Belmo::String const& name, U8 pipeline,
                                                                  U8 physTableIdx);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclHashTable> aclHashTableFactory(Belmo::String const& name, U8 pipeline,
                                                                       U8 physTableIdx);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclHashConvertor> aclHashConvertorFactory();
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclHashHelper> aclHashHelperFactory(TableIndex tableIdx);

}  // namespace NerioSwitchTable
