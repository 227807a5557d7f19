#include "Rillog/Rillog.h"

namespace Rillog {

void Ring::add(std::string_view handle, int level, std::string_view text) {
    if (capacity_ == 0) return;
    std::lock_guard const lock(mutex_);
    if (records_.size() == capacity_) records_.pop_front();
    records_.push_back({next_++, Belmo::String(handle), level, Belmo::String(text)});
}

std::vector<Record> Ring::records() const {
    std::lock_guard const lock(mutex_);
    return {records_.begin(), records_.end()};
}

void Ring::clear() {
    std::lock_guard const lock(mutex_);
    records_.clear();
}

Ring& ring() {
    static Ring processRing(4096);
    return processRing;
}

}  // namespace Rillog
