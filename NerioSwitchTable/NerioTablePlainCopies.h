#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "Belmo/Assert.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTablePlain.h"

/*
 * Plain tables with one or more hardware tables, here called copies: each has rows and registers of its own,
 * its number is its `HwTableId`. `PlainCopiesConvertor` serves tables with a single copy, and tables in which
 * each key stands in chosen copies; `ReplicatedConvertor` those in which each key stands in every copy.
 */
namespace NerioSwitchTable {

/**
 * Convertor of such a table. A family creates its copies in `doCreateHwTables`, and says which row a key has,
 * how a result becomes the words of a copy's row, and back. The first `sizeWords` words of a row, at most
 * `maxWords`, are compared with the shadow and written.
 */
template <class Key, class Result, std::size_t maxWords>
class PlainCopiesConvertor : public PlainConvertor<Key, Result> {
public:
    using Copy = NerioSwitchApi::HwTableId;
    using HwIndex = NerioSwitchApi::HwIndex;
    using RowWords = std::array<U32, maxWords>;

    /** A table without copies, as chips have that lack it, takes every key. */
    void checkKey(Key const& key) const override {
        auto const row = rowOf(key);
        auto const& all = this->descriptors();
        bool const hasRow =
            std::any_of(all.begin(), all.end(), [&](auto const& each) { return each.second->hasRow(row); });
        if (!all.empty() && !hasRow) all.begin()->second->checkRow(row);
    }

    void hwTableEntryIs(Key const& key, Result const& result) override {
        if (mayWrite()) entryIsInCopies(key, result);
    }

    void initHwEntries(bool resetHw, U32 /*id*/) override {
        auto const& wanted = this->swTable().entries();
        forEachCopy([&](Copy copy) {
            forEachRow(copy, [&](HwIndex row) {
                auto const key = keyOf(row);
                auto const found = wanted.find(key);
                if (found != wanted.end()) {
                    hwTableEntryIs(key, found->second);
                } else if (resetHw || !stays(copy, row)) {
                    writeDefault(copy, row);
                }
            });
        });
    }

    void syncEntries(U32 /*id*/) override {
        forEachCopy([&](Copy copy) { syncCopy(copy); });
    }

    std::optional<NerioSwitchApi::HwEntryConfig> wantedEntry(Copy copy, HwIndex row) const override {
        auto const key = keyOf(row);
        auto const& wanted = this->swTable().entries();
        auto const found = wanted.find(key);
        if (found == wanted.end()) return std::nullopt;
        return NerioSwitchApi::HwEntryConfig(row, sized(encode(copy, key, found->second)));
    }

protected:
    explicit PlainCopiesConvertor(std::size_t sizeWords) { sizeWordsIs(sizeWords); }

    /** The row that stands for a key, in every copy that has it. */
    virtual HwIndex rowOf(Key const& key) const = 0;
    /** Throws the key type's range failure for a row beyond it. */
    virtual Key keyOf(HwIndex row) const = 0;
    virtual RowWords encode(Copy copy, Key const& key, Result const& result) const = 0;
    /** The result that the words of a copy's row stand for. */
    virtual Result decode(Copy copy, Key const& key, U32 const* words) const = 0;
    /** What a row holds for a key without an entry; a row that decodes to it makes none. */
    virtual Result defaultResult(Key const& /*key*/) const { return Result(); }
    virtual Sorn::TraceHandle const& trace() const = 0;

    /** Writes an entry: to every copy, unless a family chooses. */
    virtual void entryIsInCopies(Key const& key, Result const& result) {
        forEachCopy([&](Copy copy) { writeIfDifferent(copy, rowOf(key), encode(copy, key, result)); });
    }
    /** Whether a warm start leaves the row of a key without an entry as it is. */
    virtual bool stays(Copy copy, HwIndex row) const {
        return this->hwTable(copy)->storedWords(row) != nullptr;
    }
    /** Writes the row of a key without an entry to this copy alone, whatever the shadow holds. */
    virtual void writeDefault(Copy copy, HwIndex row) {
        auto const key = keyOf(row);
        write(copy, row, encode(copy, key, defaultResult(key)));
    }
    /** Takes what a copy's row says into the software table. */
    virtual void readBack(Copy copy, Key const& key, U32 const* words) {
        adopt(key, decode(copy, key, words));
    }
    /** Traces, at level 9, that a copy's shadow lacks a row. */
    virtual void traceMissingRow(Copy copy, HwIndex row) const {
        SORN_TRACE(trace(), 9, "table {} index {} does not exist.", copy, row);
    }

    std::size_t sizeWords() const { return sizeWords_; }
    void sizeWordsIs(std::size_t sizeWords) {
        BELMO_ASSERT(sizeWords <= maxWords);
        sizeWords_ = sizeWords;
    }
    /** Whether the hardware tables exist and may be written: the first one speaks for all. */
    bool mayWrite() const {
        auto const first = this->descriptors().find(0);
        return first != this->descriptors().end() && first->second->initialized();
    }

