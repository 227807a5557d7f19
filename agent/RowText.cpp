#include "agent/RowText.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace Agent {

namespace {

using Words = std::array<U32, NerioSwitchApi::maxEntryWords>;

constexpr U32 bitsOfWord = 32;
constexpr U32 widestDecimal = 16;

/** A row's words, filled up with zeros. */
Words whole(std::span<U32 const> words) {
    Words all{};
    std::copy_n(words.begin(), std::min(words.size(), all.size()), all.begin());
    return all;
}

bool bitAt(std::span<U32 const> words, U32 bit) {
    return bit / bitsOfWord < words.size() && (words[bit / bitsOfWord] >> bit % bitsOfWord & 1) != 0;
}

bool hasBit(RowLayout const& layout, U32 bit) {
    return std::ranges::any_of(
        layout.fields, [bit](RowField const& field) { return field.first <= bit && bit < field.end(); });
}

/** The bits in which rows differ that no field of the layout has, a text for each run of them in a word. */
std::vector<Belmo::String> differencesOutside(RowLayout const& layout, Words const& expected,
                                              Words const& held) {
    std::vector<Belmo::String> texts;
    for (U32 word = 0; word < expected.size(); ++word) {
        U32 bits = expected[word] ^ held[word];
        for (U32 bit = 0; bit < bitsOfWord; ++bit) {
            if (hasBit(layout, bitsOfWord * word + bit)) bits &= ~(U32{1} << bit);
        }
        if (bits == 0) continue;
        texts.push_back(fmt::format("bits of no field in word {}: 0x{:08X} instead of 0x{:08X}", word,
                                    held[word] & bits, expected[word] & bits));
    }
    return texts;
}

std::vector<Belmo::String> differencesOfFields(RowLayout const& layout, Words const& expected,
                                               Words const& held) {
    std::vector<Belmo::String> texts;
    for (auto const& field : layout.fields) {
        U64 const wanted = valueIn(field, expected);
        U64 const found = valueIn(field, held);
        if (wanted == found) continue;
        texts.push_back(fmt::format("{}: {} instead of {}", field.name, valueText(field, found),
                                    valueText(field, wanted)));
    }
    return texts;
}

std::vector<Belmo::String> differencesOfWords(Words const& expected, Words const& held) {
    std::vector<Belmo::String> texts;
    for (std::size_t word = 0; word < expected.size(); ++word) {
        if (expected[word] != held[word])
            texts.push_back(
                fmt::format("word {}: 0x{:08X} instead of 0x{:08X}", word, held[word], expected[word]));
    }
    return texts;
}

}  // namespace

RowLayout const* layoutOf(std::vector<RowLayout> const& layouts, std::span<U32 const> words,
                          NerioSwitchApi::HwIndex row) {
    auto const all = whole(words);
    auto const found = std::ranges::find_if(layouts, [&](RowLayout const& layout) {
        bool const ofAllRows = layout.firstRow == 0 && layout.lastRow == RowLayout().lastRow;
        bool const ofThisRow = row != anyRow && layout.firstRow <= row && row <= layout.lastRow;
        return (ofAllRows || ofThisRow) && (!layout.holds || layout.holds(all));
    });
    return found == layouts.end() ? nullptr : &*found;
}

U64 valueIn(RowField const& field, std::span<U32 const> words) {
    U64 value = 0;
    for (U32 bit = 0; bit < field.width; ++bit)
        value |= U64{bitAt(words, field.first + bit)} << bit;
    return value;
}

Belmo::String valueText(RowField const& field, U64 value) {
    return field.width <= widestDecimal ? fmt::format("{}", value) : fmt::format("0x{:X}", value);
}

Belmo::String bitsText(U32 first, U32 width) {
    U32 const last = first + width - 1;
    U32 const firstWord = first / bitsOfWord;
    U32 const lastWord = last / bitsOfWord;
    auto const word = firstWord == lastWord       ? fmt::format("word {}", firstWord)
                      : firstWord + 1 == lastWord ? fmt::format("words {} and {}", firstWord, lastWord)
                                                  : fmt::format("words {} to {}", firstWord, lastWord);
    if (width == 1) return fmt::format("{}, bit {}", word, first % bitsOfWord);
    return fmt::format("{}, bits {}:{}", word, last - bitsOfWord * firstWord, first % bitsOfWord);
}

Belmo::String differenceText(std::vector<RowLayout> const& layouts, std::span<U32 const> expected,
                             std::span<U32 const> held, NerioSwitchApi::HwIndex row) {
    auto const wanted = whole(expected);
    auto const found = whole(held);
    auto const* layout = layoutOf(layouts, wanted, row);
    std::vector<Belmo::String> texts;
    if (layout == nullptr) {
        texts = differencesOfWords(wanted, found);
    } else {
        auto const* heldLayout = layoutOf(layouts, found, row);
        if (heldLayout != nullptr && heldLayout->name != layout->name)
            texts.push_back(fmt::format("form: {} instead of {}", heldLayout->name, layout->name));
        std::ranges::move(differencesOfFields(*layout, wanted, found), std::back_inserter(texts));
        std::ranges::move(differencesOutside(*layout, wanted, found), std::back_inserter(texts));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace Agent
