#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "agent/StateFile.h"

/*
 * What a switch directory holds beside chip and shadow: the state that the switch is to have, in `state.json`
 * and, because there may be very many of them, its routes in `routes.txt`, a plain list. While a change is
 * under way, the new state lies in the folder `next1` and the old one where it was, so that whoever comes
 * after a process that was stopped knows both: the tables of either may have entries. Who is stopped as well
 * leaves a `next2`, and so on, until a change is done.
 */
namespace Nerio {

/** The state of a kept switch. */
struct KeptState {
    Agent::StateFile wanted;
    /** Those before it that may not have been replaced whole. */
    std::vector<Agent::StateFile> earlier;
};

/** The state of the switch in the directory; nothing if none is kept there. Throws `StateFileException`. */
std::optional<KeptState> keptState(std::filesystem::path const& directory);
/** The same of a directory where one has to be; throws `BadInput`. */
KeptState requiredState(std::filesystem::path const& directory);

/** The state that a directory is to have, behind those that its tables may still hold something of. */
KeptState changedState(std::filesystem::path const& directory, Agent::StateFile wanted);

/**
 * A change of the state that a directory keeps, from before the first register is written until after the
 * last. All throw `Belmo::ResourceException`, and then what was kept is still there.
 */
class StateChange {
public:
    /** Keeps the new state beside the old one. The directory is there. */
    StateChange(std::filesystem::path directory, Agent::StateFile const& state);
    /** The switch has it: forgets the old one. */
    void done();

private:
    std::filesystem::path directory_;
    unsigned number_;
};

}  // namespace Nerio
