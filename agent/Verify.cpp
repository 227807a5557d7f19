#include "agent/Verify.h"

#include <algorithm>
#include <cstddef>
#include <fmt/format.h>
#include <optional>

namespace Agent {

using NerioSwitchApi::HwEntryConfig;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::HwTableConfig;

namespace {

std::optional<Belmo::String> againstSoftware(std::optional<HwEntryConfig> const& wanted,
                                             HwEntryConfig const& stored) {
    if (!wanted) return std::nullopt;
    for (U8 word = 0; word < wanted->size(); ++word) {
        if (stored.data(word) != wanted->data(word)) {
            return fmt::format("word {}: software wants 0x{:08X}, the shadow holds 0x{:08X}", word,
                               wanted->data(word), stored.data(word));
        }
    }
    return std::nullopt;
}

std::optional<Belmo::String> againstChip(HwTableConfig const& table, HwEntryConfig const& stored) {
    auto const registers = table.registersOf(stored.index());
    auto const words = std::min<std::size_t>(registers.size(), stored.size());
    for (std::size_t word = 0; word < words; ++word) {
        if (!registers[word].exists()) continue;
        U32 const held = table.bus().read(registers[word]);
        if (held != stored.data(word)) {
            return fmt::format("word {}: the shadow holds 0x{:08X}, the chip 0x{:08X}", word,
                               stored.data(word), held);
        }
    }
    return std::nullopt;
}

}  // namespace

Verification verify(NerioSwitchApi::SwTable const& table) {
    Verification result;
    auto const convertor = table.profileConvertorPtr();
    if (!convertor) return result;
    for (auto const& [id, descriptor] : convertor->descriptors()) {
        auto const& config = *convertor->hwTable(id);
        for (U64 number = descriptor->firstIndex(); number <= descriptor->lastIndex(); ++number) {
            auto const row = static_cast<HwIndex>(number);
            auto const stored = config.storedEntry(row);
            auto difference = stored ? againstSoftware(convertor->wantedEntry(id, row), *stored)
                                     : std::optional<Belmo::String>("the shadow does not hold the row");
            if (!difference && !config.rowsShareRegisters()) difference = againstChip(config, *stored);
            if (difference) result.differences.push_back({descriptor->name(), row, *difference});
            ++result.rows;
        }
    }
    return result;
}

}  // namespace Agent
