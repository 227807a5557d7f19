#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"
#include "Sorn/ValueType.h"

/** Capacity accounting: how many rows a table has and how many are in use. */
namespace TableGauge {

/** Names a counted table: by the table's name for people, the pipe, and the software table. */
class BELMO_EXPORT TableKey {
    SORN_VALUE_TYPE(TableGauge, TableKey, (Belmo::String, table, {}), (Belmo::String, pipe, {}),
                    (Belmo::String, swTable, {}));

    TableKey(Belmo::String table, Belmo::String pipe, Belmo::String swTable)
        : table_(std::move(table)), pipe_(std::move(pipe)), swTable_(std::move(swTable)) {}

    /** A key may be used once each of its three names says something. */
    bool verifyTableKey() const { return !table_.empty() && !pipe_.empty() && !swTable_.empty(); }
};

/** Which of a table's counters is meant; tables that do not divide their rows have only 0. */
using CapacityTableIndex = U32;

/**
 * Rows in use out of a capacity, with a mark for nearly full: raised when use reaches the high threshold,
 * lowered when it falls to the low one, so that a table at the edge does not report at every entry.
 */
class BELMO_EXPORT Counter : public Belmo::Node {
public:
    using NearlyFullObserver = std::function<void(Counter const&)>;

    Counter(TableKey key, CapacityTableIndex index, U32 capacity);

    TableKey const& key() const { return key_; }
    CapacityTableIndex index() const { return index_; }
    U32 capacity() const { return capacity_; }
    U32 used() const { return used_; }
    bool nearlyFull() const { return nearlyFull_; }

    /** Sets the rows in use; at most the capacity. */
    void usedIs(U32 used);
    /**
     * Thresholds in rows, low below high. The default is 95 and 90 percent of the capacity; in a table too
     * small to tell them apart the low one is a row below the high one.
     */
    void thresholdsAre(U32 high, U32 low);
    /** Called whenever `nearlyFull` changes. */
    void nearlyFullObserverIs(NearlyFullObserver observer) { observer_ = std::move(observer); }

private:
    void mark();

    TableKey key_;
    CapacityTableIndex index_;
    U32 capacity_;
    U32 used_ = 0;
    U32 high_;
    U32 low_;
    bool nearlyFull_ = false;
    NearlyFullObserver observer_;
};

/** All counters of one framework, in the order in which they were made. */
class BELMO_EXPORT Gauges : public Belmo::Node {
public:
    /** Makes a counter at 0; it takes the place of an older one of the same key and index. */
    Belmo::Ptr<Counter> counterIs(TableKey const& key, U32 capacity, CapacityTableIndex index);
    /** Drops the counters of a software table that is gone. */
    void counterDelAll(Belmo::String const& swTable);
    std::vector<Belmo::Ptr<Counter>> const& counters() const { return counters_; }

private:
    std::vector<Belmo::Ptr<Counter>> counters_;
};

}  // namespace TableGauge
