#pragma once

#include <deque>
#include <string_view>
#include <tsl/robin_map.h>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"
#include "NerioSwitchApi/RegisterBus.h"

namespace Chip {

/**
 * The registers that the chip of a profile has: path to number and back. Numbers run from 0 without gaps and
 * are the same for equal profiles.
 */
class BELMO_EXPORT RegisterMap {
public:
    explicit RegisterMap(NerioSwitch::ProfileInfo const& profile);
    RegisterMap(RegisterMap const&) = delete;
    RegisterMap& operator=(RegisterMap const&) = delete;

    U32 size() const { return static_cast<U32>(paths_.size()); }
    /** All paths, by number. */
    std::deque<Belmo::String> const& paths() const { return paths_; }
    /** The register of that path; throws `NerioSwitchApi::UnknownRegisterException`. */
    NerioSwitchApi::RegisterHandle address(std::string_view path) const;

private:
    void add(Belmo::String path);

    std::deque<Belmo::String> paths_;  // a deque, as the map below refers to its strings
    tsl::robin_map<std::string_view, U32> numbers_;
};

}  // namespace Chip
