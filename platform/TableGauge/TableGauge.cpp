#include "TableGauge/TableGauge.h"

#include "Belmo/Assert.h"

namespace TableGauge {

Counter::Counter(TableKey key, CapacityTableIndex index, U32 capacity)
    : key_(std::move(key)),
      index_(index),
      capacity_(capacity),
      high_(static_cast<U32>(U64{capacity} * 95 / 100)),
      low_(static_cast<U32>(U64{capacity} * 90 / 100)) {}

void Counter::usedIs(U32 used) {
    BELMO_ASSERT(used <= capacity_);
    used_ = used;
    mark();
}

void Counter::thresholdsAre(U32 high, U32 low) {
    BELMO_ASSERT(low <= high);
    high_ = high;
    low_ = low;
    mark();
}

void Counter::mark() {
    bool const marked = nearlyFull_ ? used_ > low_ : used_ >= high_ && used_ > 0;
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
