#pragma once

#include <optional>

#include "NerioSwitch/IngressPortMask.h"
#include "NerioSwitch/MrouteKey.h"
#include "NerioSwitch/VlanGroup.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioLpmRow.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"

/*
 * Multicast routes of any source, by group and VLAN. They live in the rows of the route look-up's stage 29,
 * where a bit tells them from routes, and another one tells their hashes apart. Either of the two tables may
 * be started first, or alone. The hardware tables are named after the one that made them, so the order has to
 * be the same at every warm start.
 */
namespace NerioSwitchTable {

/** Where a multicast packet goes: out of these ports, and there in the VLANs of this group. */
class NERIO_SWITCH_TABLE_EXPORT StarGResult {
    SORN_VALUE_TYPE(NerioSwitchTable, StarGResult, (NerioSwitch::VlanGroupId, vlanGroupId, {}),
                    (NerioSwitch::IngressPortMask, portMask, {}));

    /** "vlanGroupId: 3  portMask: 0x1F" */
    Belmo::String resultString() const;
};

/** What is known of one key. */
class NERIO_SWITCH_TABLE_EXPORT StarGEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, StarGEntryStatus, (NerioSwitch::MrouteKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** The bits of a row that a multicast route holds, for a chip of that many ports. */
struct StarGRowLayout {
    static constexpr U8 compareWidth = 28;
    static constexpr U8 parityWords = 4;

    static constexpr BitField storedGroup{"storedGroup", 0, 16};
    static constexpr BitField vlanId{"vlanId", 16, 12};
    static constexpr BitField compare{"compare", 0, compareWidth};
    static constexpr BitField multicast{"multicast", 28, 1};
    static constexpr BitField valid{"valid", 29, 1};
    static constexpr BitField vlanGroupId{"vlanGroupId", 30, 4};
    static constexpr BitField group{"group", 32 * LpmRowLayout::addressWord, 32};

    explicit constexpr StarGRowLayout(U32 numPorts)
        : portMask{"portMask", 34, static_cast<U8>(numPorts + 1)},
          parity{"parity", static_cast<U16>(35 + numPorts), 1} {}

    static constexpr std::array keyFields{storedGroup, vlanId, group};
    constexpr std::array<BitField, 5> resultFields() const {
        return {multicast, valid, vlanGroupId, portMask, parity};
    }
    constexpr bool fits() const {
        return parity.end() <= 32 * parityWords && fieldsFit(resultFields(), parityWords) &&
               fieldsDisjoint(resultFields()) && vlanId.end() == compare.end() &&
               compare.end() == multicast.first;
    }

    BitField portMask;
    BitField parity;
};
static_assert(StarGRowLayout(52).fits());

/** One key's item. Of a key the group and the VLAN take part, not the source. */
class NERIO_SWITCH_TABLE_EXPORT StarGTableCuckooEntry final
    : public HashTableItem<NerioSwitch::MrouteKey, StarGResult> {
public:
    explicit StarGTableCuckooEntry(NerioSwitch::MrouteKey const& key) : HashTableItem(key) {}
    ~StarGTableCuckooEntry() override;

    /** What hardware compares of the key, 28 bits. */
    U32 hwCompareEncoding() const;
    U32 getHash(U8 way) const override;
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;

private:
    U64 hashNumber() const;
};

using StarGTableStatus = HashTableStatus<StarGTableCuckooEntry, StarGEntryStatus>;

/**
 * The routes. Hardware tells nothing of a key's source, so a key comes back from a warm restart with a source
 * of 0.0.0.0/32. A group in 232.0.0.0/5 comes back marked as inconsistent.
 */
class NERIO_SWITCH_TABLE_EXPORT StarGTable final : public HashTable<StarGTableCuckooEntry, StarGEntryStatus> {
public:
    using MrouteKey = NerioSwitch::MrouteKey;

    explicit StarGTable(Belmo::String const& name);
    ~StarGTable() override;

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;

    /** The key's item, made and published if it is missing. */
    Belmo::Ptr<StarGTableCuckooEntry> createHashItem(MrouteKey const& key) { return hashItemIs(key); }
    Belmo::Ptr<StarGTableCuckooEntry> createHashEntry(MrouteKey const& key, bool cached) override {
        return cached ? createHashItem(key) : newItem(key);
    }
    /** The item of a key; null if there is none. */
    Belmo::Ptr<StarGTableCuckooEntry> hashItem(MrouteKey const& key) const { return cachedItem(key); }
    Belmo::Ptr<StarGTableCuckooEntry> hashItemIs(MrouteKey const& key);
    void hashItemDel(MrouteKey const& key) { cachedItemDel(key); }
    void hashItemDelAll() { cachedItemDelAll(); }

protected:
    Belmo::Ptr<StarGTableCuckooEntry> newItem(MrouteKey const& key) const override;
    char const* className() const override { return "StarGTable"; }
    Sorn::TraceHandle const& trace() const override;
};

/** Geometry of the rows as the table that makes them alone sees it. */
class NERIO_SWITCH_TABLE_EXPORT StarGPhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    StarGPhysicalHashProperties();
    ~StarGPhysicalHashProperties() override;
};

/**
 * Lays items out in rows. An empty row has the multicast bit and VLAN group 1, which hardware takes for
 * nothing without the valid bit. Shared rows are emptied as the table does that was attached first.
 */
class NERIO_SWITCH_TABLE_EXPORT StarGHelper final : public NerioTableHashHelper {
public:
    static constexpr U32 compareWidth = StarGRowLayout::compareWidth;

    StarGHelper();
    ~StarGHelper() override;

    U8 hashTableId() const { return lpmStage(29).hashTableId; }
    /** Bits of a result on a chip of `n` ports. */
    U32 hwResultWidth(U32 n) const { return n + 5; }

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void doInit() override;
    bool sharesTable() const override { return true; }
    /** Rows that are valid and of multicast are this table's. */
    bool entryOwned(NerioSwitchApi::HwIndex index) const override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr nullHashEntry() override;
    /** Throws `Belmo::RangeException` for a row whose VLAN cannot be one. */
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;

private:
    StarGTable& starGTable() const { return static_cast<StarGTable&>(*swTable()); }

    std::optional<StarGRowLayout> layout_;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StarGTable> StarGTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StarGTable> starGTableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StarGTableCuckooEntry> StarGTableCuckooEntryIs(
    NerioSwitch::MrouteKey const& key);

}  // namespace NerioSwitchTable
