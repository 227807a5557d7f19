#pragma once

#include <cstddef>
#include <deque>
#include <string_view>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

/** The ring-buffer trace: the last records in memory, to be read after something went wrong. */
namespace Rillog {

/** One record of the ring. */
struct Record {
    U64 number;
    Belmo::String handle;
    int level;
    Belmo::String text;
};

/** A bounded list of the newest records; older ones make room. */
class BELMO_EXPORT Ring {
public:
    explicit Ring(std::size_t capacity) : capacity_(capacity) {}

    /** Records are kept up to this level; 0, the start, keeps none. */
    int level() const { return level_; }
    void levelIs(int level) { level_ = level; }
    bool enabled(int level) const { return level <= level_; }

    void add(std::string_view handle, int level, std::string_view text);
    std::deque<Record> const& records() const { return records_; }
    void clear() { records_.clear(); }

private:
    std::size_t capacity_;
    int level_ = 0;
    U64 next_ = 0;
    std::deque<Record> records_;
};

/** The ring of the process, of 4096 records. */
BELMO_EXPORT Ring& ring();

}  // namespace Rillog
