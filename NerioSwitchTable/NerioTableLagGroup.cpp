#include "NerioSwitchTable/NerioTableLagGroup.h"

#include "Sorn/Format.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTableLagCopies.h"

namespace Sorn {

template <>
void parseAttributes(CharRange& range, NerioSwitchTable::LagGroupResult& object) {
    bool const isNamed = range.take("NerioSwitchTable::LagGroupResult(lagGroupId=");
    try {
        object.lagGroupIdIs(parseNumber<U32>(range));
    } catch (Belmo::Exception const& failure) {
        throw Belmo::DeserializationException(
            fmt::format("NerioSwitchTable::LagGroupResult::lagGroupId: {}", failure.what()));
    }
    if (isNamed) range.expect(")");
}

}  // namespace Sorn

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle handle("NerioTableLagGroup");

/** The one convertor of this table, for every profile. */
class LagGroupConvertorLayer2All final
    : public LagCopiesConvertor<LagGroupKey, LagGroupResult, LagGroupRow::words> {
public:
    LagGroupConvertorLayer2All() : LagCopiesConvertor(1) {}

    /** The shadow of the CPU pipeline's rows has room for a control word as well. */
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        return {
            NerioSwitchApi::rowLayout(LagGroupRow::words, NerioSwitchApi::rowFields(LagGroupRow::fields))};
    }

protected:
    Sorn::TraceHandle const& trace() const override { return handle; }
    char const* stem() const override { return "LagGroup"; }
    Registers ingressRegisters(Belmo::String const& prefix) const override {
        return NerioSwitchApi::addressesOf(prefix, {"lag_group_data0", "lag_ctl"});
    }
    Registers cpuRegisters(Belmo::String const& prefix) const override {
        return NerioSwitchApi::addressesOf(prefix, {"lag_ctl"});
    }

    RowWords encode(Copy copy, LagGroupKey const& key, LagGroupResult const& result) const override {
        RowWords words{};
        LagGroupRow::lagGroupId.set(words.data(), result.lagGroupId());
        if (copy == cpuCopy()) return words;
        LagGroupRow::portSelect.set(words.data(), portSelect(copy, key));
        LagGroupRow::strobe.set(words.data(), 1);
        return words;
    }
    LagGroupResult decode(Copy /*copy*/, LagGroupKey const& /*key*/, U32 const* words) const override {
        return LagGroupResult(static_cast<U32>(LagGroupRow::lagGroupIdRead.get(words)));
    }

    /** The group goes out first, and then with a strobe that selects no port. */
    void writeDefault(Copy copy, HwIndex row) override {
        RowWords words{};
        LagGroupRow::lagGroupId.set(words.data(), LagGroupRow::noGroup);
        LagGroupRow::strobe.set(words.data(), 1);
        NerioSwitchApi::HwEntryConfig entry(row);
        for (U8 i = 0; i < LagGroupRow::words; ++i) {
            entry.dataIs(i, words[i]);
            hwTable(copy)->entryIs(entry);
        }
    }

    /** Ingress copies are the truth; the CPU pipeline's table comes last and is held against them. */
    void readBack(Copy copy, LagGroupKey const& key, U32 const* words) override {
        auto const result = decode(copy, key, words);
        bool const hasGroup = result.lagGroupId() != LagGroupRow::noGroup;
        if (copy != cpuCopy()) {
            if (hasGroup) swTable().entryIs(key, result);
            return;
        }
        bool const isWanted = swTable().entryHas(key);
        bool const agrees = hasGroup ? isWanted && swTable().entry(key) == result : !isWanted;
        if (!agrees) swTable().hwInconsistentEntryIs(key, true);
    }
};

}  // namespace

Belmo::String LagGroupResult::resultString() const {
    return Sorn::_fmt("0x%02x", lagGroupId());
}

LagGroupTable::~LagGroupTable() = default;

Belmo::Ptr<LagGroupConvertor> LagGroupTable::profileConvertorFactory() const {
    return Belmo::make<LagGroupConvertorLayer2All>();
}

Belmo::Ptr<LagGroupTable> LagGroupTableIs(Belmo::String const& name) {
    return Belmo::make<LagGroupTable>(name);
}

Belmo::Ptr<LagGroupTable> lagGroupTableFactory(Belmo::String const& name) {
    return LagGroupTableIs(name);
}

}  // namespace NerioSwitchTable
