#include "NerioSwitchTable/NerioTableMacVlan.h"

#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioRegPrefixUtil.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

using NerioSwitch::IngressPortMask;
using NerioSwitch::L2McastFlags;

namespace {

Sorn::TraceHandle handle("NerioTableMacVlan");

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr TableIndex tableIndex = 2;

/** The address as one number, its last byte lowest. */
U64 numberOf(Lanvo::EthAddr const& address) {
    U64 number = 0;
    for (U8 const byte : address.bytes())
        number = number << 8 | byte;
    return number;
}

Lanvo::EthAddr ethAddrOf(U64 number) {
    std::array<U8, 6> bytes{};
    for (U32 i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<U8>(number >> (40 - 8 * i));
    return Lanvo::EthAddr(bytes);
}

void encodeData(MacVlanRow const& layout, MacVlanResult const& result, U32* words) {
    U64 const mask = result.ingressPortMask().value();
    MacVlanRow::vlanId.set(words, result.macVlan().vlanId().value());
    MacVlanRow::ethAddr.set(words, numberOf(result.macVlan().ethAddr()));
    layout.ports.set(words, mask & (IngressPortMask::cpu - 1));
    layout.cpu.set(words, result.ingressPortMask().hasCpu());
    layout.mcastFlags.set(words, result.mcastFlags().value());
    layout.ipRoute.set(words, result.ipRoute());
}

/** The one convertor of this table: every copy holds the same rows. */
class MacVlanConvertorLayer2All final
    : public ReplicatedConvertor<MacVlanKey, MacVlanResult, MacVlanRow::words> {
public:
    MacVlanConvertorLayer2All() : ReplicatedConvertor(MacVlanRow::words) {
        hwStaticWordIs(MacVlanRow::controlWord, 0xFFFFFFFF);
    }

    void handleInitialized() override { hwStaticWordIs(MacVlanRow::controlWord, 0xFFFFFFFF); }

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        U32 const rows = profile()->macVlanRows[0] * profile()->macVlanRows[1];
        U32 const copies = rows == 0 ? 0 : profile()->numTables(l2) + (profile()->hasCpuPipeline ? 1u : 0u);
        if (copies > 0) layout_ = MacVlanRow::of(profile()->numPorts);
        for (Copy copy = 0; copy < copies; ++copy) {
            auto const registers = NerioSwitchApi::addressesOf(
                macVlanRegPrefix(*profile(), copy),
                {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"});
            createCopy(copy, state, 0, rows - 1, copyName(TableConstants::tableName(tableIndex), copy),
                       registers);
        }
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        return {NerioSwitchApi::rowLayout(
            MacVlanRow::words, NerioSwitchApi::rowFields(MacVlanRow::fields, layout_.fieldsOfPorts()))};
    }

protected:
    HwIndex rowOf(MacVlanKey const& key) const override { return key.value(); }
    MacVlanKey keyOf(HwIndex row) const override { return MacVlanKey(row); }
    Sorn::TraceHandle const& trace() const override { return handle; }

    RowWords encode(Copy /*copy*/, MacVlanKey const& key, MacVlanResult const& result) const override {
        RowWords words{};
        encodeData(layout_, result, words.data());
        layout_.parity.set(words.data(), NerioSwitch::parityU32Array(words.data(), MacVlanRow::dataWords));
        MacVlanRow::row.set(words.data(), key.value());
        MacVlanRow::strobe.set(words.data(), 1);
        MacVlanRow::select.set(words.data(), 1);
        return words;
    }

    MacVlanResult decode(Copy /*copy*/, MacVlanKey const& /*key*/, U32 const* words) const override {
        U64 const cpu = layout_.cpu.get(words) != 0 ? IngressPortMask::cpu : 0;
        return MacVlanResult()
            .macVlanIs({MacVlanRow::vlanId.get(words), ethAddrOf(MacVlanRow::ethAddr.get(words))})
            .ingressPortMaskIs(IngressPortMask(layout_.ports.get(words) | cpu))
            .mcastFlagsIs(layout_.mcastFlags.get(words))
            .ipRouteIs(layout_.ipRoute.get(words) != 0);
    }

private:
    MacVlanRow layout_{};
};

}  // namespace

MacVlanRow MacVlanRow::of(U32 numPorts) {
    BELMO_ASSERT_TEXT(numPorts < 64, "len < 64");
    auto const at = [numPorts](U32 behindPorts) { return static_cast<U16>(numPorts + behindPorts); };
    return {.ports = {"ports", 60, static_cast<U8>(numPorts)},
            .cpu = {"cpu", at(60), 1},
            .mcastFlags = {"mcastFlags", at(61), 3},
            .parity = {"parity", at(64), 1},
            .ipRoute = {"ipRoute", at(74), 1}};
}

void setBaseHwBuffer(U32 numPorts, MacVlanResult const& result, NerioSwitchApi::HwIndex row, U8* buffer) {
    auto* const words = reinterpret_cast<U32*>(buffer);
    encodeData(MacVlanRow::of(numPorts), result, words);
    MacVlanRow::row.set(words, row);
}

Belmo::String MacVlanResult::resultString() const {
    auto const flag = [this](U8 bit) { return Sorn::paddedBool((mcastFlags().value() & bit) != 0); };
    return Sorn::_fmt(
        "vlan:%4u mac:%s portMask:0x%012lx mcastJoinToEgress:%s mcastDataToCpu:%s mcastJoinToCpus:%s "
        "ipRoute:%s",
        macVlan().vlanId().value(), macVlan().ethAddr().text().c_str(), ingressPortMask().value(),
        flag(L2McastFlags::mcastJoinToEgress), flag(L2McastFlags::mcastDataToCpu),
        flag(L2McastFlags::mcastJoinToCpus), Sorn::paddedBool(ipRoute()));
}

MacVlanTable::~MacVlanTable() = default;

Belmo::Ptr<MacVlanConvertor> MacVlanTable::profileConvertorFactory() const {
    return Belmo::make<MacVlanConvertorLayer2All>();
}

Belmo::Ptr<MacVlanTable> MacVlanTableIs(Belmo::String const& name) {
    return Belmo::make<MacVlanTable>(name);
}

Belmo::Ptr<MacVlanTable> macVlanTableFactory(Belmo::String const& name) {
    return MacVlanTableIs(name);
}

}  // namespace NerioSwitchTable
