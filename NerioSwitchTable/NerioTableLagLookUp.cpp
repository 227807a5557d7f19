#include "NerioSwitchTable/NerioTableLagLookUp.h"

#include "Sorn/Format.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTablePlainCopies.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle handle("NerioTableLagLookUp");

/** The one convertor of this table, for every profile. */
class LagLookUpConvertorLayer2All final
    : public PlainCopiesConvertor<LagLookUpKey, LagLookUpResult, LagLookUpRow::words> {
public:
    LagLookUpConvertorLayer2All() : PlainCopiesConvertor(LagLookUpRow::words) { handleInitialized(); }

    void handleInitialized() final { hwStaticWordIs(LagLookUpRow::controlWord, 0xFFFFFFFF); }

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        noMuxInRegName_ = profile()->hwApi >= NerioSwitch::ProfileHwApi(8, 0);
        U32 const pipelines = profile()->numPipelinesOfTable(NerioSwitch::TableLayoutEnum::tableLayoutL2);
        for (Copy copy = 0; copy < pipelines; ++copy)
            createPipeline(copy, state, Sorn::_fmt("pipeline[%d]/", copy));
        createPipeline(pipelines, state, "cpu_pipeline[0]/");
    }

    /** The first copy speaks for all. */
    void syncEntries(U32 /*id*/) override { syncCopy(0); }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        auto fields = noMuxInRegName_ ? NerioSwitchApi::rowFields(LagLookUpRow::fields)
                                      : NerioSwitchApi::rowFields(LagLookUpRow::groupFields);
        return {NerioSwitchApi::rowLayout(LagLookUpRow::words, std::move(fields))};
    }

protected:
    HwIndex rowOf(LagLookUpKey const& key) const override { return key.portId().value(); }
    LagLookUpKey keyOf(HwIndex row) const override { return LagLookUpKey(NerioSwitch::ChipPortId(row)); }
    Sorn::TraceHandle const& trace() const override { return handle; }

    RowWords encode(Copy /*copy*/, LagLookUpKey const& key, LagLookUpResult const& result) const override {
        RowWords words{};
        U32 const port = rowOf(key);
        LagLookUpRow::buckets.set(words.data(), result.buckets());
        if (noMuxInRegName_) {
            LagLookUpRow::strobe.set(words.data(), 1);
            LagLookUpRow::port.set(words.data(), port);
        } else {
            LagLookUpRow::portInGroup.set(words.data(), 1u << port % LagLookUpRow::portsPerGroup);
        }
        return words;
    }
    LagLookUpResult decode(Copy /*copy*/, LagLookUpKey const& /*key*/, U32 const* words) const override {
        return LagLookUpResult(static_cast<U32>(LagLookUpRow::buckets.get(words)));
    }

    /** Control words are no content. */
    void entryIsInCopies(LagLookUpKey const& key, LagLookUpResult const& result) override {
        auto const words = encode(0, key, result);
        forEachCopy([&](Copy copy) {
            if (differs(*hwTable(copy), rowOf(key), words.data(), words.size()))
                write(copy, rowOf(key), words);
        });
    }
    /** A copy that a cut call left behind the first one does not stay. */
    bool stays(Copy copy, HwIndex row) const override {
        auto const* first = hwTable(0)->storedWords(row);
        return first != nullptr && !differs(*hwTable(copy), row, first, LagLookUpRow::words);
    }

private:
    void createPipeline(Copy copy, NerioSwitchApi::TableState state, Belmo::String const& prefix) {
        auto const mapping =
            Belmo::make<NerioSwitchApi::HwTableRegisterMappingColl>(copyName("LagLookUp", copy));
        Belmo::Ptr<NerioSwitchApi::HwAddressColl const> registers;
        for (U32 port = 0; port < profile()->numPorts; ++port) {
            if (port == 0 || (!noMuxInRegName_ && port % LagLookUpRow::portsPerGroup == 0))
                registers =
                    NerioSwitchApi::addressesOf(prefix + groupOf(port), {"lag_lut_data0", "lag_lut_ctl"});
            mapping->regsIs(port, registers);
        }
        createCopy(copy, state, 0, profile()->numPorts - 1u, mapping, "table");
    }
    /** The part of a register's path that stands for a group of four ports. */
    Belmo::String groupOf(U32 port) const {
        return noMuxInRegName_ ? "" : Sorn::_fmt("lag_lut[%d]/", port / LagLookUpRow::portsPerGroup);
    }

    bool noMuxInRegName_ = false;
};

}  // namespace

Belmo::String LagLookUpResult::resultString() const {
    return Sorn::_fmt("0x%02X", buckets());
}

LagLookUpTable::~LagLookUpTable() = default;

Belmo::Ptr<LagLookUpConvertor> LagLookUpTable::profileConvertorFactory() const {
    return Belmo::make<LagLookUpConvertorLayer2All>();
}

Belmo::Ptr<LagLookUpTable> LagLookUpTableIs(Belmo::String const& name) {
    return Belmo::make<LagLookUpTable>(name);
}

Belmo::Ptr<LagLookUpTable> lagLookUpTableFactory(Belmo::String const& name) {
    return LagLookUpTableIs(name);
}

}  // namespace NerioSwitchTable
