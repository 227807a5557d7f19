#include "Rillog/Rillog.h"

namespace Rillog {

void Ring::add(std::string_view handle, int level, std::string_view text) {
    if (capacity_ == 0) return;
    if (records_.size() == capacity_) records_.pop_front();
    records_.push_back({next_++, Belmo::String(handle), level, Belmo::String(text)});
}

Ring& ring() {
    static Ring processRing(4096);
    return processRing;
}

}  // namespace Rillog
