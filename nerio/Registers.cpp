#include <fmt/format.h>
#include <memory>
#include <string>

#include "chip/RegisterMap.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/ProfileOption.h"

/* `nerio registers`: the registers of a profile's chip as a register map, to start one's own from. */
namespace Nerio {

namespace {

int printRegisters(std::string const& profile) {
    Chip::RegisterMap const registers(*profileOption(profile));
    fmt::print("# The registers of the simulated chip of profile {}: path and offset in bytes.\n", profile);
    U64 offset = 0;
    for (auto const& path : registers.paths()) {
        fmt::print("{} {:#x}\n", path, offset);
        offset += sizeof(U32);
    }
    return done;
}

}  // namespace

void addRegisters(CLI::App& app, int& status) {
    auto const profile = std::make_shared<std::string>("default");
    auto* command = app.add_subcommand(
        "registers", "Print the register map of a profile's chip, for nerio script --registers");
    command->add_option("--profile", *profile, profileOptionHelp);
    command->callback(
        [profile, &status] { status = guarded("registers", [&] { return printRegisters(*profile); }); });
}

}  // namespace Nerio
