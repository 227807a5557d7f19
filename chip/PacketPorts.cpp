#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "chip/PacketStages.h"

/* The stages of the ports that a packet comes by and leaves by. */
namespace Chip {

namespace {

struct PortConfig {
    Belmo::String path;
    U32 word = 0;

    Belmo::String mode() const {
        constexpr std::array modes{"trunk", "access", "qinq", "3"};
        return modes[word & 3];
    }
    bool txDisabled() const { return (word >> 2 & 1) != 0; }
    bool l2ForwardingDisabled() const { return (word >> 3 & 1) != 0; }
};

PortConfig configOf(PacketOnItsWay const& way, U32 port) {
    char const* name = way.profile.vlanRegVer > 1 ? "vlan_cfg" : "cfg";
    PortConfig config{.path = fmt::format("egress/port[{}]/{}", port, name)};
    config.word = way.chip.read(way.chip.address(config.path));
    return config;
}

ChipLookup lookupOf(PortConfig const& config, U32 port) {
    return {.memory = config.path,
            .key = {named("port", port)},
            .result = NamedValues{{"mode", config.mode()},
                                  flagged("tx disabled", config.txDisabled()),
                                  flagged("L2 forwarding disabled", config.l2ForwardingDisabled())}};
}

}  // namespace

bool ingressPortStage(PacketOnItsWay& way, PacketStage& stage) {
    auto const config = configOf(way, way.packet.port);
    stage.lookups = {lookupOf(config, way.packet.port)};
    stage.decision = fmt::format("port {} is in mode {}", way.packet.port, config.mode());
    return true;
}

bool egressPortStage(PacketOnItsWay& way, PacketStage& stage) {
    if (way.copies.empty()) return false;
    U64 open = 0;
    U64 closed = 0;
    for (auto const& copy : way.copies) {
        U64 const bit = U64{1} << copy.port;
        if (((open | closed) & bit) != 0) continue;
        if (way.isCpu(copy.port)) {
            open |= bit;
            continue;
        }
        auto const config = configOf(way, copy.port);
        stage.lookups.push_back(lookupOf(config, copy.port));
        (config.txDisabled() ? closed : open) |= bit;
    }
    std::erase_if(way.copies, [&](PacketCopy const& copy) { return (closed >> copy.port & 1) != 0; });
    std::vector<Belmo::String> parts;
    if (open != 0) parts.push_back(fmt::format("leaves by {}", portsText(open, way.profile.numPorts)));
    if (closed != 0)
        parts.push_back(fmt::format("{} may not transmit", portsText(closed, way.profile.numPorts)));
    stage.decision = fmt::format("{}", fmt::join(parts, "; "));
    if (way.copies.empty()) way.drop();
    return true;
}

}  // namespace Chip
