#include "agent/RowDecoder.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "NerioSwitchApi/TableFramework.h"

#include "agent/PathBus.h"
#include "agent/RowText.h"

namespace Agent {

using NerioSwitchApi::HwIndex;
using NerioSwitchApi::HwTableId;
using NerioSwitchApi::StartMode;

namespace {

/**
 * What control words call a row, and the one of several hash tables that it is in. Where a row has several of
 * these names the first one counts: the protocol of an ACL's key is none of its row.
 */
constexpr std::array<std::string_view, 4> rowNames{"row", "vid", "vlan", "protocol"};
constexpr std::array<std::string_view, 2> wayNames{"way", "table"};

template <class Names>
std::optional<U64> valueNamed(RowLayout const& layout, Names const& names, std::span<U32 const> words) {
    for (auto const name : names) {
        auto const field = std::ranges::find(layout.fields, name, &NerioSwitchApi::RowField::name);
        if (field != layout.fields.end()) return valueIn(*field, words);
    }
    return std::nullopt;
}

using Entries = std::map<Belmo::String, std::pair<Json, Json>>;

Entries entriesOf(JsonTable const& table) {
    Entries all;
    for (auto& [key, result] : table.entries())
        all.emplace(key.dump(), std::pair(key, result));
    return all;
}

/** A chip that remembers nothing, and the shadow of what it was told. */
class Shadowed {
public:
    Shadowed(TableSpec const& spec, ProfilePtr profile) : spec_(spec), profile_(std::move(profile)) {
        start(StartMode::cold);
    }

    void start(StartMode mode) {
        table_.reset();
        framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, bus_, shadows_);
        table_ = makeTable(spec_);
        framework_->tableIs(table_->table(), mode);
    }
    JsonTable& table() { return *table_; }

private:
    TableSpec const& spec_;
    ProfilePtr profile_;
    Belmo::Ptr<PathBus> bus_ = Belmo::make<PathBus>();
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_ = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    std::unique_ptr<JsonTable> table_;
};

}  // namespace

Json toJson(std::vector<DecodedEntry> const& entries) {
    Json all = Json::array();
    for (auto const& entry : entries) {
        all.push_back({{"key", entry.keyJson},
                       {"result", entry.resultJson},
                       {"keyText", entry.key},
                       {"resultText", entry.result},
                       {"inconsistent", entry.isInconsistent}});
    }
    return all;
}

std::vector<DecodedEntry> decodedEntriesFromJson(Json const& json) {
    std::vector<DecodedEntry> all;
    for (auto const& entry : json) {
        all.push_back({entry["keyText"].get<Belmo::String>(), entry["resultText"].get<Belmo::String>(),
                       entry["key"], entry["result"], entry["inconsistent"].get<bool>()});
    }
    return all;
}

std::optional<HwIndex> rowToldBy(HwTableShape const& shape, std::span<U32 const> words) {
    auto const* layout = layoutOf(shape.layouts, words);
    if (layout == nullptr) return std::nullopt;
    auto const number = valueNamed(*layout, rowNames, words);
    if (!number) return std::nullopt;
    U64 row = *number;
    // Of hash tables the rows of one stand behind those of the other; only these count rows by their way.
    if (shape.rowsOfWay != 0) row += shape.rowsOfWay * valueNamed(*layout, wayNames, words).value_or(0);
    if (row < shape.firstRow || row > shape.lastRow) return std::nullopt;
    return static_cast<HwIndex>(row);
}

std::vector<DecodedEntry> entriesOfRow(TableSpec const& spec, ProfilePtr const& profile, HwTableId id,
                                       HwIndex row, std::span<U32 const> words) {
    Shadowed shadowed(spec, profile);
    shadowed.start(StartMode::warm);
    auto const before = entriesOf(shadowed.table());
    auto const& table = *shadowed.table().table();
    auto const& convertor = *table.profileConvertorPtr();
    auto const layouts = convertor.rowLayouts(id);
    for (auto const& [other, descriptor] : convertor.descriptors()) {
        bool const isCopy = table.hwTablesDuplicate() && descriptor->hasRow(row) &&
                            sameLayouts(layouts, convertor.rowLayouts(other));
        if (other == id || isCopy)
            convertor.hwTable(other)->entryIs(NerioSwitchApi::HwEntryConfig(row, words));
    }
    shadowed.start(StartMode::warm);
    auto const marked = shadowed.table().inconsistent();
    std::vector<DecodedEntry> entries;
    for (auto const& [text, entry] : entriesOf(shadowed.table())) {
        auto const& [key, result] = entry;
        if (before.contains(text) && before.at(text).second == result) continue;
        entries.push_back({shadowed.table().keyText(key, Place()),
                           shadowed.table().resultText(result, Place()), key, result,
                           std::ranges::find(marked, key) != marked.end()});
    }
    return entries;
}

}  // namespace Agent
