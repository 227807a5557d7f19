#pragma once

#include <array>
#include <optional>

#include "NerioSwitch/Indexes.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTablePlain.h"

/*
 * Plain tables with one row per chip port, one register per row, and one hardware table: the row number is
 * the port number, word 0 goes to the port's register, and words behind it stay in the shadow.
 */
namespace NerioSwitchTable {

/**
 * Convertor of such a table. A family says its name stem, its register per port, and how a result becomes
 * words and back; `rowWords` words are written, and compared with the shadow before a write.
 */
template <class Key, class Result, std::size_t rowWords>
class PlainPortConvertor : public PlainConvertor<Key, Result> {
public:
    using RowWords = std::array<U32, rowWords>;

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        auto const& profile = *this->profile();
        auto const name =
            NerioSwitchApi::SwTable::hwTableName(this->swTable().name(), profile.profileName(), stem(), 0);
        auto mapping = Belmo::make<NerioSwitchApi::HwTableRegisterMappingColl>(name);
        for (U32 port = 0; port < profile.numPorts; ++port) {
            mapping->regsIs(port, NerioSwitchApi::addressOf(registerOfPort(port)));
        }
        this->createHwTable(0, state, 0, profile.numPorts - 1u, mapping);
    }

    void checkKey(Key const& key) const override { this->descriptor(0)->checkRow(rowOf(key)); }

    void hwTableEntryIs(Key const& key, Result const& result) override {
        if (!this->descriptor(0)->initialized()) return;
        auto const words = encode(result);
        auto const stored = this->hwTable(0)->storedEntry(rowOf(key));
        if (stored && sameWords(*stored, words)) return;
        write(rowOf(key), words);
    }

    void initHwEntries(bool resetHw, U32 /*id*/) override {
        forEachRow([&](NerioSwitchApi::HwIndex row) {
            auto const key = keyOf(row);
            if (this->swTable().entryHas(key)) {
                hwTableEntryIs(key, this->swTable().entry(key));
            } else if (resetHw || !this->hwTable(0)->storedEntry(row)) {
                write(row, encode(Result()));
            }
        });
    }

    void syncEntries(U32 /*id*/) override {
        forEachRow([&](NerioSwitchApi::HwIndex row) {
            auto const key = keyOf(row);
            auto const stored = this->hwTable(0)->storedEntry(row);
            if (!stored) {
                traceMissingRow(row);
                return;
            }
            auto const result = decode(stored->data(0));
            traceRow(row, result);
            if (result != Result()) this->swTable().entryIs(key, result);
        });
    }

    std::optional<NerioSwitchApi::HwEntryConfig> wantedEntry(NerioSwitchApi::HwTableId /*id*/,
                                                             NerioSwitchApi::HwIndex row) const override {
        auto const key = keyOf(row);
        if (!this->swTable().entryHas(key)) return std::nullopt;
        return NerioSwitchApi::HwEntryConfig(row, encode(this->swTable().entry(key)));
    }

protected:
    /** Constant part of the hardware table's name. */
    virtual char const* stem() const = 0;
    /** Path of the port's register. */
    virtual Belmo::String registerOfPort(U32 port) const = 0;
    virtual RowWords encode(Result const& result) const = 0;
    /** The result that word 0 of a row stands for. */
    virtual Result decode(U32 word) const = 0;
    /** Traces what a row says; most families do not. */
    virtual void traceRow(NerioSwitchApi::HwIndex /*row*/, Result const& /*result*/) const {}
    /** Traces, at level 9, that the shadow lacks a row. */
    virtual void traceMissingRow(NerioSwitchApi::HwIndex row) const = 0;

    static NerioSwitchApi::HwIndex rowOf(Key const& key) { return key.portId().value(); }
    /** Throws the port number's range failure for a row beyond it. */
    static Key keyOf(NerioSwitchApi::HwIndex row) { return Key(NerioSwitch::ChipPortId(row)); }

private:
    static bool sameWords(NerioSwitchApi::HwEntryConfig const& stored, RowWords const& words) {
        for (std::size_t i = 0; i < rowWords; ++i) {
            if (stored.data(i) != words[i]) return false;
        }
        return true;
    }

    void write(NerioSwitchApi::HwIndex row, RowWords const& words) {
        this->hwTable(0)->entryIs(NerioSwitchApi::HwEntryConfig(row, words));
    }

    template <class Visit>
    void forEachRow(Visit&& visit) const {
        auto const& descriptor = *this->descriptor(0);
        for (U64 row = descriptor.firstIndex(); row <= descriptor.lastIndex(); ++row) {
            visit(static_cast<NerioSwitchApi::HwIndex>(row));
        }
    }
};

}  // namespace NerioSwitchTable
