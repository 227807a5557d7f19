#include "agent/Verify.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <utility>

#include "agent/RowText.h"

namespace Agent {

using NerioSwitchApi::HwEntryConfig;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::HwTableConfig;
using NerioSwitchApi::HwTableId;
using NerioSwitchApi::ShadowTable;
using NerioSwitchApi::SwTableProfileConvertor;
using RowLayouts = std::vector<NerioSwitchApi::RowLayout>;

namespace {

using Found = std::optional<Belmo::String>;

using Words = std::array<U32, NerioSwitchApi::maxEntryWords>;

/** Where the rows that are looked at lie. */
struct Held {
    ShadowTable const& shadow;
    NerioSwitchApi::RegisterBus& bus;
    RowReader const& readRow;
};

/** Says in which fields words differ, behind a text that says which words do. */
Belmo::String withFields(Belmo::String text, RowLayouts const& layouts, std::span<U32 const> expected,
                         std::span<U32 const> held, HwIndex row) {
    auto const fields = differenceText(layouts, expected, held, row);
    return fields.empty() ? text : fmt::format("{} ({})", text, fields);
}

Found againstSoftware(HwEntryConfig const& wanted, HwEntryConfig const& stored, RowLayouts const& layouts) {
    for (U8 word = 0; word < std::min(wanted.size(), stored.size()); ++word) {
        if (stored.data(word) != wanted.data(word)) {
            return withFields(fmt::format("word {}: software wants 0x{:08X}, the shadow holds 0x{:08X}", word,
                                          wanted.data(word), stored.data(word)),
                              layouts, wanted.words(), stored.words(), stored.index());
        }
    }
    if (wanted.size() == stored.size()) return std::nullopt;
    return fmt::format("software wants {} words, the shadow holds {}", wanted.size(), stored.size());
}

/** The registers that words of a row can go to. */
std::span<NerioSwitchApi::RegisterHandle const> registersOf(HwTableConfig const& table, HwIndex row) {
    auto const registers = table.registersOf(row);
    return registers.first(std::min(registers.size(), std::size_t{NerioSwitchApi::maxEntryWords}));
}

/** A row as the chip holds it, as far as it has registers. */
Words heldWords(HwTableConfig const& table, HwEntryConfig const& stored, Held const& held) {
    auto const registers = registersOf(table, stored.index());
    Words words{};
    if (table.rowsShareRegisters()) {
        std::copy(stored.words().begin(), stored.words().end(), words.begin());
        held.readRow(registers, std::span(words).first(stored.size()));
        return words;
    }
    for (std::size_t word = 0; word < registers.size(); ++word) {
        if (registers[word].exists()) words[word] = held.bus.read(registers[word]);
    }
    return words;
}

Found againstChip(HwTableConfig const& table, HwEntryConfig const& stored, Held const& held,
                  RowLayouts const& layouts) {
    auto const registers = registersOf(table, stored.index());
    auto words = heldWords(table, stored, held);
    // Words that have no register stay in the shadow.
    for (U8 word = 0; word < stored.size(); ++word) {
        if (word >= registers.size() || !registers[word].exists()) words[word] = stored.data(word);
    }
    for (U8 word = 0; word < static_cast<U8>(registers.size()); ++word) {
        if (!registers[word].exists()) continue;
        if (word >= stored.size()) {
            return fmt::format("word {}: the shadow holds no word, the chip 0x{:08X}", word, words[word]);
        }
        if (words[word] != stored.data(word)) {
            return withFields(fmt::format("word {}: the shadow holds 0x{:08X}, the chip 0x{:08X}", word,
                                          stored.data(word), words[word]),
                              layouts, stored.words(), std::span(words).first(stored.size()), stored.index());
        }
    }
    return std::nullopt;
}

Found onRow(HwTableConfig const& table, HwIndex row, std::optional<HwEntryConfig> const& wanted,
            Held const& held, RowLayouts const& layouts) {
    try {
        auto const stored = held.shadow.read(row);
        if (!stored) return "the shadow does not hold the row";
        auto const found = wanted ? againstSoftware(*wanted, *stored, layouts) : std::nullopt;
        bool const canRead = !table.rowsShareRegisters() || held.readRow;
        return found || !canRead ? found : againstChip(table, *stored, held, layouts);
    } catch (Belmo::Exception const& failure) {
        return failure.what();
    }
}

/** What there is to be in a row: what software wants, or else what was written there. */
std::optional<HwEntryConfig> expectedEntry(SwTableProfileConvertor const& convertor, HwTableId id,
                                           HwIndex row) {
    auto wanted = convertor.wantedEntry(id, row);
    return wanted ? wanted : convertor.hwTable(id)->storedEntry(row);
}

template <class Visit>
void forEachRow(SwTableProfileConvertor const& convertor, Visit const& visit) {
    for (auto const& [id, descriptor] : convertor.descriptors()) {
        for (U64 number = descriptor->firstIndex(); number <= descriptor->lastIndex(); ++number)
            visit(id, *descriptor, static_cast<HwIndex>(number));
    }
}

}  // namespace

Verification verify(NerioSwitchApi::SwTable const& table, RowReader const& readRow) {
    Verification result;
    auto const& convertor = table.profileConvertorPtr();
    if (!convertor) return result;
    std::map<HwTableId, RowLayouts> layouts;
    for (auto const& [id, descriptor] : convertor->descriptors())
        layouts.emplace(id, convertor->rowLayouts(id));
    forEachRow(*convertor,
               [&](HwTableId id, NerioSwitchApi::HwTableDescriptor const& descriptor, HwIndex row) {
                   auto const& config = *convertor->hwTable(id);
                   auto const found = onRow(config, row, convertor->wantedEntry(id, row),
                                            {config.shadow(), config.bus(), readRow}, layouts.at(id));
                   if (found) result.differences.push_back({descriptor.name(), row, *found});
                   ++result.rows;
               });
    return result;
}

Verification verifyCopy(NerioSwitchApi::SwTable const& table, NerioSwitchApi::ShadowStore& shadows,
                        NerioSwitchApi::RegisterBus& bus, RowReader const& readRow) {
    Verification result;
    auto const& convertor = table.profileConvertorPtr();
    if (!convertor) return result;
    std::map<HwTableId, std::pair<RowLayouts, Belmo::Ptr<ShadowTable>>> ofTables;
    for (auto const& [id, descriptor] : convertor->descriptors()) {
        ofTables.emplace(
            id, std::pair(convertor->rowLayouts(id),
                          shadows.tableIs(descriptor->name(), descriptor->firstIndex(),
                                          descriptor->lastIndex(), NerioSwitchApi::StartMode::warm)));
    }
    forEachRow(
        *convertor, [&](HwTableId id, NerioSwitchApi::HwTableDescriptor const& descriptor, HwIndex row) {
            auto const& [layouts, shadow] = ofTables.at(id);
            auto const expected = expectedEntry(*convertor, id, row);
            // A row that nobody has written is in order as long as it stays so.
            bool const isThere = expected || shadow->held(row) != nullptr;
            auto const found =
                isThere ? onRow(*convertor->hwTable(id), row, expected, {*shadow, bus, readRow}, layouts)
                        : std::nullopt;
            if (found) result.differences.push_back({descriptor.name(), row, *found});
            ++result.rows;
        });
    return result;
}

std::size_t repair(NerioSwitchApi::SwTable const& table, Verification const& verification) {
    std::size_t written = 0;
    auto const& convertor = table.profileConvertorPtr();
    for (auto const& difference : verification.differences) {
        for (auto const& [id, descriptor] : convertor->descriptors()) {
            if (descriptor->name() != difference.hwTable) continue;
            auto const expected = expectedEntry(*convertor, id, difference.row);
            if (!expected) continue;
            convertor->hwTable(id)->entryIs(*expected);
            ++written;
        }
    }
    return written;
}

}  // namespace Agent
