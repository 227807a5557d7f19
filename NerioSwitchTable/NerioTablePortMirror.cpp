#include "NerioSwitchTable/NerioTablePortMirror.h"

#include <fmt/format.h>

#include "Belmo/Exceptions.h"
#include "Sorn/Format.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioPortGeometry.h"
#include "NerioSwitchTable/NerioTablePlainCopies.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

using NerioSwitch::ChipPortId;
using NerioSwitch::IngressPortMask;
using NerioSwitchApi::maxEntryWords;

namespace {

Sorn::TraceHandle handle("NerioTablePortMirror");

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr TableIndex tableIndex = 5;

/** The one convertor of this table. A port's row stands in the table that serves the port's pipeline alone.
 */
class RxPortMirrorConvertorLayer2All final
    : public PlainCopiesConvertor<RxPortMirrorKey, RxPortMirrorResult, maxEntryWords> {
public:
    RxPortMirrorConvertorLayer2All() : PlainCopiesConvertor(0) {}

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        row_ = RxPortMirrorRow(profile()->numPorts);
        for (Copy copy = 0; copy < profile()->numTables(l2); ++copy) {
            auto const [first, last] = portRangeOfL2Table(profile().get(), copy);
            createCopy(copy, state, first, last, registersOf(copy, first, last));
        }
        sizeWordsIs(std::min<std::size_t>(row_.numRegsPerPort(), maxEntryWords));
    }

    void checkKey(RxPortMirrorKey const& key) const override {
        if (!descriptors().empty()) descriptor(copyOf(key))->checkRow(rowOf(key));
    }

    /** The one table that a row stands in speaks for itself. */
    void hwTableEntryIs(RxPortMirrorKey const& key, RxPortMirrorResult const& result) override {
        if (!descriptors().empty() && descriptor(copyOf(key))->initialized()) entryIsInCopies(key, result);
    }

    /** Of as many words as the row has: a start writes fewer than an entry does. */
    std::optional<NerioSwitchApi::HwEntryConfig> wantedEntry(Copy copy, HwIndex row) const override {
        auto const key = keyOf(row);
        if (!swTable().entryHas(key) || copyOf(key) != copy) return std::nullopt;
        auto const words = encode(copy, key, swTable().entry(key));
        auto const stored = hwTable(copy)->storedEntry(row);
        std::size_t const size = stored ? stored->size() : RxPortMirrorRow::writtenWords;
        return NerioSwitchApi::HwEntryConfig(row, std::span(words).first(size));
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        return {NerioSwitchApi::rowLayout(row_.words(), NerioSwitchApi::rowFields(row_.ports(), row_.cpu()))};
    }

protected:
    HwIndex rowOf(RxPortMirrorKey const& key) const override { return key.chipPortId().value(); }
    RxPortMirrorKey keyOf(HwIndex row) const override { return RxPortMirrorKey(ChipPortId(row)); }
    Sorn::TraceHandle const& trace() const override { return handle; }

    void entryIsInCopies(RxPortMirrorKey const& key, RxPortMirrorResult const& result) override {
        auto const copy = copyOf(key);
        auto const words = encode(copy, key, result);
        if (holds(copy, rowOf(key), std::span(words).first(sizeWords()))) return;
        hwTable(copy)->entryIs(
            NerioSwitchApi::HwEntryConfig(rowOf(key), std::span(words).first(RxPortMirrorRow::writtenWords)));
    }

    RowWords encode(Copy /*copy*/, RxPortMirrorKey const& /*key*/,
                    RxPortMirrorResult const& result) const override {
        RowWords words{};
        row_.ports().set(words.data(), result.dstPortMask().value());
        if (row_.cpu().end() <= 32 * RxPortMirrorRow::writtenWords)
            row_.cpu().set(words.data(), result.dstPortMask().hasCpu());
        return words;
    }

    RxPortMirrorResult decode(Copy /*copy*/, RxPortMirrorKey const& /*key*/,
                              U32 const* words) const override {
        U64 const cpu = row_.cpu().get(words) != 0 ? IngressPortMask::cpu : 0;
        return RxPortMirrorResult(row_.ports().get(words) | cpu);
    }

private:
    /** The table that serves a port's pipeline; throws `Belmo::RangeException` if there is none. */
    Copy copyOf(RxPortMirrorKey const& key) const {
        U32 const port = key.chipPortId().value();
        Copy const copy = profile()->pipeToTableId(profile()->portToIngressPipeId(port), l2);
        if (!descriptors().contains(copy))
            throw Belmo::RangeException(fmt::format("chip port {} is served by no layer 2 table", port));
        return copy;
    }

    /** Each port of a table has registers of its own, the first port the first ones. */
    Belmo::Ptr<NerioSwitchApi::HwTableRegisterMapping> registersOf(Copy copy, U32 first, U32 last) const {
        auto const name = copyName(TableConstants::tableName(tableIndex), copy);
        auto const prefix = Sorn::_fmt("ingress/processor_l2_mirror_reg[%u]/", copy);
        auto mapping = Belmo::make<NerioSwitchApi::HwTableRegisterMappingColl>(name);
        U32 const perPort = row_.numRegsPerPort();
        for (U32 port = first; port <= last; ++port) {
            auto registers = Belmo::make<NerioSwitchApi::HwAddressColl>();
            for (U32 i = 0; i < perPort; ++i)
                registers->addressIs(i, prefix + Sorn::_fmt("reg[%u]", perPort * (port - first) + i));
            registers->sizeIs(static_cast<U8>(perPort));
            mapping->regsIs(port, registers);
        }
        return mapping;
    }

    RxPortMirrorRow row_{0};
};

}  // namespace

Belmo::String RxPortMirrorKey::keyString() const {
    return Sorn::_fmt("chipPortId %d", chipPortId_.value());
}

Belmo::String RxPortMirrorResult::resultString() const {
    U64 const ports = dstPortMask_.value() & (IngressPortMask::cpu - 1);
    return Sorn::_fmt("appPortMask:0x%012lx, cpu: %s", ports, dstPortMask_.hasCpu() ? "true" : "false");
}

RxPortMirrorTable::~RxPortMirrorTable() = default;

Belmo::Ptr<RxPortMirrorConvertor> RxPortMirrorTable::profileConvertorFactory() const {
    return Belmo::make<RxPortMirrorConvertorLayer2All>();
}

Belmo::Ptr<RxPortMirrorTable> RxPortMirrorTableIs(Belmo::String const& name) {
    return Belmo::make<RxPortMirrorTable>(name);
}

Belmo::Ptr<RxPortMirrorTable> rxPortMirrorTableFactory(Belmo::String const& name) {
    return RxPortMirrorTableIs(name);
}

}  // namespace NerioSwitchTable
