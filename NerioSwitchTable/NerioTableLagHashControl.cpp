#include "NerioSwitchTable/NerioTableLagHashControl.h"

#include "Sorn/Format.h"
#include "Sorn/Trace.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle trace("NerioTableLagHashControl");

/** The one convertor of this table, for every profile. */
class LagHashControlConvertorLayer3 final
    : public PlainPortConvertor<LagHashControlKey, LagHashControlResult, 1> {
public:
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(NerioSwitchApi::HwTableId /*id*/) const override {
        return {NerioSwitchApi::rowLayout(1, NerioSwitchApi::rowFields(LagHashControlRow::fields))};
    }

protected:
    char const* stem() const override { return "LagHashControl"; }

    Belmo::String registerOfPort(U32 port) const override {
        auto const place = profile()->ingressPipeOfPort(port);
        return Sorn::_fmt("pipeline[%d]/port[%d]/lhash_ctl", place.pipeId, place.pipePort);
    }

    RowWords encode(LagHashControlResult const& result) const override {
        RowWords words{};
        LagHashControlRow::useVlanId.set(words.data(), result.useVlanId());
        LagHashControlRow::useIpProtocol.set(words.data(), result.useIpProtocol());
        LagHashControlRow::useSipAndDip.set(words.data(), result.useSipAndDip());
        LagHashControlRow::hashSeed.set(words.data(), result.hashSeed());
        LagHashControlRow::useSportAndDport.set(words.data(), result.useSportAndDport());
        return words;
    }

    LagHashControlResult decode(U32 word) const override {
        return LagHashControlResult()
            .useVlanIdIs(LagHashControlRow::useVlanId.get(&word) != 0)
            .useIpProtocolIs(LagHashControlRow::useIpProtocol.get(&word) != 0)
            .useSipAndDipIs(LagHashControlRow::useSipAndDip.get(&word) != 0)
            .hashSeedIs(static_cast<U8>(LagHashControlRow::hashSeed.get(&word)))
            .useSportAndDportIs(LagHashControlRow::useSportAndDport.get(&word) != 0);
    }

    void traceRow(NerioSwitchApi::HwIndex row, LagHashControlResult const& result) const override {
        SORN_TRACE(trace, 9, "pipe {} index {} default {:d}: result {}",
                   profile()->ingressPipeOfPort(row).pipeId, row, result == LagHashControlResult(),
                   result.resultString());
    }
    void traceMissingRow(NerioSwitchApi::HwIndex row) const override {
        SORN_TRACE(trace, 9, "pipe {} index {} does not exist.", profile()->ingressPipeOfPort(row).pipeId,
                   row);
    }
};

}  // namespace

Belmo::String LagHashControlResult::resultString() const {
    return Sorn::_fmt("useVlanId:%s useSipAndDip:%s hasSeed:%d", Sorn::paddedBool(useVlanId()),
                      Sorn::paddedBool(useSipAndDip()), hashSeed());
}

LagHashControlTable::~LagHashControlTable() = default;

Belmo::Ptr<LagHashControlConvertor> LagHashControlTable::profileConvertorFactory() const {
    return Belmo::make<LagHashControlConvertorLayer3>();
}

Belmo::Ptr<LagHashControlTable> LagHashControlTableIs(Belmo::String const& name) {
    return Belmo::make<LagHashControlTable>(name);
}

Belmo::Ptr<LagHashControlTable> lagHashControlTableFactory(Belmo::String const& name) {
    return LagHashControlTableIs(name);
}

}  // namespace NerioSwitchTable
