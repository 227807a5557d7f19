#include "agent/Verify.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <optional>

namespace Agent {

using NerioSwitchApi::HwEntryConfig;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::HwTableConfig;

namespace {

using Found = std::optional<Belmo::String>;

Found againstSoftware(HwEntryConfig const& wanted, HwEntryConfig const& stored) {
    for (U8 word = 0; word < std::min(wanted.size(), stored.size()); ++word) {
        if (stored.data(word) != wanted.data(word)) {
            return fmt::format("word {}: software wants 0x{:08X}, the shadow holds 0x{:08X}", word,
                               wanted.data(word), stored.data(word));
        }
    }
    if (wanted.size() == stored.size()) return std::nullopt;
    return fmt::format("software wants {} words, the shadow holds {}", wanted.size(), stored.size());
}

using Words = std::array<U32, NerioSwitchApi::maxEntryWords>;

/** The registers that words of a row can go to. */
std::span<NerioSwitchApi::RegisterHandle const> registersOf(HwTableConfig const& table, HwIndex row) {
    auto const registers = table.registersOf(row);
    return registers.first(std::min(registers.size(), std::size_t{NerioSwitchApi::maxEntryWords}));
}

/** A row as the chip holds it, as far as it has registers. */
Words heldWords(HwTableConfig const& table, HwEntryConfig const& stored, RowReader const& readRow) {
    auto const registers = registersOf(table, stored.index());
    Words words{};
    if (table.rowsShareRegisters()) {
        std::copy(stored.words().begin(), stored.words().end(), words.begin());
        readRow(registers, std::span(words).first(stored.size()));
        return words;
    }
    for (std::size_t word = 0; word < registers.size(); ++word) {
        if (registers[word].exists()) words[word] = table.bus().read(registers[word]);
    }
    return words;
}

Found againstChip(HwTableConfig const& table, HwEntryConfig const& stored, RowReader const& readRow) {
    auto const registers = registersOf(table, stored.index());
    auto const words = heldWords(table, stored, readRow);
    for (U8 word = 0; word < static_cast<U8>(registers.size()); ++word) {
        if (!registers[word].exists()) continue;
        U32 const held = words[word];
        if (word >= stored.size()) {
            return fmt::format("word {}: the shadow holds no word, the chip 0x{:08X}", word, held);
        }
        if (held != stored.data(word)) {
            return fmt::format("word {}: the shadow holds 0x{:08X}, the chip 0x{:08X}", word,
                               stored.data(word), held);
        }
    }
    return std::nullopt;
}

Found onRow(HwTableConfig const& table, HwIndex row, std::optional<HwEntryConfig> const& wanted,
            RowReader const& readRow) {
    try {
        auto const stored = table.storedEntry(row);
        if (!stored) return "the shadow does not hold the row";
        auto const found = wanted ? againstSoftware(*wanted, *stored) : std::nullopt;
        bool const canRead = !table.rowsShareRegisters() || readRow;
        return found || !canRead ? found : againstChip(table, *stored, readRow);
    } catch (Belmo::Exception const& failure) {
        return failure.what();
    }
}

}  // namespace

Verification verify(NerioSwitchApi::SwTable const& table, RowReader const& readRow) {
    Verification result;
    auto const& convertor = table.profileConvertorPtr();
    if (!convertor) return result;
    for (auto const& [id, descriptor] : convertor->descriptors()) {
        auto const& config = *convertor->hwTable(id);
        for (U64 number = descriptor->firstIndex(); number <= descriptor->lastIndex(); ++number) {
            auto const row = static_cast<HwIndex>(number);
            if (auto const difference = onRow(config, row, convertor->wantedEntry(id, row), readRow))
                result.differences.push_back({descriptor->name(), row, *difference});
            ++result.rows;
        }
    }
    return result;
}

}  // namespace Agent
