#include "NerioSwitchTable/NerioTableLagMembership.h"

#include "Belmo/Assert.h"
#include "Pairlog/Pairlog.h"
#include "Sorn/Format.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTableLagCopies.h"

namespace Sorn {

template <>
void parseAttributes(CharRange& /*range*/, NerioSwitchTable::LagMembershipResult& /*object*/) {
    BELMO_ASSERT_TEXT(false, "\"No String constructor for LagMembershipResult - has collection\" == nullptr");
}

}  // namespace Sorn

namespace NerioSwitchTable {

using NerioSwitch::ChipPortId;

namespace {

Sorn::TraceHandle handle("NerioTableLagMembership");

/** The one convertor of this table, for every profile. */
class LagMembershipConvertorLayer2All final
    : public LagCopiesConvertor<LagMembershipKey, LagMembershipResult, LagMembershipRow::words> {
public:
    LagMembershipConvertorLayer2All() : LagCopiesConvertor(LagMembershipRow::words) {}

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        SORN_TRACE(handle, 9, "doCreateHwTables tableState: {}", static_cast<U32>(state));
        LagCopiesConvertor::doCreateHwTables(state);
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy copy) const override {
        auto fields = copy == cpuCopy() ? NerioSwitchApi::rowFields(LagMembershipRow::cpuFields)
                                        : NerioSwitchApi::rowFields(LagMembershipRow::ingressFields);
        return {NerioSwitchApi::rowLayout(LagMembershipRow::words, std::move(fields))};
    }

protected:
    Sorn::TraceHandle const& trace() const override { return handle; }
    char const* stem() const override { return "LagMembership"; }
    Registers ingressRegisters(Belmo::String const& prefix) const override { return registers(prefix); }
    Registers cpuRegisters(Belmo::String const& prefix) const override { return registers(prefix); }

    RowWords encode(Copy copy, LagMembershipKey const& key,
                    LagMembershipResult const& result) const override {
        auto words = withoutPorts(copy, key, result.lagGroupId());
        U64 mask = 0;
        for (U32 port = 0; port < profile()->numPorts; ++port)
            mask |= U64{result.port(ChipPortId(port))} << port;
        LagMembershipRow::ports0To31.set(words.data(), mask);
        LagMembershipRow::ports32To63.set(words.data(), mask >> 32);
        return words;
    }
    /** A row of an ingress copy has no group. */
    LagMembershipResult decode(Copy copy, LagMembershipKey const& /*key*/, U32 const* words) const override {
        U64 const mask = LagMembershipRow::ports0To31.get(words) | LagMembershipRow::ports32To63.get(words)
                                                                       << 32;
        LagMembershipResult result;
        if (copy == cpuCopy()) result.lagGroupIdIs(static_cast<U32>(LagMembershipRow::lagGroupId.get(words)));
        for (U32 port = 0; port < profile()->numPorts; ++port)
            result.portIs(ChipPortId(port), (mask >> port & 1) != 0);
        return result;
    }

    void writeDefault(Copy copy, HwIndex row) override {
        write(copy, row, withoutPorts(copy, keyOf(row), LagMembershipResult::noGroup));
    }

    /** Ingress copies are the truth; the CPU pipeline's table comes last and is held against them. */
    void readBack(Copy copy, LagMembershipKey const& key, U32 const* words) override {
        auto const result = decode(copy, key, words);
        bool const hasPorts = (words[0] | words[1]) != 0;
        if (copy != cpuCopy()) {
            if (hasPorts) swTable().entryIs(key, result);
            return;
        }
        bool const isWanted = swTable().entryHas(key);
        bool const agrees = hasPorts ? isWanted && swTable().entry(key) == result : !isWanted;
        if (!agrees) swTable().hwInconsistentEntryIs(key, true);
    }

private:
    static Registers registers(Belmo::String const& prefix) {
        return NerioSwitchApi::addressesOf(prefix, {"lag_mask_data0", "lag_mask_data1", "lag_ctl"});
    }
    RowWords withoutPorts(Copy copy, LagMembershipKey const& key, U32 lagGroupId) const {
        RowWords words{};
        if (copy == cpuCopy()) {
            LagMembershipRow::strobe.set(words.data(), 1);
            words[LagMembershipRow::controlWord] |= lagGroupId;
        } else {
            LagMembershipRow::portSelect.set(words.data(), portSelect(copy, key));
        }
        return words;
    }
};

}  // namespace

bool LagMembershipResult::port(ChipPortId port) const {
    auto const found = port_.find(port);
    return found != port_.end() && found->second;
}

LagMembershipResult& LagMembershipResult::portIs(ChipPortId port, bool isMember) {
    port_[port] = isMember;
    return *this;
}

LagMembershipResult& LagMembershipResult::portDel(ChipPortId port) {
    port_.erase(port);
    return *this;
}

LagMembershipResult& LagMembershipResult::portDelAll() {
    port_.clear();
    return *this;
}

Belmo::String LagMembershipResult::resultString() const {
    Belmo::String text;
    for (auto const& [port, isMember] : port_) {
        if (isMember) text += Sorn::_fmt("%2d ", port.value());
    }
    return text;
}

LagMembershipTable::~LagMembershipTable() = default;

void LagMembershipTable::handleEntry(LagMembershipKey const& key) {
    if (initialized()) {
        PAIRLOG(handle, 9, "Set hwTableEntry key: {} ports: {}", key.portId().value(),
                entry(key).resultString());
    }
    PlainTable::handleEntry(key);
}

Belmo::Ptr<LagMembershipConvertor> LagMembershipTable::profileConvertorFactory() const {
    return Belmo::make<LagMembershipConvertorLayer2All>();
}

Belmo::Ptr<LagMembershipTable> LagMembershipTableIs(Belmo::String const& name) {
    return Belmo::make<LagMembershipTable>(name);
}

Belmo::Ptr<LagMembershipTable> lagMembershipTableFactory(Belmo::String const& name) {
    return LagMembershipTableIs(name);
}

}  // namespace NerioSwitchTable
