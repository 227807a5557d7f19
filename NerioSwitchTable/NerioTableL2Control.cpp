#include "NerioSwitchTable/NerioTableL2Control.h"

#include "Sorn/Format.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle trace("NerioTableL2Control");

/** The one convertor of this table, for every profile. */
class L2ControlConvertorLayer2All final
    : public PlainPortConvertor<L2ControlKey, L2ControlResult, L2ControlRow::words> {
public:
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(NerioSwitchApi::HwTableId /*id*/) const override {
        return {
            NerioSwitchApi::rowLayout(L2ControlRow::words, NerioSwitchApi::rowFields(L2ControlRow::fields))};
    }

protected:
    char const* stem() const override { return "L2Control"; }

    Belmo::String registerOfPort(U32 port) const override {
        auto const place = profile()->ingressPipeOfPort(port);
        return Sorn::_fmt("pipeline[%d]/port[%d]/l2_control", place.pipeId, place.pipePort);
    }

    RowWords encode(L2ControlResult const& result) const override {
        RowWords words{};
        L2ControlRow::isMlagPeer.set(words.data(), result.isMlagPeer());
        L2ControlRow::learnOnly.set(words.data(), result.learnOnly());
        L2ControlRow::learnDisabled.set(words.data(), result.learnDisabled());
        return words;
    }

    L2ControlResult decode(U32 word) const override {
        return L2ControlResult()
            .isMlagPeerIs(L2ControlRow::isMlagPeer.get(&word) != 0)
            .learnOnlyIs(L2ControlRow::learnOnly.get(&word) != 0)
            .learnDisabledIs(L2ControlRow::learnDisabled.get(&word) != 0);
    }

    void traceMissingRow(NerioSwitchApi::HwIndex row) const override {
        SORN_TRACE(trace, 9, " index {} does not exist.", row);
    }
};

}  // namespace

Belmo::String L2ControlResult::resultString() const {
    return Sorn::_fmt("isMlagPeer:%s learnOnly:%s learnDisabled:%s", Sorn::paddedBool(isMlagPeer()),
                      Sorn::paddedBool(learnOnly()), Sorn::paddedBool(learnDisabled()));
}

L2ControlTable::~L2ControlTable() = default;

Belmo::Ptr<L2ControlConvertor> L2ControlTable::profileConvertorFactory() const {
    return Belmo::make<L2ControlConvertorLayer2All>();
}

Belmo::Ptr<L2ControlTable> L2ControlTableIs(Belmo::String const& name) {
    return Belmo::make<L2ControlTable>(name);
}

Belmo::Ptr<L2ControlTable> l2ControlTableFactory(Belmo::String const& name) {
    return L2ControlTableIs(name);
}

}  // namespace NerioSwitchTable
