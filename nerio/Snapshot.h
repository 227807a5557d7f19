#pragma once

#include <filesystem>

#include "nerio/KeptSwitch.h"
#include "nerio/TemporaryDirectory.h"

namespace Nerio {

/**
 * A kept switch as it is at this moment, copied to a directory of its own, which goes with this object. It
 * can be taken while another process has the switch, and nothing that happens to the copy reaches it.
 */
class Snapshot {
public:
    /** Throws `BadInput` where no switch is kept, and `Belmo::ResourceException`. */
    explicit Snapshot(std::filesystem::path const& directory);

    /** Another copy of the same. */
    Snapshot again() const { return Snapshot(path(), state_); }
    std::filesystem::path const& path() const { return copy_.path(); }
    KeptState const& state() const { return state_; }

private:
    Snapshot(std::filesystem::path const& directory, KeptState state);
    KeptState state_;
    TemporaryDirectory copy_;
};

}  // namespace Nerio
