#pragma once

#include <array>
#include <optional>
#include <utility>

#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/IngressPortMask.h"
#include "NerioSwitch/MrouteKey.h"
#include "NerioSwitch/Nat.h"
#include "NerioSwitch/VlanGroup.h"
#include "Sorn/Enum.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioSGRow.h"
#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashConvertor.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"
#include "NerioSwitchTable/SGData.h"

/*
 * Routes by a pair of addresses, source and destination: of multicast, by source and group (RFC 7761), and of
 * single unicast flows, with address translation where the chip has it. Both kinds share rows, and a bit of
 * the key tells them apart.
 */
namespace NerioSwitchTable {

/** What users of such routes call their entries. */
SORN_ENUM(SGEntryType, U8, (sgEntryTypeNatOrSg, 0), (sgEntryTypeFilteredSnat, 1),
          (sgEntryTypeFilteredDnat, 2));
/** Which address of a flow's packets is translated: source, destination, or both. */
SORN_ENUM(SGNatType, U8, (sgNatTypeSnat, 0), (sgNatTypeDnat, 1), (sgNatTypeTnat, 2), (sgNatTypeReserved, 3));
/** Which look-up a row answers: that of routes and dynamic translation, or one that the chip reserves. */
SORN_ENUM(SGLookupType, U8, (sgLookupTypeL3OrDynNat, 0), (sgLookupTypeReserved, 1));

/** An enumerator by its number or its name; throws `Belmo::RangeException` for one that there is not. */
NERIO_SWITCH_TABLE_EXPORT SGEntryType SGEntryTypeInstance(U32 number);
NERIO_SWITCH_TABLE_EXPORT SGEntryType SGEntryTypeInstance(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT SGNatType SGNatTypeInstance(U32 number);
NERIO_SWITCH_TABLE_EXPORT SGNatType SGNatTypeInstance(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT SGLookupType SGLookupTypeInstance(U32 number);
NERIO_SWITCH_TABLE_EXPORT SGLookupType SGLookupTypeInstance(Belmo::String const& name);
/** An enumerator's name. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String stringValue(SGEntryType value);
NERIO_SWITCH_TABLE_EXPORT Belmo::String stringValue(SGNatType value);
NERIO_SWITCH_TABLE_EXPORT Belmo::String stringValue(SGLookupType value);
/** Takes an enumerator's name, or its number, from the front of a text. */
NERIO_SWITCH_TABLE_EXPORT void sequenceToValue(Sorn::CharRange& text, SGEntryType& value);
NERIO_SWITCH_TABLE_EXPORT void sequenceToValue(Sorn::CharRange& text, SGNatType& value);
NERIO_SWITCH_TABLE_EXPORT void sequenceToValue(Sorn::CharRange& text, SGLookupType& value);

/** What a multicast key has besides its addresses. */
class NERIO_SWITCH_TABLE_EXPORT SGMulticastKey {
    SORN_VALUE_TYPE(NerioSwitchTable, SGMulticastKey, (Bridging::VlanIdOrNone, vlanId, {}));
};

/** What a unicast key has: which interfaces its packets come from. Rows hold 6 bits of it. */
class NERIO_SWITCH_TABLE_EXPORT SGUnicastKey {
    SORN_VALUE_TYPE(NerioSwitchTable, SGUnicastKey, (U16, ingressProfileId, 0));
};

/** A source, a destination, and what kind of route they are looked up for. */
class NERIO_SWITCH_TABLE_EXPORT SGKey {
public:
    using Multicast = SGMulticastKey;
    using Unicast = SGUnicastKey;
    using Data = SGData<Multicast, Unicast>;

    SORN_VALUE_TYPE(NerioSwitchTable, SGKey, (Lanvo::IpAddr, sip, {}), (Lanvo::IpAddr, dip, {}),
                    (Data, data, {}));

    /** The route's addresses; lengths of its prefixes do not count. */
    static SGKey multicastKey(NerioSwitch::MrouteKey const& route);
    static SGKey unicastKey(Lanvo::IpAddr sip, Lanvo::IpAddr dip, U16 ingressProfileId);
    /** The route of a multicast key, with prefixes of 32 bits; throws `Belmo::RangeException` for another. */
    NerioSwitch::MrouteKey mrouteKey() const;

    bool isMulticastKey() const { return data_.containsMulticast(); }
    bool isUnicastKey() const { return data_.containsUnicast(); }

    /** "MC: s = 10.0.0.1, g = 239.1.1.1, vlanId = 5", "UC: sip = ..., dip = ..., ingressProfileId = 3" */
    Belmo::String stringValue() const;

    /** All attributes in few numbers, to hash a key by. */
    std::array<U64, 2> hashNumbers() const {
        U64 const number =
            isMulticastKey() ? data_.multicast().vlanId().value() : data_.unicast().ingressProfileId();
        return {U64{sip_.hostOrder()} << 32 | dip_.hostOrder(), U64{data_.tag()} << 16 | number};
    }
};

/** Where a multicast packet goes: out of these ports, and there in the VLANs of this group. */
class NERIO_SWITCH_TABLE_EXPORT SGMulticastResult {
    SORN_VALUE_TYPE(NerioSwitchTable, SGMulticastResult, (NerioSwitch::VlanGroupId, vlanGroupId, {}),
                    (NerioSwitch::IngressPortMask, portMask, {}));
};

/** Where a flow's packets go. */
class NERIO_SWITCH_TABLE_EXPORT SGUnicastResult {
    SORN_VALUE_TYPE(NerioSwitchTable, SGUnicastResult, (NerioSwitch::L3LagIndex, l3LagIndex, 57),
                    (NerioSwitch::RewriteIndex, rewriteIndex, {}));
};

/** What becomes of packets: it must be of the kind of its key. */
class NERIO_SWITCH_TABLE_EXPORT SGResult {
public:
    using Multicast = SGMulticastResult;
    using Unicast = SGUnicastResult;
    using Data = SGData<Multicast, Unicast>;

    /** Rows hold 2 bits of a type and 17 bits of a session, and those only on chips that translate. */
    SORN_VALUE_TYPE(NerioSwitchTable, SGResult, (Data, data, {}),
                    (SGLookupType, lookupType, SGLookupType::sgLookupTypeL3OrDynNat),
                    (SGNatType, natType, SGNatType::sgNatTypeSnat), (U32, natSessionId, 0),
                    (bool, natEnabled, false));

    bool isMulticastResult() const { return data_.containsMulticast(); }
    bool isUnicastResult() const { return data_.containsUnicast(); }

    /** "MC: vlanGroupId: 3 portMask: 0x1F natType: 0 natSessionId: 0 natEnabled: 0", "UC: l3LagIndex: ..." */
    Belmo::String resultString() const;
};

/** What is known of one key. */
class NERIO_SWITCH_TABLE_EXPORT SGEntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, SGEntryStatus, (SGKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** One key's item. */
class NERIO_SWITCH_TABLE_EXPORT SGTableCuckooEntry final : public HashTableItem<SGKey, SGResult> {
public:
    explicit SGTableCuckooEntry(SGKey const& key) : HashTableItem(key) {}
    ~SGTableCuckooEntry() override;

    /** What hardware compares of the key, 60 bits. */
    U64 hwCompareEncoding() const;
    U32 getHash(U8 way) const override;
    HashInput hashInput() const override;
    Belmo::String toStrep() const override;
};

using SGTableStatus = HashTableStatus<SGTableCuckooEntry, SGEntryStatus>;

/**
 * The routes. A key and a result of different kinds, and a unicast result on a chip without address
 * translation, are programming errors.
 */
class NERIO_SWITCH_TABLE_EXPORT SGTable final : public HashTable<SGTableCuckooEntry, SGEntryStatus> {
public:
    explicit SGTable(Belmo::String const& name);
    ~SGTable() override;

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;
    void handleEntry(SGKey const& key) override;
    void handleAllEntries() override;

    /** The key's item, made and published if it is missing. */
    Belmo::Ptr<SGTableCuckooEntry> createHashItem(SGKey const& key) { return hashItemIs(key); }
    Belmo::Ptr<SGTableCuckooEntry> createHashEntry(SGKey const& key, bool cached) override {
        return cached ? createHashItem(key) : newItem(key);
    }
    /** The item of a key; null if there is none. */
    Belmo::Ptr<SGTableCuckooEntry> hashItem(SGKey const& key) const { return cachedItem(key); }
    Belmo::Ptr<SGTableCuckooEntry> hashItemIs(SGKey const& key);
    void hashItemDel(SGKey const& key) { cachedItemDel(key); }
    void hashItemDelAll() { cachedItemDelAll(); }

protected:
    Belmo::Ptr<SGTableCuckooEntry> newItem(SGKey const& key) const override;
    char const* className() const override { return "SGTable"; }
    Sorn::TraceHandle const& trace() const override;

private:
    void checkKinds(SGKey const& key) const;
};

/** Lays items out in rows. */
class NERIO_SWITCH_TABLE_EXPORT SGHelper final : public NerioTableHashHelper {
public:
    static constexpr U32 compareWidth = SGRowLayout::compareWidth;
    static constexpr U32 hashTableId = SGRowLayout::hashTableId;

    SGHelper();
    ~SGHelper() override;

    /** The chip translates addresses. */
    bool natProfile() const;
    /** Its hardware version has room for a session in a row. */
    bool natResultSupported() const;
    /** Words of a row that have registers, without the control word; and the number of the shadow's word. */
    U8 numHashData() const { return natResultSupported() ? 5 : 4; }
    U8 gShadowIdx() const { return natResultSupported() ? 6 : 5; }

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
    void doInit() override;
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override;
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override;
    Ptr nullHashEntry() override;
    /** Throws `Belmo::RangeException` for a row whose VLAN cannot be one. */
    Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override;

private:
    SGTable& sgTable() const { return static_cast<SGTable&>(*swTable()); }
    SGKey keyIn(U32 const* row) const;
    SGResult resultIn(U32 const* row) const;

    std::optional<SGRowLayout> layout_;
};

/** Places items in rows, of which each L3 processor has a copy. */
class NERIO_SWITCH_TABLE_EXPORT SGConvertor final : public NerioTableHashConvertor {
public:
    SGConvertor();
    ~SGConvertor() override;

    void handleInitialized() override;
    void doInitTableStats() override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;

private:
    void controlWordIsStatic();
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<SGTable> SGTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<SGTable> sGTableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<SGTableCuckooEntry> SGTableCuckooEntryIs(SGKey const& key);

}  // namespace NerioSwitchTable
