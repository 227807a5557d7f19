#include "NerioSwitchTable/NerioTablePortConfig.h"

#include "Sorn/Format.h"
#include "Sorn/Trace.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle trace("NerioTablePortConfig");

/** The mode's name, or its number, in six columns. */
Belmo::String paddedMode(PortConfigMode mode) {
    return Sorn::_fmt("%-6s", Sorn::text(mode).c_str());
}

/** The one convertor of this table, for every profile. */
class PortConfigConvertorLayer2All final
    : public PlainPortConvertor<PortConfigKey, PortConfigResult, PortConfigRow::words> {
public:
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(NerioSwitchApi::HwTableId /*id*/) const override {
        return {NerioSwitchApi::rowLayout(PortConfigRow::words,
                                          NerioSwitchApi::rowFields(PortConfigRow::fields))};
    }

protected:
    char const* stem() const override { return "PortConfig"; }

    Belmo::String registerOfPort(U32 port) const override {
        return Sorn::_fmt(profile()->vlanRegVer > 1 ? "egress/port[%d]/vlan_cfg" : "egress/port[%d]/cfg",
                          port);
    }

    RowWords encode(PortConfigResult const& result) const override {
        RowWords words{};
        PortConfigRow::portMode.set(words.data(), static_cast<U32>(result.portMode()));
        PortConfigRow::txDisabled.set(words.data(), result.txDisabled());
        PortConfigRow::l2ForwardingDisabled.set(words.data(), result.l2ForwardingDisabled());
        return words;
    }

    PortConfigResult decode(U32 word) const override {
        // A mode of 3 has no name, but hardware can hold it, so it is kept as it is.
        return PortConfigResult()
            .portModeIs(static_cast<PortConfigMode>(PortConfigRow::portMode.get(&word)))
            .txDisabledIs(PortConfigRow::txDisabled.get(&word) != 0)
            .l2ForwardingDisabledIs(PortConfigRow::l2ForwardingDisabled.get(&word) != 0);
    }

    void traceMissingRow(NerioSwitchApi::HwIndex row) const override {
        SORN_TRACE(trace, 9, "pipe {} index {} does not exist.", 1, row);
    }
};

}  // namespace

Belmo::String PortConfigResult::resultString() const {
    return Sorn::_fmt("portMode:%s txDisabled:%s l2ForwardingDisabled:%s", paddedMode(portMode()).c_str(),
                      Sorn::paddedBool(txDisabled()), Sorn::paddedBool(l2ForwardingDisabled()));
}

PortConfigTable::~PortConfigTable() = default;

Belmo::Ptr<PortConfigConvertor> PortConfigTable::profileConvertorFactory() const {
    return Belmo::make<PortConfigConvertorLayer2All>();
}

Belmo::Ptr<PortConfigTable> PortConfigTableIs(Belmo::String const& name) {
    return Belmo::make<PortConfigTable>(name);
}

Belmo::Ptr<PortConfigTable> portConfigTableFactory(Belmo::String const& name) {
    return PortConfigTableIs(name);
}

}  // namespace NerioSwitchTable
