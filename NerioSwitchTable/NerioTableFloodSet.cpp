#include "NerioSwitchTable/NerioTableFloodSet.h"

#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioPortGeometry.h"
#include "NerioSwitchTable/NerioRegPrefixUtil.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

using Bridging::VlanId;

namespace {

Sorn::TraceHandle handle("NerioTableFloodSet");

constexpr TableIndex tableIndex = 3;

/** The one convertor of this table: every copy holds the masks of the whole chip. */
class FloodSetConvertorLayer2All final
    : public ReplicatedConvertor<VlanId, FloodSetEntry, FloodSetRow::words> {
public:
    FloodSetConvertorLayer2All() : ReplicatedConvertor(FloodSetRow::words) {
        hwStaticWordIs(FloodSetRow::controlWord, 0xFFFFFFFF);
    }

    void handleInitialized() override { hwStaticWordIs(FloodSetRow::controlWord, 0xFFFFFFFF); }

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        U32 const copies = numVlanTableCopies(*profile());
        if (copies > 0) layout_ = FloodSetRow::of(profile()->numPorts, profile()->floodSetParity);
        for (Copy copy = 0; copy < copies; ++copy) {
            auto const registers = NerioSwitchApi::addressesOf(
                floodSetRegPrefix(*profile(), copy),
                {"floodset_data0", "floodset_data1", "floodset_data2", "floodset_data3", "floodset_ctl"});
            createCopy(copy, state, VlanId::first, VlanId::last,
                       copyName(TableConstants::tableName(tableIndex), copy), registers);
        }
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        return {NerioSwitchApi::rowLayout(
            FloodSetRow::words, NerioSwitchApi::rowFields(layout_.fields(), FloodSetRow::controlFields))};
    }

protected:
    HwIndex rowOf(VlanId const& vlan) const override { return vlan.value(); }
    VlanId keyOf(HwIndex row) const override { return VlanId(row); }
    FloodSetEntry defaultResult(VlanId const& vlan) const override { return {vlan, {}}; }
    Sorn::TraceHandle const& trace() const override { return handle; }

    RowWords encode(Copy /*copy*/, VlanId const& vlan, FloodSetEntry const& entry) const override {
        RowWords words{};
        FloodSetRow::vlan.set(words.data(), vlan.value());
        FloodSetRow::strobe.set(words.data(), 1);
        layout_.uucPortMask.set(words.data(), entry.result().uucPortMask());
        layout_.umcPortMask.set(words.data(), entry.result().umcPortMask());
        layout_.parity.set(words.data(), NerioSwitch::parityU32Array(words.data(), FloodSetRow::dataWords));
        return words;
    }

    FloodSetEntry decode(Copy /*copy*/, VlanId const& vlan, U32 const* words) const override {
        return {vlan, FloodSetResult()
                          .uucPortMaskIs(layout_.uucPortMask.get(words))
                          .umcPortMaskIs(layout_.umcPortMask.get(words))};
    }

private:
    FloodSetRow layout_{};
};

}  // namespace

FloodSetRow FloodSetRow::of(U16 numPorts, bool hasParity) {
    BELMO_ASSERT_TEXT(numPorts < 64, "len < 64");
    auto const ports = static_cast<U8>(numPorts);
    return {{"uucPortMask", 0, ports},
            {"umcPortMask", ports, ports},
            {"parity", static_cast<U16>(2 * ports), static_cast<U8>(hasParity ? 1 : 0)}};
}

Belmo::String FloodSetResult::resultString() const {
    return Sorn::_fmt("uucPortMask:0x%012lx umcPortMask:0x%012lx", uucPortMask(), umcPortMask());
}

FloodSetTable::FloodSetTable(Belmo::String const& name) : PlainTable<VlanId, FloodSetEntry>(name) {
    hwTablesDuplicateIs(true);
}

FloodSetTable::~FloodSetTable() = default;

Belmo::Ptr<FloodSetConvertor> FloodSetTable::profileConvertorFactory() const {
    return Belmo::make<FloodSetConvertorLayer2All>();
}

Belmo::Ptr<FloodSetTable> FloodSetTableIs(Belmo::String const& name) {
    return Belmo::make<FloodSetTable>(name);
}

Belmo::Ptr<FloodSetTable> floodSetTableFactory(Belmo::String const& name) {
    return FloodSetTableIs(name);
}

}  // namespace NerioSwitchTable
