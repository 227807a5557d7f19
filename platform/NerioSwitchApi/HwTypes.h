#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "Belmo/RangedIndex.h"
#include "Belmo/Types.h"

namespace NerioSwitchApi {

/** Number of a hardware table inside one convertor. */
using HwTableId = U32;
/** Row of a hardware table. */
using HwIndex = U32;

/** Words that a hardware entry holds at most, shadow-only words included. */
inline constexpr std::size_t maxEntryWords = 8;

/** Position of a 32-bit word within a hardware entry, 0 to 7. */
BELMO_INDEX(NerioSwitchApi, DataArrayIndex, U8, min, 0, max, maxEntryWords - 1, min);

/** How a table is brought up: over a chip whose contents do not count, or over live hardware. */
enum class StartMode : U8 { cold, warm };

/** State of the hardware at the time its tables are created. Tables only pass it on. */
enum class TableState : U8 { reset, live };

/** One hardware entry: its row and its words. Made with `noIndex` it is an empty holder. */
class HwEntryConfig {
public:
    static constexpr HwIndex noIndex = 0xFFFFFFFF;

    explicit constexpr HwEntryConfig(HwIndex index) : index_(index) {}
    constexpr HwEntryConfig(HwIndex index, std::span<U32 const> words) : index_(index) {
        for (std::size_t i = 0; i < words.size(); ++i)
            dataIs(i, words[i]);
    }
    /** Of all eight words at once, of which those from `size` on are 0. */
    constexpr HwEntryConfig(HwIndex index, std::span<U32 const, maxEntryWords> words, U8 size)
        : index_(index), size_(size) {
        std::copy_n(words.data(), maxEntryWords, words_.data());
    }

    constexpr HwIndex index() const { return index_; }
    /** Sets one word; the entry then has at least that many. A position of 8 or more throws. */
    constexpr void dataIs(DataArrayIndex position, U32 word) {
        words_[position.value()] = word;
        if (position.value() >= size_) size_ = static_cast<U8>(position.value() + 1);
    }
    /** A word of the entry; words that were never set read as 0. */
    constexpr U32 data(DataArrayIndex position) const { return words_[position.value()]; }
    constexpr U8 size() const { return size_; }
    constexpr std::span<U32 const> words() const { return {words_.data(), size_}; }

    friend constexpr bool operator==(HwEntryConfig const&, HwEntryConfig const&) = default;

private:
    HwIndex index_;
    U8 size_ = 0;
    std::array<U32, maxEntryWords> words_{};
};

}  // namespace NerioSwitchApi
