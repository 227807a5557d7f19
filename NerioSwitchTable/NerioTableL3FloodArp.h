#pragma once

#include <array>

#include "Bridging/VlanId.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/L3Flood.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableDirect.h"

namespace NerioSwitchTable {

/** What the egress side writes into a packet that is flooded to a next hop. */
class NERIO_SWITCH_TABLE_EXPORT L3FloodArpResult {
    SORN_VALUE_TYPE(NerioSwitchTable, L3FloodArpResult, (Lanvo::EthAddr, ethAddr, {}),
                    (Bridging::VlanIdOrNone, vlanId, Bridging::VlanIdOrNone::none));

    Belmo::String resultString() const;
};

/**
 * A row: a pair of lines of the egress memory, which each of two banks holds. Each line is written by a data
 * word, and a control word behind it.
 */
struct L3FloodArpRow {
    static constexpr U8 words = 8;
    static constexpr U8 lines = 4;
    static constexpr U32 evenLine = 128;
    static constexpr U32 oddLine = 129;
    static constexpr U32 bank = 512;

    /** The data word of a line, 0 to 3; lines 1 and 3 repeat the one before them in the other bank. */
    static constexpr U8 data(U8 line) { return static_cast<U8>(2 * line); }
    /** Even lines, 0 and 1, have the first four bytes of the address; odd ones the others, and the VLAN. */
    static constexpr BitField ethAddrHigh(U8 line) {
        return {"ethAddrHigh", bit(line, 0), isEven(line) ? U8{32} : U8{0}};
    }
    static constexpr BitField vlanId(U8 line) {
        return {"vlanId", bit(line, 0), isEven(line) ? U8{0} : U8{16}};
    }
    static constexpr BitField ethAddrLow(U8 line) {
        return {"ethAddrLow", bit(line, 16), isEven(line) ? U8{0} : U8{16}};
    }
    /** Fields of the control word behind it. */
    static constexpr BitField unused(U8 line) { return {"unused", bit(line, 32), 3}; }
    static constexpr BitField parity(U8 line) { return {"parity", bit(line, 35), 1}; }
    static constexpr BitField address(U8 line) { return {"address", bit(line, 36), 10}; }
    static constexpr BitField writeStrobe(U8 line) { return {"writeStrobe", bit(line, 46), 1}; }

    static constexpr auto fields(U8 line) {
        return std::array{ethAddrHigh(line), vlanId(line),  ethAddrLow(line), unused(line),
                          parity(line),      address(line), writeStrobe(line)};
    }

private:
    static constexpr bool isEven(U8 line) { return line < 2; }
    /** A bit of a line's two words. */
    static constexpr U16 bit(U8 line, U32 number) { return static_cast<U16>(32u * data(line) + number); }
};

/** One next hop with what is written for it, on its way to hardware or back. */
class NERIO_SWITCH_TABLE_EXPORT L3FloodArpEntry final
    : public DirectEntry<NerioSwitch::L3FloodId, L3FloodArpResult> {
public:
    explicit L3FloodArpEntry(NerioSwitch::L3FloodId key) : DirectEntry(key) {}
    ~L3FloodArpEntry() override;

    Belmo::String toStrep() const override;
};

/**
 * Per next hop of flooded packets, their destination address and VLAN. Rows are there for as many next hops
 * as the profile's count of "floodSet" says, which must not be 0.
 */
class NERIO_SWITCH_TABLE_EXPORT L3FloodArpTable final : public DirectTable<L3FloodArpEntry> {
public:
    explicit L3FloodArpTable(Belmo::String const& name);
    ~L3FloodArpTable() override;

    Belmo::Ptr<DirectBaseConvertor> profileConvertorFactory() const override;
    Sorn::TraceHandle const& trace() const override;

protected:
    char const* className() const override { return "L3FloodArpTable"; }
};

/** Writes the rows of each egress processor. A row of address and VLAN 0 counts as empty. */
class NERIO_SWITCH_TABLE_EXPORT L3FloodArpConvertor final
    : public DirectConvertor<L3FloodArpConvertor, L3FloodArpTable> {
public:
    L3FloodArpConvertor();
    ~L3FloodArpConvertor() override;

    U32 entriesPerPort() const { return entriesPerPort_; }
    HwIndex hwIndexFromKey(NerioSwitch::L3FloodId key) const { return key.value(); }
    NerioSwitch::L3FloodId keyFromHwIndex(HwIndex index) const { return index; }
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    void setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(HwTableId id) const override;

protected:
    void encode(L3FloodArpEntry const& item, U32* words) const override;
    void decode(U32 const* words, L3FloodArpEntry& item) const override;

private:
    U32 entriesPerPort_ = 0;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodArpEntry> L3FloodArpEntryIs(NerioSwitch::L3FloodId key);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodArpTable> L3FloodArpTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodArpTable> l3FloodArpTableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodArpConvertor> l3FloodArpConvertorFactory();

}  // namespace NerioSwitchTable
