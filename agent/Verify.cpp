#include "agent/Verify.h"

#include <algorithm>
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

Found againstChip(HwTableConfig const& table, HwEntryConfig const& stored) {
    auto const registers = table.registersOf(stored.index());
    for (U8 word = 0; word < static_cast<U8>(registers.size()); ++word) {
        if (!registers[word].exists()) continue;
        U32 const held = table.bus().read(registers[word]);
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

Found onRow(HwTableConfig const& table, HwIndex row, std::optional<HwEntryConfig> const& wanted) {
    std::optional<HwEntryConfig> stored;
    try {
        stored = table.storedEntry(row);
    } catch (Belmo::RangeException const& failure) {
        return failure.what();
    }
    if (!stored) return "the shadow does not hold the row";
    auto const found = wanted ? againstSoftware(*wanted, *stored) : std::nullopt;
    return found || table.rowsShareRegisters() ? found : againstChip(table, *stored);
}

}  // namespace

Verification verify(NerioSwitchApi::SwTable const& table) {
    Verification result;
    auto const& convertor = table.profileConvertorPtr();
    if (!convertor) return result;
    for (auto const& [id, descriptor] : convertor->descriptors()) {
        auto const& config = *convertor->hwTable(id);
        for (U64 number = descriptor->firstIndex(); number <= descriptor->lastIndex(); ++number) {
            auto const row = static_cast<HwIndex>(number);
            if (auto const difference = onRow(config, row, convertor->wantedEntry(id, row)))
                result.differences.push_back({descriptor->name(), row, *difference});
            ++result.rows;
        }
    }
    return result;
}

}  // namespace Agent
