#include "nerio/SwitchLook.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <utility>

#include "NerioSwitchTable/DirectTable.h"

namespace Nerio {

using Agent::Json;
using Agent::JsonTable;
using Agent::TableSpec;
using NerioSwitchApi::HwEntryConfig;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::HwTableId;
using NerioSwitchApi::StartMode;
using NerioSwitchApi::SwTableProfileConvertor;
using Status = EntryLook::Status;

namespace {

/** Rows of a table, those of one copy where it has copies. */
U64 rowsOf(JsonTable const& table) {
    auto const software = table.table();
    U64 rows = 0;
    for (auto const& [id, descriptor] : software->profileConvertorPtr()->descriptors()) {
        rows += descriptor->lastIndex() - descriptor->firstIndex() + 1;
        if (software->hwTablesDuplicate()) break;
    }
    return rows;
}

/** Rows that entries have, likewise. Those of a direct table are wanted all, as null entries if nothing else.
 */
U64 rowsInUseOf(JsonTable const& table) {
    auto const software = table.table();
    if (dynamic_cast<NerioSwitchTable::DirectBaseTable const*>(software.get()) != nullptr)
        return table.entryCount() - table.defaultEntryCount();
    auto const& convertor = *software->profileConvertorPtr();
    U64 rows = 0;
    for (auto const& [id, descriptor] : convertor.descriptors()) {
        for (HwIndex row = descriptor->firstIndex(); row <= descriptor->lastIndex(); ++row)
            rows += convertor.wantedEntry(id, row) ? 1 : 0;
        if (software->hwTablesDuplicate()) break;
    }
    return rows;
}

/** The rows of a table that is emptied entry by entry, with what software wants in them. */
class Emptied {
public:
    explicit Emptied(NerioSwitchApi::SwTable const& table) : convertor_(*table.profileConvertorPtr()) {
        for (auto const& [id, descriptor] : convertor_.descriptors()) {
            auto& rows = wanted_[id].rows;
            for (HwIndex row = descriptor->firstIndex(); row <= descriptor->lastIndex(); ++row) {
                if (auto const entry = convertor_.wantedEntry(id, row)) rows.push_back(*entry);
            }
            if (table.hwTablesDuplicate()) break;
        }
    }

    /** The first row that is no longer wanted as it was; forgets all that are not. */
    std::optional<EntryLook::Location> changed() {
        std::optional<EntryLook::Location> first;
        for (auto& [id, wanted] : wanted_) {
            if (auto const row = changedIn(id, wanted); row && !first) first = {id, *row};
        }
        return first;
    }

private:
    struct Wanted {
        std::vector<HwEntryConfig> rows;
        /** Most often rows are in the order of keys, so that the next one is close behind the last. */
        std::size_t next = 0;
    };

    std::optional<HwIndex> changedIn(HwTableId id, Wanted& wanted) {
        for (std::size_t step = 0; step < wanted.rows.size(); ++step) {
            auto const at = (wanted.next + step) % wanted.rows.size();
            auto& row = wanted.rows[at];
            auto const now = convertor_.wantedEntry(id, row.index());
            // A row that has been forgotten is kept as what it has become, or as one that never was wanted.
            auto const then = now.value_or(HwEntryConfig(row.index()));
            if (row == then) continue;
            row = then;
            wanted.next = at;
            return row.index();
        }
        return std::nullopt;
    }

