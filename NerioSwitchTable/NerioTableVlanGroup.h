#pragma once

#include <array>

#include "Bridging/VlanId.h"
#include "NerioSwitch/VlanGroupKey.h"
#include "Sorn/Text.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableDirect.h"

namespace NerioSwitchTable {
class VlanGroupResult;
}  // namespace NerioSwitchTable

namespace Sorn {
/** There is no reading of a result from a text: to try it is a programming error. */
template <>
NERIO_SWITCH_TABLE_EXPORT void parseAttributes(CharRange& range, NerioSwitchTable::VlanGroupResult& object);
}  // namespace Sorn

namespace NerioSwitchTable {

/**
 * The VLANs of a group: the first `numVlans` of nine places. A row has room for eight of them: of nine, the
 * list is said to go on behind the eighth.
 */
class NERIO_SWITCH_TABLE_EXPORT VlanGroupResult {
public:
    static constexpr U32 places = 9;
    using Group = std::array<Bridging::VlanId, places>;

    SORN_VALUE_TYPE(NerioSwitchTable, VlanGroupResult, (Group, group, {}), (U8, numVlans, 0));

    /** Puts a VLAN into a place; a place above 8 throws `Belmo::RangeException`. */
    VlanGroupResult& groupIs(NerioSwitch::GroupVlanIndex index, Bridging::VlanId vid);
    /** Puts the default VLAN there. */
    VlanGroupResult& groupDel(NerioSwitch::GroupVlanIndex index);
    VlanGroupResult& groupDelAll();

    /** The VLANs in use: "numVlans: 2 { 5 6 }" */
    Belmo::String resultString() const;
};

/** A row: four lines of the egress memory, each of a data word and the control word that stores it. */
struct VlanGroupRow {
    static constexpr U8 words = 8;
    static constexpr U8 pairs = 4;
    static constexpr U32 rowsPerPort = 16;
    static constexpr U32 firstLine = 448;
    static constexpr U32 linesPerPort = 512;

    static constexpr BitField second(U8 pair) { return {"second", at(pair, 0), 16}; }
    static constexpr BitField first(U8 pair) { return {"first", at(pair, 16), 16}; }
    static constexpr BitField hasFirst(U8 pair) { return {"hasFirst", at(pair, 32), 1}; }
    static constexpr BitField hasSecond(U8 pair) { return {"hasSecond", at(pair, 33), 1}; }
    static constexpr BitField goesOn(U8 pair) { return {"goesOn", at(pair, 34), 1}; }
    static constexpr BitField address(U8 pair) { return {"address", at(pair, 36), 10}; }
    static constexpr BitField strobe(U8 pair) { return {"strobe", at(pair, 46), 1}; }

    static constexpr auto fields(U8 pair) {
        return std::array{second(pair), first(pair),   hasFirst(pair), hasSecond(pair),
                          goesOn(pair), address(pair), strobe(pair)};
    }

private:
    static constexpr U16 at(U8 pair, U32 bit) { return static_cast<U16>(64u * pair + bit); }
};

/** One group with its VLANs, on its way to hardware or back. */
class NERIO_SWITCH_TABLE_EXPORT VlanGroupEntry final
    : public DirectEntry<NerioSwitch::VlanGroupKey, VlanGroupResult> {
public:
    explicit VlanGroupEntry(NerioSwitch::VlanGroupKey const& key) : DirectEntry(key) {}
    ~VlanGroupEntry() override;

    Belmo::String toStrep() const override;
};

/**
 * Per egress port and group number, 0 to 15, the VLANs that a packet for the group leaves the port in. Other
 * group numbers, which would reach the rows of the next port, are refused with the range failure of
 * `NerioSwitch::VlanGroupId` before anything is stored.
 *
 * A line's address has room for two ports of an egress processor: ports whose numbers within their pipe are
 * both even, or both odd, have their lines in the same place.
 */
class NERIO_SWITCH_TABLE_EXPORT VlanGroupTable final : public DirectTable<VlanGroupEntry> {
public:
    explicit VlanGroupTable(Belmo::String const& name);
    ~VlanGroupTable() override;

    Belmo::Ptr<DirectBaseConvertor> profileConvertorFactory() const override;
    Sorn::TraceHandle const& trace() const override;

protected:
    char const* className() const override { return "VlanGroupTable"; }
    void checkEntry(NerioSwitch::VlanGroupKey const& key, VlanGroupResult const& result) const override;
};

/** Writes the rows of all ports, each through the egress processor of its port. */
class NERIO_SWITCH_TABLE_EXPORT VlanGroupConvertor final
    : public DirectConvertor<VlanGroupConvertor, VlanGroupTable> {
public:
    VlanGroupConvertor();
    ~VlanGroupConvertor() override;

    HwIndex hwIndexFromKey(NerioSwitch::VlanGroupKey const& key) const;
    NerioSwitch::VlanGroupKey keyFromHwIndex(HwIndex index) const;
    bool capacitySupported() const { return true; }
    /** A counter for each port, of its groups. */
    void doInitTableStats() override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    NerioSwitchApi::CapacityTableIndex capacityIndexFromEntry(PtrConst const& item) const override;
    void setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(HwTableId id) const override;

protected:
    void encode(VlanGroupEntry const& item, U32* words) const override;
    /** Marks the key of a row whose flags and VLANs do not make a list. */
    void decode(U32 const* words, VlanGroupEntry& item) const override;

private:
    U32 lineAddress(HwIndex index, U8 pair) const;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanGroupEntry> VlanGroupEntryIs(NerioSwitch::VlanGroupKey const& key);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanGroupEntry> vlanGroupEntryFactory(
    NerioSwitch::VlanGroupKey const& key);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanGroupTable> VlanGroupTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanGroupTable> vlanGroupTableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanGroupConvertor> vlanGroupConvertorFactory();

}  // namespace NerioSwitchTable
