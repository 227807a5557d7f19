#include "nerio/FillSampler.h"

#include <algorithm>
#include <utility>

#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableStormControl.h"
#include "NerioSwitchTable/NerioTableVlanGroup.h"

namespace Nerio {

using NerioSwitchApi::PhysicalHashTableConvertor;
using NerioSwitchApi::SwTable;

namespace {

PhysicalHashTableConvertor const* hashRowsOf(SwTable const& table) {
    return dynamic_cast<PhysicalHashTableConvertor const*>(table.profileConvertorPtr().get());
}

/** How many keys a table can have that has rows for each of them. */
U64 keysOf(SwTable const& table) {
    U64 rows = 0;
    U64 end = 0;
    auto const& convertor = table.profileConvertorPtr();
    if (!convertor) return 0;
    for (auto const& [id, descriptor] : convertor->descriptors()) {
        rows += U64{descriptor->lastIndex()} - descriptor->firstIndex() + 1;
        end = std::max(
            end, U64{descriptor->lastIndex()} + 1 - convertor->descriptors().begin()->second->firstIndex());
    }
    // Only storm control has a hardware table for each port; others have copies, or parts, of one.
    return dynamic_cast<NerioSwitchTable::StormControlTable const*>(&table) != nullptr ? rows : end;
}

template <class Table>
std::function<U64()> entriesOf(SwTable const& table) {
    auto const* const known = dynamic_cast<Table const*>(&table);
    if (known == nullptr) return {};
    return [known] { return U64{known->entries().size()}; };
}

}  // namespace

FillSampler::Source& FillSampler::sourceOf(Belmo::Ptr<SwTable> const& table) {
    auto const found = std::ranges::find(sources_, table, &Source::table);
    if (found != sources_.end()) return *found;
    return sources_.emplace_back(Source{table, table->name(), {}, samples_.size()});
}

void FillSampler::tableIs(Belmo::Ptr<SwTable> const& table) {
    auto& source = sourceOf(table);
    if (!source.entries) source.entries = entriesOf<NerioSwitchTable::Lpm11Table>(*table);
    if (!source.entries) source.entries = entriesOf<NerioSwitchTable::VlanGroupTable>(*table);
}

void FillSampler::tableIs(std::string name, Agent::JsonTable const& table) {
    auto& source = sourceOf(table.table());
    source.name = std::move(name);
    source.entries = [&table] { return U64{table.entryCount()}; };
}

void FillSampler::written(U64 count) {
    writes_ += count;
    if (writes_ < next_) return;
    sample();
    next_ = writes_ + step_;
}

void FillSampler::sample() {
    samples_.push_back(writes_);
    for (auto& source : sources_) {
        auto const* hash = hashRowsOf(*source.table);
        source.used.push_back(hash != nullptr ? hash->rowsInUse() : source.entries ? source.entries() : 0);
    }
    if (samples_.size() > mostSamples) thinOut();
}

void FillSampler::thinOut() {
    auto const halve = [](std::vector<U64>& values, std::size_t first) {
        std::size_t kept = 0;
        for (std::size_t i = first % 2; i < values.size(); i += 2)
            values[kept++] = values[i];
        values.resize(kept);
    };
    for (auto& source : sources_) {
        halve(source.used, source.firstSample);
        source.firstSample = (source.firstSample + 1) / 2;
    }
    halve(samples_, 0);
    step_ *= 2;
}

std::vector<FillSampler::Series> FillSampler::series() const {
    std::vector<Series> all;
    std::vector<PhysicalHashTableConvertor const*> seen;
    for (auto const& source : sources_) {
        auto const* hash = hashRowsOf(*source.table);
        if (hash == nullptr && !source.entries) continue;
        if (hash != nullptr && std::ranges::find(seen, hash) != seen.end()) continue;
        seen.push_back(hash);
        Series series;
        series.name = source.name;
        series.isHash = hash != nullptr;
        series.rows =
            hash != nullptr ? U64{hash->tableSize()} * hash->numHashTables() : keysOf(*source.table);
        if (hash != nullptr) series.moves = hash->moveHistogram();
        if (source.firstSample > 0) series.points.emplace_back(samples_[source.firstSample - 1], 0);
        for (std::size_t i = 0; i < source.used.size(); ++i)
            series.points.emplace_back(samples_[source.firstSample + i], source.used[i]);
        series.points.emplace_back(writes_, hash != nullptr ? hash->rowsInUse() : source.entries());
        all.push_back(std::move(series));
    }
    return all;
}

SampledBus::~SampledBus() = default;

void SampledBus::write(NerioSwitchApi::RegisterHandle handle, U32 word) {
    bus_->write(handle, word);
    sampler_.written(1);
}

void SampledBus::writeRow(std::span<NerioSwitchApi::RegisterHandle const> handles, U32 const* words) {
    bus_->writeRow(handles, words);
    sampler_.written(
        static_cast<U64>(std::ranges::count_if(handles, &NerioSwitchApi::RegisterHandle::exists)));
}

}  // namespace Nerio
