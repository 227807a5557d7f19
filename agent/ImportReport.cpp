#include "agent/ImportReport.h"

#include <algorithm>

namespace Agent {

void ImportReport::took(std::string_view part, std::size_t count) {
    auto const known = std::ranges::find(parts_, part, &std::pair<Belmo::String, std::size_t>::first);
    if (known == parts_.end()) {
        parts_.emplace_back(part, count);
    } else {
        known->second += count;
    }
}

void ImportReport::lost(Belmo::String place, Belmo::String reason) {
    losses_.push_back({std::move(place), std::move(reason)});
}

void ImportReport::named(std::string_view kind, Belmo::String name, U32 number) {
    names_.push_back({Belmo::String(kind), std::move(name), number});
}

std::size_t ImportReport::taken(std::string_view part) const {
    auto const known = std::ranges::find(parts_, part, &std::pair<Belmo::String, std::size_t>::first);
    return known == parts_.end() ? 0 : known->second;
}

}  // namespace Agent
