#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string_view>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

/** The ring-buffer trace: the last records in memory, to be read after something went wrong. */
namespace Rillog {

/** One record of the ring. Numbers rise by one from 0 and show how many records made room before it. */
struct Record {
    U64 number;
    Belmo::String handle;
    int level;
    Belmo::String text;
};

/** A bounded list of the newest records; older ones make room. Threads may share it. */
class BELMO_EXPORT Ring {
public:
    explicit Ring(std::size_t capacity) : capacity_(capacity) {}

    /** Records are kept up to this level; 0, the start, keeps none. */
    int level() const { return level_.load(std::memory_order_relaxed); }
    void levelIs(int level) { level_.store(level, std::memory_order_relaxed); }
    bool enabled(int level) const { return level <= this->level(); }

    /** Keeps a record, whatever its level. */
    void add(std::string_view handle, int level, std::string_view text);
    /** What the ring holds now, oldest first. */
    std::vector<Record> records() const;
    /** Empties the ring; numbers go on. */
    void clear();

private:
    std::size_t const capacity_;
    std::atomic<int> level_{0};
    mutable std::mutex mutex_;  // guards what follows
    U64 next_ = 0;
    std::deque<Record> records_;
};

/** The ring of the process, of 4096 records. */
BELMO_EXPORT Ring& ring();

}  // namespace Rillog
