#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>

#include "Sorn/CharRange.h"

#include "chip/LpmLookup.h"
#include "chip/PacketWay.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/PacketOptions.h"
#include "nerio/PacketReport.h"
#include "nerio/RouteOfHit.h"
#include "nerio/SecondProcess.h"
#include "nerio/Switch.h"
#include "nerio/TemporaryDirectory.h"

/*
 * `nerio lookup`: where the chip of a switch would send packets to an address, or the way of one packet
 * through it, stage by stage. The answer is the chip's own; which route it came from, only the shadow knows.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Lanvo::IpAddr;
using Lanvo::Prefix;

struct Options {
    std::string directory;
    std::string stateFile;
    std::string address;
    PacketOptions packet;
    std::optional<U32> vrf;
    bool json = false;
};

U32 vrfOf(Options const& options) {
    return options.vrf.value_or(0);
}

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

void printJson(Options const& options, std::optional<Chip::LpmHit> const& hit,
               std::optional<Prefix> const& route) {
    Json answer{{"address", options.address}, {"vrf", vrfOf(options)}, {"found", hit.has_value()}};
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
        fmt::print("{} in VRF {}: no route\n", options.address, vrfOf(options));
        return;
    }
    fmt::print("{} in VRF {}: {}, next hop {}{}\n", options.address, vrfOf(options),
               route ? route->text() : "a route that the shadow does not know", hit->nexthop,
               hit->cpuTrap ? ", to the CPU" : "");
    fmt::print("  stage lpm{}, way {}, row {}, cell {}\n", hit->stage, hit->place.way, hit->place.row,
               hit->cell);
}

/** Where packets to an address would go. */
int lookUpAddress(Options const& options, std::string const& directory) {
    auto const address = addressOf(options);
    auto const state = requiredState(directory).wanted;
    if (vrfOf(options) >= state.profile->numVrfs)
        throw BadInput(fmt::format("VRF {} is above {}", vrfOf(options), state.profile->numVrfs - 1));
    Switch target(state.profile, directory);
    Chip::LpmLookup const lookup(target.chip(), target.profile());
    auto const hit = lookup.find(static_cast<U8>(vrfOf(options)), address.hostOrder());
    auto const route = hit ? routeOf(target, *hit, address) : std::nullopt;
    (options.json ? printJson : printText)(options, hit, route);
    return hit ? done : jobFailed;
}

/** Names the route in the stage that found it. */
void nameRoute(Chip::PacketWay& way, Switch& target, std::string const& destination) {
    if (!way.route) return;
    Sorn::CharRange range(destination);
    auto const route = routeOf(target, *way.route, IpAddr::fromText(range));
    auto const stage = std::ranges::find(way.stages, "route", &Chip::PacketStage::name);
    if (route) stage->lookups.front().result->push_back({"route", route->text()});
}

/** The way of a packet. */
int lookUpPacket(Options const& options, std::string const& directory, std::string const& where) {
    auto const state = requiredState(directory).wanted;
    auto const packet = arrivingPacket(options.packet, options.vrf, *state.profile);
    Switch target(state.profile, directory);
    auto way = Chip::packetWay(target.chip(), target.profile(), packet);
    nameRoute(way, target, options.packet.destination);
    PacketReport const report{target.profile(), packet, way, where};
    if (options.json) {
        fmt::print("{}\n", toJson(report).dump(1));
    } else {
        fmt::print("{}", toText(report));
    }
    return way.fate == Chip::PacketFate::dropped ? jobFailed : done;
}

int lookUpIn(Options const& options, std::string const& directory, std::string const& where) {
    return options.address.empty() ? lookUpPacket(options, directory, where)
                                   : lookUpAddress(options, directory);
}

int runLookup(Options const& options) {
    if (!options.directory.empty())
        return lookUpIn(options, options.directory, "kept in " + options.directory);
    TemporaryDirectory const temporary("nerio-lookup");
    std::vector<std::string> run{"run", "--switch", temporary.path().string()};
    if (!options.stateFile.empty()) run.push_back(options.stateFile);
    // What cannot be programmed is told there.
    if (int const status = runSelf(run).status; status != done) return status;
    return lookUpIn(options, temporary.path().string(),
                    "of " + (options.stateFile.empty() ? "examples/campus.json" : options.stateFile));
}

}  // namespace

void addLookup(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand(
        "lookup", "Ask the chip of a switch where an address leads, or which way a packet takes");
    auto* address = command->add_option("IP", options->address, "An IPv4 address");
    auto* directory = command->add_option("--switch", options->directory, "The directory of a kept switch");
    auto* state = command->add_option(
        "--state", options->stateFile,
        "The state file of a switch to program for it; for a packet, the campus switch if left out");
    command->add_option("--vrf", options->vrf, "The VRF; if left out 0, for a packet that of its VLAN");
    command->add_flag("--json", options->json, "Answer as JSON");
    addPacketOptions(*command, options->packet);
    state->excludes(directory);
    auto* packet = command->get_option("--dst")->excludes(address);
    command->callback([=, &status] {
        if (address->count() + packet->count() == 0) throw CLI::RequiredError("IP or --dst");
        if (packet->count() + directory->count() + state->count() == 0) throw CLI::RequiredError("--switch");
        status = guarded("lookup", [&] { return runLookup(*options); });
    });
}

}  // namespace Nerio
