#include "NerioSwitchTable/NerioTableNativeVlan.h"

#include "Sorn/Format.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle trace("NerioTableNativeVlan");

/** The one convertor of this table, for every profile. */
class NativeVlanConvertorLayer2All final
    : public PlainPortConvertor<NativeVlanKey, NativeVlanResult, NativeVlanRow::words> {
public:
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(NerioSwitchApi::HwTableId /*id*/) const override {
        return {NerioSwitchApi::rowLayout(NativeVlanRow::words,
                                          NerioSwitchApi::rowFields(NativeVlanRow::fields))};
    }

protected:
    char const* stem() const override { return "NativeVlan"; }

    Belmo::String registerOfPort(U32 port) const override {
        if (profile()->vlanRegVer > 1) return Sorn::_fmt("egress/port[%d]/vlan_tci", port);
        auto const place = profile()->ingressPipeOfPort(port);
        return Sorn::_fmt("pipeline[%d]/port[%d]/default_vlan", place.pipeId, place.pipePort);
    }

    RowWords encode(NativeVlanResult const& result) const override {
        RowWords words{};
        NativeVlanRow::nativeVlanId.set(words.data(), result.nativeVlanId().value());
        NativeVlanRow::dei.set(words.data(), result.dei());
        NativeVlanRow::pcp.set(words.data(), result.pcp());
        return words;
    }

    NativeVlanResult decode(U32 word) const override {
        return NativeVlanResult()
            .nativeVlanIdIs(NativeVlanRow::nativeVlanId.get(&word))
            .deiIs(static_cast<U8>(NativeVlanRow::dei.get(&word)))
            .pcpIs(static_cast<U8>(NativeVlanRow::pcp.get(&word)));
    }

    void traceMissingRow(NerioSwitchApi::HwIndex row) const override {
        SORN_TRACE(trace, 9, "pipe {} index {} does not exist.", 1, row);
    }
};

}  // namespace

Belmo::String NativeVlanResult::resultString() const {
    return Sorn::_fmt("vlan:%4u dei:0x%X pcp:0x%X", nativeVlanId().value(), dei(), pcp());
}

NativeVlanTable::~NativeVlanTable() = default;

Belmo::Ptr<NativeVlanConvertor> NativeVlanTable::profileConvertorFactory() const {
    return Belmo::make<NativeVlanConvertorLayer2All>();
}

Belmo::Ptr<NativeVlanTable> NativeVlanTableIs(Belmo::String const& name) {
    return Belmo::make<NativeVlanTable>(name);
}

Belmo::Ptr<NativeVlanTable> nativeVlanTableFactory(Belmo::String const& name) {
    return NativeVlanTableIs(name);
}

}  // namespace NerioSwitchTable
