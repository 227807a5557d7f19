#include "NerioSwitchApi/HashTable.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Belmo/Assert.h"

namespace NerioSwitchApi {

using Dovra::Cuckoo::CuckooLocation;
using Dovra::Cuckoo::Outcome;

namespace {

/**
 * The words of a row that another table than the first has emptied in its own way, as tables do that were
 * alone with the rows for a while; nothing for any other row.
 */
std::optional<std::array<U32, maxEntryWords>> emptiedByAnother(PhysicalHashTableConvertor const& convertor,
                                                               HwTableConfig const& table, HwIndex index) {
    for (U32 number = 1; number < convertor.swTables(); ++number) {
        auto const& helper = convertor.helper(number);
        std::array<U32, maxEntryWords> words{};
        helper->setHwBuffer(helper->nullHashEntry(), convertor.location(index),
                            reinterpret_cast<U8*>(words.data()));
        if (!convertor.differs(table, index, words.data(), convertor.entryWords())) return words;
    }
    return std::nullopt;
}

}  // namespace

PhysicalHashProperties::~PhysicalHashProperties() = default;
HashBaseCuckooEntry::~HashBaseCuckooEntry() = default;
HashBaseHelper::~HashBaseHelper() = default;
HashBaseTable::~HashBaseTable() {
    if (auto* const convertor = hashConvertor()) convertor->swTableDel(*this);
}

PhysicalHashTableConvertor::~PhysicalHashTableConvertor() {
    if (sharedIn_) sharedIn_->sharedHashTables.erase(sharedIndex_);
}

U32 HashBaseCuckooEntry::swTableId() const {
    return table_ == nullptr ? 0 : table_->swTableId();
}

void HashBaseHelper::doInit() {}

bool HashBaseHelper::entryOwned(HwIndex) const {
    return true;
}

std::vector<RowLayout> HashBaseHelper::rowLayouts() const {
    return {};
}

void HashBaseTable::lastHitByHashItemIs(Belmo::Ptr<Dovra::Cuckoo::HashItem const> const&, Belmo::Duration) {}

PhysicalHashTableConvertor* HashBaseTable::hashConvertor() const {
    return static_cast<PhysicalHashTableConvertor*>(profileConvertorPtr().get());
}

void HashBaseTable::doSetProfileConvertor(Belmo::Ptr<SwTableTypes> const& types) {
    helper_ = hashBaseHelperFactory();
    helper_->swTableIs(this);
    helper_->doInit();
    auto& shared = types->sharedHashTables;
    auto const known = helper_->sharesTable() ? shared.find(helper_->physTableIndex()) : shared.end();
    Belmo::Ptr<PhysicalHashTableConvertor> convertor;
    if (known != shared.end()) {
        convertor = known->second;
    } else {
        convertor = profileConvertorFactory();
        convertor->typesAre(*types);
        convertor->profileIs(profile());
        if (helper_->sharesTable()) convertor->sharedIn(types, helper_->physTableIndex());
    }
    helper_->convertorIs(convertor.get());
    convertor->swTableIs(*this, helper_);
    profileConvertorPtrIs(convertor);
    doInitStatus();
}

void HashBaseTable::doCreateHwTable() {
    // The table that attached first has made the hardware tables for all that share them.
    if (hashConvertor()->hwTables().empty()) SwTable::doCreateHwTable();
}

void HashBaseTable::doDetach() {
    if (auto* const convertor = hashConvertor()) convertor->swTableDel(*this);
    SwTable::doDetach();
}

void PhysicalHashTableConvertor::swTableIs(HashBaseTable& table, Belmo::Ptr<HashBaseHelper> const& helper) {
    tables_.push_back(&table);
    helpers_.push_back(helper);
    if (properties_) return;
    properties_ = helper->doGetPhysTableProperties();
    occupancy_.emplace(static_cast<U8>(numHashTables()), tableSize());
    planner_.emplace(*occupancy_);
    items_.resize(occupancy_->slots());
    nullItem_ = helper->nullHashEntry();
}

void PhysicalHashTableConvertor::swTableDel(HashBaseTable const& table) {
    auto const found = std::find(tables_.begin(), tables_.end(), &table);
    if (found == tables_.end()) return;
    helpers_.erase(helpers_.begin() + (found - tables_.begin()));
    tables_.erase(found);
    for (HwIndex index = 0; index < items_.size(); ++index) {
        if (!items_[index] || items_[index]->table() != &table) continue;
        updateHashEntryCounter(items_[index], false);
        vacate(index);
        reserve(index);
    }
    if (!helpers_.empty()) nullItem_ = helpers_.front()->nullHashEntry();
}

void PhysicalHashTableConvertor::sharedIn(Belmo::Ptr<SwTableTypes> const& types, U32 physTableIndex) {
    sharedIn_ = types;
    sharedIndex_ = physTableIndex;
    types->sharedHashTables[physTableIndex] = this;
}

std::vector<RowLayout> PhysicalHashTableConvertor::rowLayouts(HwTableId /*id*/) const {
    std::vector<RowLayout> all;
    for (auto const& helper : helpers_)
        std::ranges::move(helper->rowLayouts(), std::back_inserter(all));
    return all;
}

CuckooLocation PhysicalHashTableConvertor::location(HwIndex index) const {
    U8 const table = occupancy_->wayOf(index);
    return {index - occupancy_->slotOf(table, 0), table};
}

Dovra::Cuckoo::Rows PhysicalHashTableConvertor::rowsOf(HashBaseCuckooEntry const& entry) const {
    Dovra::Cuckoo::Rows rows{};
    for (U8 way = 0; way < occupancy_->ways(); ++way)
        rows[way] = static_cast<U16>(entry.getHash(way));
    return rows;
}

PhysicalHashTableConvertor::Words PhysicalHashTableConvertor::wordsOf(
    Belmo::Ptr<HashBaseCuckooEntry> const& entry, HwIndex index) const {
    Words words{};
    auto const& helper = entry->table() == nullptr ? helpers_.front() : entry->table()->helper();
    helper->setHwBuffer(entry, location(index), reinterpret_cast<U8*>(words.data()));
    return words;
}

void PhysicalHashTableConvertor::write(HwIndex index, Words const& words) {
    HwEntryConfig const entry(index, std::span(words), entryWords());
    for (auto const& [id, table] : hwTables()) {
        if (differs(*table, index, words.data(), entryWords())) table->entryIs(entry);
    }
}

/** Records that an item lives in a row now; the row it came from is free. */
void PhysicalHashTableConvertor::settle(Belmo::Ptr<HashBaseCuckooEntry> const& entry, HwIndex index,
                                        Dovra::Cuckoo::Rows const& rows) {
    occupancy_->take(index, rows);
    if (entry->placed()) vacate(entry->hwIndex());
    items_[index] = entry;
    entry->hwIndex_ = index;
}

void PhysicalHashTableConvertor::vacate(HwIndex index) {
    occupancy_->release(index);
    items_[index]->hwIndex_ = HwEntryConfig::noIndex;
    items_[index] = nullptr;
}

void PhysicalHashTableConvertor::reserve(HwIndex index) {
    occupancy_->take(index, Dovra::Cuckoo::immovable);
    ++reservedRows_;
}

void PhysicalHashTableConvertor::unreserve(HwIndex index) {
    occupancy_->release(index);
    --reservedRows_;
}

/** Clears rows that a failure of the bus left behind, before anything else is placed or found beside them. */
void PhysicalHashTableConvertor::clearLeftovers() {
    while (!leftovers_.empty()) {
        HwIndex const index = leftovers_.back();
        if (!items_[index]) write(index, nullWords(index));
        leftovers_.pop_back();
    }
}

bool PhysicalHashTableConvertor::handleHashEntry(Belmo::Ptr<HashBaseCuckooEntry> const& entry) {
    clearLeftovers();
    if (!entry->valid()) {
        remove(entry);
        return true;
    }
    if (entry->placed()) {
        write(entry->hwIndex(), wordsOf(entry, entry->hwIndex()));
    } else if (!place(entry)) {
        ++failedPlacements_;
        return false;
    }
    updateHashEntryCounter(entry, true);
    return true;
}

bool PhysicalHashTableConvertor::place(Belmo::Ptr<HashBaseCuckooEntry> const& entry) {
    auto const rows = rowsOf(*entry);
    auto const& plan = planner_->plan(rows);
    if (plan.outcome != Outcome::placed) return false;
    // The first move goes to a free row, and each next one to the row before it: the item that leaves a row
    // stands in its new one already. Until that row is overwritten it is a leftover, should the bus fail.
    HwIndex target = plan.moves.empty() ? plan.slot : plan.moves.front().to;
    leftovers_.push_back(target);
    for (auto const& move : plan.moves) {
        auto const item = items_[move.from];
        write(move.to, wordsOf(item, move.to));
        settle(item, move.to, occupancy_->rowsOf(move.from));
        leftovers_.back() = move.from;
    }
    write(plan.slot, wordsOf(entry, plan.slot));
    settle(entry, plan.slot, rows);
    leftovers_.pop_back();
    ++moveHistogram_[std::min(plan.moves.size(), moveHistogram_.size() - 1)];
    return true;
}

void PhysicalHashTableConvertor::remove(Belmo::Ptr<HashBaseCuckooEntry> const& entry) {
    updateHashEntryCounter(entry, false);
    if (entry->placed()) {
        HwIndex const index = entry->hwIndex();
        leftovers_.push_back(index);
        vacate(index);
        clearLeftovers();
    }
    if (entry->table() != nullptr) entry->table()->hashItemDelFromHashItem(entry);
}

void PhysicalHashTableConvertor::updateHashEntryCounter(Belmo::Ptr<HashBaseCuckooEntry const> const& entry,
                                                        bool add) {
    // Whether an item is counted is the framework's own mark on it, not part of what the item says.
    auto& counted = const_cast<HashBaseCuckooEntry&>(*entry).counted_;  // NOLINT
    if (counted == add) return;
    counted = add;
    if (counter_) counter_->usedIs(add ? counter_->used() + 1 : counter_->used() - 1);
}

void PhysicalHashTableConvertor::initEntryCounter(TableGauge::TableKey const& key, U32 capacity,
                                                  CapacityTableIndex index) {
    if (counter_) return;  // a table that shares these rows has made it
    SwTableProfileConvertor::initEntryCounter(key, capacity, index);
    counter_ = entryCounter(index);
}

void PhysicalHashTableConvertor::handleHitBitEntry(HwTableId id, HwIndex index) {
    auto const hit = hitBitTable(id)->entry(index);
    auto const item = items_.at(index);
    if (!hit || !item || item->table() == nullptr) return;
    item->table()->lastHitByHashItemIs(item, hit->time());
}

void PhysicalHashTableConvertor::initHwEntries(bool resetHw, U32 /*id*/) {
    bool const othersAreUp =
        std::any_of(tables_.begin(), tables_.end(), [](auto const* table) { return table->initialized(); });
    for (HwIndex index = 0; resetHw && index < items_.size(); ++index) {
        if (reserved(index)) unreserve(index);
    }
    for (auto* table : tables_) {
        if (!table->initialized()) table->handleAllEntries();
    }
    for (HwIndex index = 0; index < items_.size(); ++index) {
        if (occupancy_->taken(index) || !helpers_.front()->reachable(location(index))) continue;
        auto const words = nullWords(index);
        for (auto const& [id, table] : hwTables()) {
            if ((resetHw && !othersAreUp) || (differs(*table, index, words.data(), entryWords()) &&
                                              !emptiedByAnother(*this, *table, index))) {
                table->entryIs(HwEntryConfig(index, std::span(words), entryWords()));
            }
        }
    }
}

void PhysicalHashTableConvertor::syncEntries(U32 /*id*/) {
    for (HwIndex index = 0; index < items_.size(); ++index) {
        if (!items_[index] && hwTable(0)->storedWords(index)) adopt(index);
    }
}

/** Takes the item of a row over, unless the chip could not find it there or it stands in another row already.
 */
void PhysicalHashTableConvertor::adopt(HwIndex index) {
    if (reserved(index)) unreserve(index);
    for (auto const& helper : helpers_) {
        if (!helper->entryOwned(index)) continue;
        auto const item = helper->decodeHwEntry(index);
        if (!item || item->placed()) return;
        auto const here = location(index);
        if (!item->valid() || item->getHash(here.table) != here.row) {
            helper->swTable()->hashItemDelFromHashItem(item);
            return;
        }
        settle(item, index, rowsOf(*item));
        updateHashEntryCounter(item, true);
        helper->swTable()->entryIsByHashItem(item);
        return;
    }
    if (differs(*hwTable(0), index, nullWords(index).data(), entryWords()) &&
        !emptiedByAnother(*this, *hwTable(0), index))
        reserve(index);
}

std::optional<HwEntryConfig> PhysicalHashTableConvertor::wantedEntry(HwTableId id, HwIndex index) const {
    auto const& item = items_[index];
    if (!item && (reserved(index) || !helpers_.front()->reachable(location(index)))) return std::nullopt;
    auto const words =
        item ? wordsOf(item, index) : emptiedByAnother(*this, *hwTable(id), index).value_or(nullWords(index));
    return HwEntryConfig(index, std::span(words), entryWords());
}

}  // namespace NerioSwitchApi
