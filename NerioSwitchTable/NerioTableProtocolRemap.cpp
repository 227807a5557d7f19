#include "NerioSwitchTable/NerioTableProtocolRemap.h"

#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTableAclPipeline.h"

namespace NerioSwitchTable {

using Row = ProtocolRemapRow;

namespace {

Sorn::TraceHandle handle("NerioTableProtocolRemap");

constexpr TableIndex tableIndex = 73;
constexpr U32 allBits = 0xFFFFFFFF;

/** The one convertor of this table, for every profile. */
class ProtocolRemapConvertorAll final : public AclPipelineConvertor<ProtocolRemapTable, Row::maxWords> {
public:
    ProtocolRemapConvertorAll() : AclPipelineConvertor(Row::maxWords) {
        hwStaticWordIs(Row::staticWord, allBits);
    }

    void handleInitialized() override { hwStaticWordIs(Row::staticWord, allBits); }

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        if (profile()->aclRegVer < 2) {
            createRows(state, tableIndex, Row::rows,
                       {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_data4", "hash_ctl"});
        } else {
            sizeWordsIs(Row::maxWords - 1);
            createRows(state, tableIndex, Row::rows,
                       {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"});
        }
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        auto const control = static_cast<U8>(sizeWords() - 1);
        return {NerioSwitchApi::rowLayout(control + 1u, NerioSwitchApi::rowFields(Row::fields(control)))};
    }

protected:
    HwIndex rowOf(ProtocolRemapKey const& key) const override { return key.protocol(); }
    ProtocolRemapKey keyOf(HwIndex row) const override { return ProtocolRemapKey(static_cast<U8>(row)); }
    Sorn::TraceHandle const& trace() const override { return handle; }

    RowWords encode(Copy /*copy*/, ProtocolRemapKey const& key,
                    ProtocolRemapResult const& result) const override {
        RowWords row{};
        auto* const words = row.data();
        Row::remappedProtocol.set(words, result.remappedProtocol());
        Row::parity.set(words, NerioSwitch::parity32Bit(words[0]));
        auto const control = static_cast<U8>(sizeWords() - 1);
        Row::protocol(control).set(words, key.protocol());
        Row::physTable(control).set(words, Row::protocolTable);
        Row::pipeline(control).set(words, pipelineBit());
        Row::writeStrobe(control).set(words, 1);
        return row;
    }

    ProtocolRemapResult decode(Copy /*copy*/, ProtocolRemapKey const& /*key*/,
                               U32 const* words) const override {
        return ProtocolRemapResult(static_cast<U8>(Row::readBack.get(words)));
    }
};

}  // namespace

Belmo::String ProtocolRemapResult::resultString() const {
    return Sorn::_fmt("remappedProtocol: %d ", remappedProtocol_);
}

ProtocolRemapTable::~ProtocolRemapTable() = default;

void ProtocolRemapTable::handleEntry(ProtocolRemapKey const& key) {
    if (initialized()) SORN_TRACE(handle, 9, "Set hwTableEntry key: {}", key.protocol());
    PlainTable::handleEntry(key);
}

Belmo::Ptr<ProtocolRemapConvertor> ProtocolRemapTable::profileConvertorFactory() const {
    return Belmo::make<ProtocolRemapConvertorAll>();
}

Belmo::Ptr<ProtocolRemapTable> ProtocolRemapTableIs(Belmo::String const& name, U8 pipeline) {
    return Belmo::make<ProtocolRemapTable>(name, pipeline);
}

Belmo::Ptr<ProtocolRemapTable> protocolRemapTableFactory(Belmo::String const& name, U8 pipeline) {
    return ProtocolRemapTableIs(name, pipeline);
}

}  // namespace NerioSwitchTable
