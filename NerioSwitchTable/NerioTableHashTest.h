#pragma once

#include <limits>

#include "Belmo/RangedIndex.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"

/*
 * The smallest hash table: two hash tables of eight rows, whose hash the key itself dictates. It drives the
 * framework through placement, moves, hit bits and inconsistency on known rows.
 */
namespace NerioSwitchTable {

struct HashTestNumberTraits {
    using Representation = U32;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText = "NerioSwitchTable::HashTestKey::value > 0xFFFFFFFF not allowed";
};

/** Bits 2:0 are the row in hash table 0, bits 5:3 the row in hash table 1. */
using HashTestKey = Belmo::RangedIndex<HashTestNumberTraits>;
using HashTestResult = Belmo::RangedIndex<HashTestNumberTraits>;

/** What is known of one key of the hash test table. */
class NERIO_SWITCH_TABLE_EXPORT TestEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, TestEntryStatus, (HashTestKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT HashTestTableCuckooEntry final
    : public HashTableItem<HashTestKey, HashTestResult> {
public:
    explicit HashTestTableCuckooEntry(HashTestKey key) : HashTableItem(key) {}
    ~HashTestTableCuckooEntry() override;

    U32 getHash(U8 hashNumber) const override;
    /** The number itself, first byte first. */
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;
};

using TestTableStatus = HashTableStatus<HashTestTableCuckooEntry, TestEntryStatus>;

/** A row: key and result, and a control word. Nothing is dropped from the key, and there is no parity. */
class NERIO_SWITCH_TABLE_EXPORT HashTestTable final
    : public HashTable<HashTestTableCuckooEntry, TestEntryStatus> {
public:
    explicit HashTestTable(Belmo::String const& name);
    ~HashTestTable() override;

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;

protected:
    Belmo::Ptr<HashTestTableCuckooEntry> newItem(HashTestKey const& key) const override;
    char const* className() const override { return "HashTestTable"; }
    Sorn::TraceHandle const& trace() const override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<HashTestTable> HashTestTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<HashTestTable> hashTestTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
