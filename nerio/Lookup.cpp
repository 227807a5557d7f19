#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>

#include "Sorn/CharRange.h"

#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "chip/LpmLookup.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/Switch.h"

/*
 * `nerio lookup`: where the chip of a kept switch would send a packet. The answer is the chip's own; which
 * route it came from, only the shadow knows.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Lanvo::IpAddr;
using Lanvo::Prefix;

struct Options {
    std::string directory;
    std::string address;
    U32 vrf = 0;
    bool json = false;
};

IpAddr addressOf(Options const& options) {
    try {
        Sorn::CharRange range(options.address);
        auto const address = IpAddr::fromText(range);
        range.expectEnd();
        return address;
    } catch (Belmo::DeserializationException const&) {
        throw BadInput(fmt::format("\"{}\" is no IPv4 address", options.address));
    }
}

Agent::StateFile stateOf(Options const& options) {
    std::error_code ignored;
    auto state = keptState(options.directory);
    if (!state || !std::filesystem::exists(std::filesystem::path(options.directory) / "chip", ignored))
        throw BadInput(fmt::format("{}: no switch is kept there", options.directory));
    return *std::move(state);
}

/** The memory of a stage's rows in the first processor. */
Chip::IndirectMemory const& memoryOf(Switch& target, U8 stage) {
    return target.chip().indirectMemory(fmt::format("ingress/processor_l3[0]/lpm{}", stage));
}

/** The shadow of these rows, by the name that the stage's own table gives it. */
Belmo::Ptr<NerioSwitchApi::ShadowTable> shadowOf(Switch& target, U8 stage) {
    using NerioSwitchTable::TableConstants;
    constexpr NerioSwitchTable::TableIndex directStage = 42;
    auto const index = stage == 11 ? directStage : NerioSwitchTable::lpmStage(stage).tableIndex;
    auto const name = NerioSwitchApi::SwTable::hwTableName(
        fmt::format("lpm{}", stage), target.profile().profileName(), TableConstants::tableName(index), 0);
    return target.shadows().tableIs(name, 0, memoryOf(target, stage).description().rows() - 1,
                                    NerioSwitchApi::StartMode::warm);
}

/** The length of the route behind a hit; nothing if the shadow does not know the row as the chip has it. */
std::optional<U8> lengthOf(Switch& target, Chip::LpmHit const& hit) {
    auto const& memory = memoryOf(target, hit.stage);
    U32 const row = hit.place.way * memory.description().rowsPerWay + hit.place.row;
    std::optional<NerioSwitchApi::HwEntryConfig> stored;
    try {
        stored = shadowOf(target, hit.stage)->read(row);
    } catch (Belmo::CorruptionDetectedException const&) {
        return std::nullopt;
    }
    if (!stored) return std::nullopt;
    auto const words = memory.row(row);
    U8 position = 0;
    for (U32 const word : words) {
        if (stored->data(position++) != word) return std::nullopt;
    }
    auto const lengths = stored->data(hit.stage == 11 ? 2 : NerioSwitchTable::LpmRowLayout::lengthsWord);
    auto const length = static_cast<U8>(lengths >> (6 * hit.cell) & 0x3F);
    return length <= hit.stage ? std::optional(length) : std::nullopt;
}

/** The route behind a hit. */
std::optional<Prefix> routeOf(Switch& target, Chip::LpmHit const& hit, IpAddr address) {
    auto const length = lengthOf(target, hit);
    if (!length) return std::nullopt;
    return Prefix(IpAddr::fromHostOrder(address.hostOrder() & Prefix::mask(*length)), *length);
}

void printJson(Options const& options, std::optional<Chip::LpmHit> const& hit,
               std::optional<Prefix> const& route) {
    Json answer{{"address", options.address}, {"vrf", options.vrf}, {"found", hit.has_value()}};
    if (hit) {
        answer.update(Json{{"route", route ? Json(route->text()) : Json()},
                           {"nexthop", hit->nexthop},
                           {"cpuTrap", hit->cpuTrap},
                           {"stage", hit->stage},
                           {"way", hit->place.way},
                           {"row", hit->place.row},
                           {"cell", hit->cell},
                           {"encoding", hit->encoding}});
    }
    fmt::print("{}\n", answer.dump(1));
}

void printText(Options const& options, std::optional<Chip::LpmHit> const& hit,
               std::optional<Prefix> const& route) {
    if (!hit) {
        fmt::print("{} in VRF {}: no route\n", options.address, options.vrf);
        return;
    }
    fmt::print("{} in VRF {}: {}, next hop {}{}\n", options.address, options.vrf,
               route ? route->text() : "a route that the shadow does not know", hit->nexthop,
               hit->cpuTrap ? ", to the CPU" : "");
    fmt::print("  stage lpm{}, way {}, row {}, cell {}\n", hit->stage, hit->place.way, hit->place.row,
               hit->cell);
}

int runLookup(Options const& options) {
    auto const address = addressOf(options);
    auto const state = stateOf(options);
    if (options.vrf >= state.profile->numVrfs)
        throw BadInput(fmt::format("VRF {} is above {}", options.vrf, state.profile->numVrfs - 1));
    Switch target(state.profile, options.directory);
    Chip::LpmLookup const lookup(target.chip(), target.profile());
    auto const hit = lookup.find(static_cast<U8>(options.vrf), address.hostOrder());
    auto const route = hit ? routeOf(target, *hit, address) : std::nullopt;
    (options.json ? printJson : printText)(options, hit, route);
    return hit ? done : jobFailed;
}

}  // namespace

void addLookup(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("lookup", "Ask the chip of a kept switch where an address leads");
    command->add_option("IP", options->address, "An IPv4 address")->required();
    command->add_option("--switch", options->directory, "The switch's directory")->required();
    command->add_option("--vrf", options->vrf, "The VRF, 0 if left out");
    command->add_flag("--json", options->json, "Answer as JSON");
    command->callback(
        [options, &status] { status = guarded("lookup", [&] { return runLookup(*options); }); });
}

}  // namespace Nerio