    /** The name of a hardware table of this table; `number` tells those of one stem apart. */
    Belmo::String copyName(Belmo::String const& stem, U32 number) const {
        return NerioSwitchApi::SwTable::hwTableName(this->swTable().name(), this->profile()->profileName(),
                                                    stem, number);
    }
    /** Creates a copy of rows with registers of their own. A copy that cannot be found then is an assertion
     * of that text. */
    void createCopy(Copy copy, NerioSwitchApi::TableState state, HwIndex firstRow, HwIndex lastRow,
                    Belmo::Ptr<NerioSwitchApi::HwTableRegisterMapping> const& mapping,
                    char const* assertion = "hwTable") {
        auto const& name = mapping->name();
        auto const descriptor = this->descriptorConfig().hwTableDescIs(
            name, copy, this->profile()->profileName(), state, firstRow, lastRow, mapping);
        auto const hwTable = this->collection().hwTable(name);
        BELMO_ASSERT_TEXT(hwTable, assertion);
        this->hwTableIs(copy, hwTable->config());
        this->descriptorIs(copy, descriptor);
    }
    /** The same of rows that all go through these registers. */
    void createCopy(Copy copy, NerioSwitchApi::TableState state, HwIndex firstRow, HwIndex lastRow,
                    Belmo::String const& name,
                    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> const& registers,
                    char const* assertion = "hwTable") {
        createCopy(copy, state, firstRow, lastRow,
                   Belmo::make<NerioSwitchApi::HwTableRegisterMappingConst>(name, registers), assertion);
    }

    /** Whether the shadow holds the row with these words. */
    bool holds(Copy copy, HwIndex row, std::span<U32 const> words) const {
        auto const* stored = this->hwTable(copy)->storedWords(row);
        return stored != nullptr && std::equal(words.begin(), words.end(), stored);
    }
    void write(Copy copy, HwIndex row, RowWords const& words) {
        this->hwTable(copy)->entryIs(NerioSwitchApi::HwEntryConfig(row, sized(words)));
    }
    void writeIfDifferent(Copy copy, HwIndex row, RowWords const& words) {
        if (!holds(copy, row, sized(words))) write(copy, row, words);
    }
    /** A result that differs from the default one becomes an entry. */
    void adopt(Key const& key, Result const& result) {
        if (result != defaultResult(key)) this->swTable().entryIs(key, result);
    }
    /** Reads one copy back, row by row. */
    void syncCopy(Copy copy) {
        forEachRow(copy, [&](HwIndex row) {
            auto const key = keyOf(row);
            if (auto const* words = this->hwTable(copy)->storedWords(row)) {
                readBack(copy, key, words);
            } else {
                traceMissingRow(copy, row);
            }
        });
    }

    template <class Visit>
    void forEachCopy(Visit&& visit) const {
        for (auto const& [copy, table] : this->hwTables())
            visit(copy);
    }
    template <class Visit>
    void forEachRow(Copy copy, Visit&& visit) const {
        auto const& descriptor = *this->descriptor(copy);
        for (U64 row = descriptor.firstIndex(); row <= descriptor.lastIndex(); ++row)
            visit(static_cast<HwIndex>(row));
    }

private:
    std::span<U32 const> sized(RowWords const& words) const {
        return {words.data(), std::min(sizeWords_, maxWords)};
    }

    std::size_t sizeWords_ = 0;
};

/**
 * Convertor of a table in which each key stands in every copy. Read-back takes the first copy's word, and
 * marks a key of which a further copy says something else, or was not reached behind a row that is missing.
 */
template <class Key, class Result, std::size_t maxWords>
class ReplicatedConvertor : public PlainCopiesConvertor<Key, Result, maxWords> {
public:
    using Copies = PlainCopiesConvertor<Key, Result, maxWords>;
    using typename Copies::Copy;
    using typename Copies::HwIndex;

    void syncEntries(U32 /*id*/) override {
        if (this->hwTables().empty()) return;
        auto const& wanted = this->swTable().entries();
        this->forEachRow(0, [&](HwIndex row) {
            auto const key = this->keyOf(row);
            auto const found = wanted.find(key);
            if (found != wanted.end() && this->mayWrite()) {
                this->hwTableEntryIs(key, found->second);
            } else {
                readBackCopies(key, rowsOf(row));
            }
        });
    }

protected:
    using Copies::Copies;

    /** The words of one row in each copy, by the copy's number; null from the first copy on that lacks it. */
    using CopyRows = std::span<U32 const* const>;

    /** Takes what the copies say into the software table. */
    virtual void readBackCopies(Key const& key, CopyRows rows) {
        auto const first = decoded(0, key, rows[0]);
        for (std::size_t copy = 1; copy < rows.size(); ++copy) {
            if (rows[copy] != nullptr && decoded(copy, key, rows[copy]) == first) continue;
            this->swTable().hwInconsistentEntryIs(key, true);
            break;
        }
        this->adopt(key, first);
    }

private:
    CopyRows rowsOf(HwIndex row) {
        rows_.assign(this->hwTables().size(), nullptr);
        for (std::size_t copy = 0; copy < rows_.size(); ++copy) {
            rows_[copy] = this->hwTable(static_cast<Copy>(copy))->storedWords(row);
            if (rows_[copy] != nullptr) continue;
            this->traceMissingRow(static_cast<Copy>(copy), row);
            break;
        }
        return rows_;
    }
    Result decoded(std::size_t copy, Key const& key, U32 const* words) const {
        return words == nullptr ? this->defaultResult(key)
                                : this->decode(static_cast<Copy>(copy), key, words);
    }

    std::vector<U32 const*> rows_;
};

}  // namespace NerioSwitchTable
