#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "NerioSwitch/ProfileInfo.h"

#include "chip/PacketWay.h"

namespace Nerio {

/** A packet as the command line tells it. */
struct PacketOptions {
    std::string destination;
    std::string source = "0.0.0.0";
    std::string protocol;
    std::optional<U32> sourcePort;
    std::optional<U32> destinationPort;
    U32 port = 0;
    std::optional<U32> vlan;
    std::string ethAddr;
    std::optional<U32> acl;
    std::optional<U32> aclProtocol;
    bool aclKeyFlag = false;
    std::optional<U32> natProfile;
    std::optional<U32> egressNatProfile;
    U32 floodNexthop = 0;
    std::optional<U32> egressPort;
};

/** Adds `--dst`, which is what asks for a packet, and all that goes with it. */
void addPacketOptions(CLI::App& command, PacketOptions& options);

/** The packet of those options, in a VRF if one is told; throws `BadInput` that names the option at fault. */
Chip::ArrivingPacket arrivingPacket(PacketOptions const& options, std::optional<U32> vrf,
                                    NerioSwitch::ProfileInfo const& profile);

}  // namespace Nerio