    SwTableProfileConvertor const& convertor_;
    std::map<HwTableId, Wanted> wanted_;
};

bool contains(std::vector<Json> const& keys, Json const& key) {
    return std::ranges::find(keys, key) != keys.end();
}

}  // namespace

void SwitchLook::Disorder::cameUp(TableSpec const& spec, JsonTable& table) {
    keys[spec.name] = table.inconsistent();
}

SwitchLook::SwitchLook(std::filesystem::path const& directory, std::optional<U32> fullAt)
    : fullAt_(fullAt),
      moves_(keptMoves(directory)),
      snapshot_(directory),
      programmed_(snapshot_.state(), snapshot_.path(), StartMode::warm, {.observer = &disorder_}) {
    auto& target = programmed_.target();
    target.forEachTable([&](TableSpec const& spec, JsonTable& table) { tables_.push_back({spec, &table}); });
    target.pollHitBits(Belmo::Duration(0));
}

std::vector<TableLook> SwitchLook::tables() const {
    std::vector<TableLook> all;
    for (std::size_t number = 0; number < tables_.size(); ++number)
        all.push_back(table(number));
    return all;
}

std::optional<std::size_t> SwitchLook::find(std::string_view name) const {
    auto const found = std::ranges::find(tables_, name, [](Held const& held) { return held.spec.name; });
    if (found == tables_.end()) return std::nullopt;
    return static_cast<std::size_t>(found - tables_.begin());
}

TableLook SwitchLook::table(std::size_t number) const {
    auto const& [spec, table] = tables_[number];
    TableLook look;
    look.spec = spec;
    look.entries = table->entryCount();
    if (auto const placement = table->placement()) {
        look.rows = placement->rows;
        look.rowsInUse = placement->rowsInUse;
        look.entriesWithoutPlace = placement->entriesWithoutPlace;
        if (auto const kept = moves_.find(spec.name); kept != moves_.end()) look.moves = kept->second;
    } else {
        look.rows = rowsOf(*table);
        look.rowsInUse = rowsInUseOf(*table);
    }
    look.nearlyFull = nearlyFull(look);
    return look;
}

bool SwitchLook::nearlyFull(TableLook const& look) const {
    auto const isFull = [&](U64 used, U64 all) {
        if (all == 0) return false;
        if (fullAt_) return used * 100 >= all * *fullAt_;
        TableGauge::Counter counter({}, 0, static_cast<U32>(all));
        counter.usedIs(static_cast<U32>(std::min(used, all)));
        return counter.nearlyFull();
    };
    // Where each key has its own row, the last one is as good as the first.
    bool const isPlaced = look.entriesWithoutPlace.has_value();
    if ((isPlaced || fullAt_) && isFull(look.rowsInUse, look.rows)) return true;
    auto const* gauges = programmed_.target().gauges();
    return gauges != nullptr && std::ranges::any_of(gauges->counters(), [&](auto const& counter) {
               return counter->key().swTable() == look.spec.name &&
                      isFull(counter->used(), counter->capacity());
           });
}

std::vector<EntryLook> SwitchLook::entries(std::size_t number) const {
    auto const& [spec, table] = tables_[number];
    std::vector<EntryLook> all;
    auto const disorder = disorder_.keys.find(spec.name);
    auto const status = table->status().value_or(Json::array());
    bool const hasHits = table->table()->hitBitsSupported();
    // Both are in key order.
    auto record = status.begin();
    for (auto& [key, result] : table->entries()) {
        EntryLook look;
        if (hasHits) look.hit = false;
        auto const own =
            std::find_if(record, status.end(), [&key = key](Json const& each) { return each["key"] == key; });
        if (own != status.end()) {
            record = own;
            if ((*record)["status"] != 0) look.status = Status::noPlace;
            if (hasHits) look.hit = !(*record)["lastHit"].is_null();
        }
        look.inconsistent = disorder != disorder_.keys.end() && contains(disorder->second, key);
        look.key = std::move(key);
        look.result = std::move(result);
        all.push_back(std::move(look));
    }
    return all;
}

void SwitchLook::locate(std::size_t number, std::vector<EntryLook>& entries) {
    auto& table = *tables_[number].table;
    if (table.placement()) {
        for (auto& entry : entries) {
            auto const location = table.location(entry.key, {});
            if (location && !location->is_null())
                entry.location = {(*location)["table"].get<U32>(), (*location)["row"].get<U32>()};
        }
        return;
    }
    Emptied rows(*table.table());
    for (auto& entry : entries) {
        table.entryDel(entry.key, {});
        entry.location = rows.changed();
        if (!entry.location) entry.status = Status::noTrace;
    }
}

}  // namespace Nerio
