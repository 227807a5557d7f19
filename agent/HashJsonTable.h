#pragma once

#include <fmt/format.h>
#include <optional>

#include "agent/JsonTable.h"

namespace Agent {

/** A table of the hash shape: it also tells where its keys stand, and why there. */
template <class Table>
class HashJsonTable final : public KeyedJsonTable<Table> {
public:
    using Key = typename Table::Key;

    using KeyedJsonTable<Table>::KeyedJsonTable;

    std::optional<Json> location(Json const& key, Place const& place) const override {
        auto const item = this->keyed().cachedItem(fromJson<Key>(key, place.member("key")));
        if (!item || !item->placed()) return Json();
        auto const location = convertor()->location(item->hwIndex());
        return Json{{"table", location.table}, {"row", location.row}};
    }

    std::optional<Json> hash(Json const& key, Place const& place) const override {
        auto const typedKey = fromJson<Key>(key, place.member("key"));
        if (convertor() == nullptr) {
            throw JsonException(place.member("table"),
                                fmt::format("table: {} is not started", shown(this->keyed().name())));
        }
        auto const item = this->keyed().createHashEntry(typedKey, false);
        Json hashes = Json::array();
        for (U32 way = 0; way < convertor()->numHashTables(); ++way)
            hashes.push_back(item->getHash(static_cast<U8>(way)));
        auto const input = item->hashInput();
        Belmo::String bytes;
        for (std::size_t i = 0; i * 8 < input.bits; ++i)
            bytes += fmt::format("{:02x}", input.bytes[i]);
        return Json{{"hashes", std::move(hashes)}, {"bits", input.bits}, {"input", std::move(bytes)}};
    }

    std::optional<HashPlacement> placement() const override {
        auto const* rows = convertor();
        if (rows == nullptr) return std::nullopt;
        HashPlacement placement{.rowsInUse = rows->rowsInUse(),
                                .rows = rows->tableSize() * rows->numHashTables(),
                                .moves = rows->moveHistogram(),
                                .failedPlacements = rows->failedPlacements()};
        for (auto const& record : this->keyed().tableStatus()->entryStatuses()) {
            if (record.status() != NerioSwitchApi::EntryProgrammedStatus::entryProgrammed)
                ++placement.entriesWithoutPlace;
        }
        return placement;
    }

private:
    /** Null before the start. */
    NerioSwitchApi::PhysicalHashTableConvertor const* convertor() const {
        auto const& convertor = this->keyed().profileConvertorPtr();
        return static_cast<NerioSwitchApi::PhysicalHashTableConvertor const*>(convertor.get());
    }
};

}  // namespace Agent
