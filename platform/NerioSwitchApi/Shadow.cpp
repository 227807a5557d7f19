#include "NerioSwitchApi/Shadow.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <fmt/format.h>
#include <utility>
#include <vector>
#include <xxhash.h>

#include "Belmo/Assert.h"

namespace NerioSwitchApi {

namespace {

/** No state of a row. */
constexpr U8 damaged = 0xFF;

void stateIs(ShadowRow& row, U8 state) {
    // The process can be killed between any two stores, and what it stored is what the next one finds. The
    // fences keep the compiler from moving stores of the row across that of its state; the machine makes
    // stores visible that it has retired.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    std::atomic_ref(row.state).store(state, std::memory_order_release);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void stateIs(ShadowRow& row, ShadowRowState state) {
    stateIs(row, static_cast<U8>(state));
}

U32 checksumOf(ShadowRow const& row, HwIndex index) {
    U64 const seed = U64{index} << 32 | U32{row.reserved} << 8 | row.size;
    return static_cast<U32>(XXH3_64bits_withSeed(row.words, sizeof(row.words), seed));
}

bool isZero(ShadowRow const& row) {
    U32 bits = row.state | U32{row.size} | U32{row.reserved} | row.checksum;
    for (U32 const word : row.words)
        bits |= word;
    return bits == 0;
}

void wordsAre(ShadowRow& row, std::span<U32 const> words) {
    std::size_t const kept = std::min(words.size(), maxEntryWords);
    // Two at a time: the checksum soon reads them so, and a read that is wider than the store before it
    // waits.
    for (std::size_t i = 0; i < maxEntryWords; i += 2) {
        U32 const pair[] = {i < kept ? words[i] : 0, i + 1 < kept ? words[i + 1] : 0};
        std::memcpy(row.words + i, pair, sizeof(pair));
    }
    row.size = static_cast<U8>(std::min<std::size_t>(words.size(), 0xFF));
    row.reserved = 0;
}

void completedIs(ShadowRow& row, HwIndex index) {
    row.checksum = checksumOf(row, index);
    stateIs(row, ShadowRowState::written);
}

[[noreturn, gnu::cold]] void throwTooManyWords(std::size_t words) {
    throw Belmo::RangeException(
        fmt::format("an array of {} data words is longer than the limit of {}", words, maxEntryWords));
}

[[noreturn, gnu::cold]] void throwOutside() {
    throw Belmo::RangeException(
        "NerioSwitchApi::HwIndex::value < NerioSwitchApi::ShadowTable::firstIndex or > "
        "NerioSwitchApi::ShadowTable::lastIndex not allowed");
}

[[noreturn, gnu::cold]] void throwCorrupt(Belmo::String const& table, HwIndex index, char const* reason) {
    throw Belmo::CorruptionDetectedException(
        fmt::format("row {} of the shadow of \"{}\" is corrupt: {}", index, table, reason));
}

}  // namespace

ShadowException::~ShadowException() = default;

ShadowTable::ShadowTable(Belmo::String name, HwIndex firstIndex, HwIndex lastIndex, ShadowRow* rows)
    : name_(std::move(name)), firstIndex_(firstIndex), lastIndex_(lastIndex), rows_(rows) {}

ShadowTable::~ShadowTable() = default;

ShadowRow const* ShadowTable::held(HwIndex index) const {
    if (index < firstIndex_ || index > lastIndex_) return nullptr;
    ShadowRow const& found = rows_[index - firstIndex_];
    switch (static_cast<ShadowRowState>(found.state)) {
        case ShadowRowState::written:
            if (found.checksum != checksumOf(found, index)) throwCorrupt(name_, index, "wrong checksum");
            if (found.size > maxEntryWords) throwTooManyWords(found.size);
            return &found;
        case ShadowRowState::absent:
            if (!isZero(found)) throwCorrupt(name_, index, "contents without a state");
            return nullptr;
        case ShadowRowState::intended:
            return nullptr;
    }
    throwCorrupt(name_, index, "unknown state");
}

std::optional<HwEntryConfig> ShadowTable::read(HwIndex index) const {
    auto const* row = held(index);
    if (row == nullptr) return std::nullopt;
    return std::optional<HwEntryConfig>(std::in_place, index, std::span(row->words), row->size);
}

ShadowRow& ShadowTable::row(HwIndex index) const {
    if (index < firstIndex_ || index > lastIndex_) throwOutside();
    return rows_[index - firstIndex_];
}

void ShadowTable::intend(HwIndex index, std::span<U32 const> words) {
    ShadowRow& target = row(index);
    if (words.size() > maxEntryWords) throwTooManyWords(words.size());
    stateIs(target, ShadowRowState::intended);
    wordsAre(target, words);
}

void ShadowTable::written(HwIndex index) {
    ShadowRow& target = row(index);
    BELMO_ASSERT(target.state == static_cast<U8>(ShadowRowState::intended));
    completedIs(target, index);
}

void ShadowTable::doCorruptionDetected(Belmo::String const& message) {
    ++corruptionsDetected_;
    lastCorruption_ = message;
}

void ShadowTable::drop(HwIndex index) {
    ShadowRow& target = row(index);
    stateIs(target, ShadowRowState::intended);
    wordsAre(target, {});
    target.checksum = 0;
    stateIs(target, ShadowRowState::absent);
}

void ShadowTable::store(HwIndex index, std::span<U32 const> words) {
    ShadowRow& target = row(index);
    stateIs(target, ShadowRowState::intended);
    wordsAre(target, words);
    completedIs(target, index);
}

void ShadowTable::corrupt(HwIndex index) {
    stateIs(row(index), damaged);
}

ShadowStore::ShadowStore() = default;
ShadowStore::~ShadowStore() = default;

std::size_t ShadowStore::rowCount(HwIndex firstIndex, HwIndex lastIndex) {
    return firstIndex > lastIndex ? 0 : std::size_t{lastIndex} - firstIndex + 1;
}

Belmo::String ShadowStore::rowsText(HwIndex firstIndex, HwIndex lastIndex) {
    return firstIndex > lastIndex ? "none" : fmt::format("{} to {}", firstIndex, lastIndex);
}

Belmo::Ptr<ShadowTable> ShadowStore::tableIs(Belmo::String const& name, HwIndex firstIndex, HwIndex lastIndex,
                                             StartMode mode) {
    if (mode == StartMode::cold) tables_.erase(name);
    auto const known = tables_.find(name);
    if (known == tables_.end())
        return tables_.emplace(name, newTable(name, firstIndex, lastIndex, mode)).first->second;
    auto const& table = known->second;
    auto const found = rowsText(table->firstIndex(), table->lastIndex());
    auto const wanted = rowsText(firstIndex, lastIndex);
    if (found != wanted) {
        throw ShadowException(
            fmt::format("the shadow of \"{}\" has other rows: found {}, this is {}", name, found, wanted));
    }
    return table;
}

namespace {

class MemoryShadowTable final : public ShadowTable {
public:
    MemoryShadowTable(Belmo::String name, HwIndex firstIndex, HwIndex lastIndex, std::vector<ShadowRow> rows)
        : ShadowTable(std::move(name), firstIndex, lastIndex, rows.data()), rows_(std::move(rows)) {}

private:
    std::vector<ShadowRow> rows_;
};

class MemoryShadowStore final : public ShadowStore {
    Belmo::Ptr<ShadowTable> newTable(Belmo::String const& name, HwIndex firstIndex, HwIndex lastIndex,
                                     StartMode) override {
        return Belmo::make<MemoryShadowTable>(name, firstIndex, lastIndex,
                                              std::vector<ShadowRow>(rowCount(firstIndex, lastIndex)));
    }
};

}  // namespace

Belmo::Ptr<ShadowStore> memoryShadowStore() {
    return Belmo::make<MemoryShadowStore>();
}

}  // namespace NerioSwitchApi
