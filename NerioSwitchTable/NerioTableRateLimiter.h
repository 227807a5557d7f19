#pragma once

#include <array>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "NerioSwitchApi/HwRegisters.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

/*
 * Tables of rate limiters: several hardware tables, whose rows are one word with a register of its own. What
 * a limiter is told goes out whether the shadow holds it or not, so that a limit takes effect anew at every
 * start.
 */
namespace NerioSwitchTable {

/** The word of a limit: what it adds to its credit in every interval, and in what it counts. */
struct RateLimiterRow {
    static constexpr BitField increment{"increment", 0, 18};
    static constexpr BitField enabled{"enabled", 19, 1};
    static constexpr BitField scaleFactor{"scaleFactor", 20, 3};
    static constexpr std::array fields{increment, enabled, scaleFactor};
    /** The words of other rows: the interval, and a limit of chips without scale factors. */
    static constexpr BitField interval{"interval", 0, 32};
    static constexpr BitField limit{"limit", 0, 32};
};
static_assert(fieldsFit(RateLimiterRow::fields, 1) && fieldsDisjoint(RateLimiterRow::fields));

/** The registers of a block of limiters: one a row, by name under the block's prefix, which ends in a slash.
 */
class NERIO_SWITCH_TABLE_EXPORT RateLimiterRegisterMapping : public NerioSwitchApi::HwTableRegisterMapping {
public:
    ~RateLimiterRegisterMapping() override;

    Belmo::String const& prefix() const { return prefix_; }

protected:
    RateLimiterRegisterMapping(Belmo::String name, Belmo::String prefix)
        : HwTableRegisterMapping(std::move(name)), prefix_(std::move(prefix)) {}

    /** The register of that name under the prefix; without a name one address, which is empty. */
    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> addressOfLimiter(char const* registerName) const {
        return NerioSwitchApi::addressOf(registerName == nullptr ? Belmo::String() : prefix_ + registerName);
    }

private:
    Belmo::String prefix_;
};

/**
 * Convertor of a table of rate limiters. A family creates its hardware tables, and says which keys there are,
 * where each of them stands, and what a hardware table holds for an entry.
 */
template <class Key, class Entry>
class RateLimiterConvertor : public PlainConvertor<Key, Entry> {
public:
    using HwTableId = NerioSwitchApi::HwTableId;
    using HwIndex = NerioSwitchApi::HwIndex;

    /** The word of a row that carries its value. */
    static constexpr U8 dataArrayIndex = 0;

    void hwTableEntryIs(Key const& key, Entry const& entry) final { hwTableEntryIs(key, entry, true); }
    /** Writes an entry: to all rows of its key if forced, else to those that the shadow does not hold. */
    virtual void hwTableEntryIs(Key const& key, Entry const& entry, bool force) = 0;

    void initHwEntries(bool resetHw, U32 /*id*/) override {
        auto const& wanted = this->swTable().entries();
        forEachKey([&](Key const& key) {
            auto const found = wanted.find(key);
            if (found != wanted.end()) {
                hwTableEntryIs(key, found->second, true);
            } else {
                hwTableEntryIs(key, defaultEntry(key), resetHw);
            }
        });
    }

    /** The interval stands in the first row, and limits in those behind it. */
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(HwTableId id) const override {
        auto const intervalRow = this->descriptor(id)->firstIndex();
        auto interval =
            NerioSwitchApi::rowLayout(1, NerioSwitchApi::rowFields(RateLimiterRow::interval), "interval");
        interval.firstRow = interval.lastRow = intervalRow;
        auto limits = NerioSwitchApi::rowLayout(1, limitFields(), "limit");
        limits.firstRow = intervalRow + 1;
        limits.lastRow = this->descriptor(id)->lastIndex();
        return {std::move(interval), std::move(limits)};
    }

    std::optional<NerioSwitchApi::HwEntryConfig> wantedEntry(HwTableId id, HwIndex row) const override {
        auto const key = keyOf(id, row);
        auto const& wanted = this->swTable().entries();
        auto const found = wanted.find(key);
        if (found == wanted.end()) return std::nullopt;
        return entryOf(row, encode(id, key, found->second));
    }

protected:
    using Visit = std::function<void(Key const&)>;

    /** Visits all keys that have rows, in the order in which a start writes them. */
    virtual void forEachKey(Visit const& visit) const = 0;
    virtual Key keyOf(HwTableId id, HwIndex row) const = 0;
    /** The fields of a limit's word. */
    virtual std::vector<NerioSwitchApi::RowField> limitFields() const {
        return NerioSwitchApi::rowFields(RateLimiterRow::fields);
    }
    /** What a start writes for a key that nobody wants anything of. */
    virtual Entry defaultEntry(Key const& key) const = 0;
    /** The word that a hardware table holds for an entry. */
    virtual U32 encode(HwTableId id, Key const& key, Entry const& entry) const = 0;

    /** The word of a row as the shadow holds it, if it does. */
    std::optional<U32> storedWord(HwTableId id, HwIndex row) const {
        auto const* stored = this->hwTable(id)->storedWords(row);
        return stored == nullptr ? std::optional<U32>() : stored[dataArrayIndex];
    }
    void wordIs(HwTableId id, HwIndex row, U32 word, bool force) {
        if (force || !storedWord(id, row)) this->hwTable(id)->entryIs(entryOf(row, word));
    }
    Belmo::String hwTableName(char const* stem, HwTableId id) const {
        return NerioSwitchApi::SwTable::hwTableName(this->swTable().name(), this->profile()->profileName(),
                                                    stem, id);
    }

private:
    static NerioSwitchApi::HwEntryConfig entryOf(HwIndex row, U32 word) {
        NerioSwitchApi::HwEntryConfig entry(row);
        entry.dataIs(dataArrayIndex, word);
        return entry;
    }
};

}  // namespace NerioSwitchTable
