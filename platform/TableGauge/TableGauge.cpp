#include "TableGauge/TableGauge.h"

#include <algorithm>

#include "Belmo/Assert.h"

namespace TableGauge {

namespace {

U32 percentOf(U32 capacity, U32 percent) {
    return static_cast<U32>(U64{capacity} * percent / 100);
}

}  // namespace

Counter::Counter(TableKey key, CapacityTableIndex index, U32 capacity)
    : key_(std::move(key)),
      index_(index),
      capacity_(capacity),
      high_(std::max(percentOf(capacity, 95), U32{1})),
      low_(std::min(percentOf(capacity, 90), high_ - 1)) {}

void Counter::usedIs(U32 used) {
    BELMO_ASSERT(used <= capacity_);
    used_ = used;
    mark();
}

void Counter::thresholdsAre(U32 high, U32 low) {
    BELMO_ASSERT(low < high);
    high_ = high;
    low_ = low;
    mark();
}

void Counter::mark() {
    bool const marked = nearlyFull_ ? used_ > low_ : used_ >= high_;
    if (marked == nearlyFull_) return;
    nearlyFull_ = marked;
    if (observer_) observer_(*this);
}

Belmo::Ptr<Counter> Gauges::counterIs(TableKey const& key, U32 capacity, CapacityTableIndex index) {
    BELMO_ASSERT(key.verifyTableKey());
    std::erase_if(counters_,
                  [&](auto const& counter) { return counter->key() == key && counter->index() == index; });
    counters_.push_back(Belmo::make<Counter>(key, index, capacity));
    return counters_.back();
}

void Gauges::counterDelAll(Belmo::String const& swTable) {
    std::erase_if(counters_, [&](auto const& counter) { return counter->key().swTable() == swTable; });
}

}  // namespace TableGauge
