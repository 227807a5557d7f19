#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>

#include "NerioSwitch/Indexes.h"

#include "NerioSwitchTable/NerioPortGeometry.h"
#include "NerioSwitchTable/NerioRegPrefixUtil.h"
#include "NerioSwitchTable/NerioTablePlainCopies.h"

/*
 * What tables of a LAG per port share. A port's row stands in two places: in the copy of the layer-2 table
 * that serves its ingress pipe, which has rows for its own ports, and in a table of the CPU pipeline, which
 * has rows for all ports and comes last. Rows of a copy share its registers; the control word selects one by
 * a bit of its own.
 */
namespace NerioSwitchTable {

/** Convertor of such a table: a family says its name stem, its registers, and what rows hold. */
template <class Key, class Result, std::size_t maxWords>
class LagCopiesConvertor : public PlainCopiesConvertor<Key, Result, maxWords> {
public:
    using Copies = PlainCopiesConvertor<Key, Result, maxWords>;
    using typename Copies::Copy;
    using typename Copies::HwIndex;
    using typename Copies::RowWords;
    using Registers = Belmo::Ptr<NerioSwitchApi::HwAddressColl const>;

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        getIngressPipelineHwTables(state);
        getCpuPipelineHwTables(state);
    }

    void checkKey(Key const& key) const override {
        this->descriptor(cpuCopy())->checkRow(rowOf(key));
        auto const copy = ingressCopyOf(key);
        if (copy != cpuCopy()) this->descriptor(copy)->checkRow(rowOf(key));
    }

    std::optional<NerioSwitchApi::HwEntryConfig> wantedEntry(Copy copy, HwIndex row) const override {
        auto const key = keyOf(row);
        auto const& wanted = this->swTable().entries();
        auto const found = wanted.find(key);
        bool const stands = copy == cpuCopy() || copy == ingressCopyOf(key);
        if (found == wanted.end() || !stands) return std::nullopt;
        auto const words = this->encode(copy, key, found->second);
        auto const stored = this->hwTable(copy)->storedEntry(row);
        return stored && !differs(*stored, words) ? *stored : changed(stored, copy, row, words);
    }

protected:
    /** Rows are taken as equal if their first `comparedWords` words are. */
    explicit LagCopiesConvertor(std::size_t comparedWords)
        : Copies(maxWords), comparedWords_(comparedWords) {}

    virtual char const* stem() const = 0;
    /** The registers of a copy's rows, a word each. */
    virtual Registers ingressRegisters(Belmo::String const& prefix) const = 0;
    virtual Registers cpuRegisters(Belmo::String const& prefix) const = 0;

    void getIngressPipelineHwTables(NerioSwitchApi::TableState state) {
        for (Copy copy = 0; copy < cpuCopy(); ++copy) {
            auto const [first, last] = portRangeOfL2Table(this->profile().get(), copy);
            this->createCopy(copy, state, first, last, this->copyName(stem(), copy),
                             ingressRegisters(l2RegPrefix(*this->profile(), copy)));
        }
    }
    void getCpuPipelineHwTables(NerioSwitchApi::TableState state) {
        this->createCopy(cpuCopy(), state, 0, this->profile()->numPorts - 1u,
                         this->copyName(stem(), cpuCopy()), cpuRegisters("cpu_pipeline[0]/lag_cpu[0]/"),
                         "table");
    }

    void entryIsInCopies(Key const& key, Result const& result) override {
        ingressPipelineHwTableEntryIs(key, result);
        cpuPipelineHwTableEntryIs(key, result);
    }
    void ingressPipelineHwTableEntryIs(Key const& key, Result const& result) {
        auto const copy = ingressCopyOf(key);
        if (copy != cpuCopy()) changeIfDifferent(copy, key, result);
    }
    void cpuPipelineHwTableEntryIs(Key const& key, Result const& result) {
        changeIfDifferent(cpuCopy(), key, result);
    }

    HwIndex rowOf(Key const& key) const override { return key.portId().value(); }
    Key keyOf(HwIndex row) const override { return Key(NerioSwitch::ChipPortId(row)); }

    /** The table of the CPU pipeline. A chip without one has the table all the same. */
    Copy cpuCopy() const { return this->profile()->numTables(layout); }
    /** The bit that selects a port among those of its ingress copy; a control word may have no room for it.
     */
    U64 portSelect(Copy copy, Key const& key) const {
        U32 const position = rowOf(key) - this->descriptor(copy)->firstIndex();
        return position < 64 ? U64{1} << position : 0;
    }

private:
    static constexpr auto layout = NerioSwitch::TableLayoutEnum::tableLayoutL2;

    /** The copy that serves the port; the CPU pipeline's on a chip that has none for it. */
    Copy ingressCopyOf(Key const& key) const {
        auto const& profile = *this->profile();
        auto const pipe = profile.portToIngressPipeId(key.portId().value());
        return std::min<Copy>(profile.pipeToTableId(pipe, layout), cpuCopy());
    }
    /** The row as it was, with those words in it that go to registers. */
    NerioSwitchApi::HwEntryConfig changed(std::optional<NerioSwitchApi::HwEntryConfig> const& stored,
                                          Copy copy, HwIndex row, RowWords const& words) const {
        auto entry = stored.value_or(NerioSwitchApi::HwEntryConfig(row));
        for (std::size_t i = 0; i < this->hwTable(copy)->registersOf(row).size(); ++i)
            entry.dataIs(i, words[i]);
        return entry;
    }
    void changeIfDifferent(Copy copy, Key const& key, Result const& result) {
        auto& table = *this->hwTable(copy);
        auto const row = rowOf(key);
        auto const words = this->encode(copy, key, result);
        auto const stored = table.storedEntry(row);
        if (!stored || differs(*stored, words)) table.entryIs(changed(stored, copy, row, words));
    }
    bool differs(NerioSwitchApi::HwEntryConfig const& stored, RowWords const& words) const {
        for (std::size_t i = 0; i < comparedWords_; ++i) {
            if (stored.data(i) != words[i]) return true;
        }
        return false;
    }

    std::size_t const comparedWords_;
};

}  // namespace NerioSwitchTable
