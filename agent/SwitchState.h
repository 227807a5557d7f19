#pragma once

#include <map>

#include "Bridging/VlanId.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/HwAclId.h"
#include "NerioSwitch/ProfileInfo.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "agent/Json.h"
#include "agent/Ports.h"
#include "agent/Rates.h"

/* The layer 2 and policing side of a switch in the words of an operator. */
namespace Agent {

/** Where packets to an address go: the row that the address takes among those of all VLANs, and its ports. */
class VlanAddress {
    SORN_VALUE_TYPE(Agent, VlanAddress, (U32, row, 0), (Ports, ports, {}), (bool, toCpu, false),
                    (bool, ipRoute, false), (NerioSwitch::L2McastFlags, mcastFlags, {}));
};
using VlanAddresses = std::map<Lanvo::EthAddr, VlanAddress>;

/**
 * A VLAN: its ports, those whose untagged packets are in it, those that packets of unknown destination are
 * flooded to, and what else becomes of its packets. `vrf` is the VRF in which they are routed; `acl`, 0 to
 * 15, is the ACL that they are held against where they come in, and what it says of packets that hit no rule.
 */
class Vlan {
    SORN_VALUE_TYPE(Agent, Vlan, (Ports, ports, {}), (Ports, untagged, {}), (Ports, floodUnicast, {}),
                    (Ports, floodMulticast, {}), (bool, learn, true), (U8, vrf, 0),
                    (bool, unicastRoute, false), (bool, multicastRoute, false),
                    (bool, unknownUnicastToCpu, false), (bool, unknownMulticastToCpu, false),
                    (bool, broadcastToCpu, false), (bool, joinsToCpu, false), (bool, joinsToPorts, true),
                    (NerioSwitch::HwAclId, acl, {}), (bool, aclDefaultPermit, true),
                    (VlanAddresses, addresses, {}));
};

/** How a port treats tags and learns addresses, and what the hash that spreads its packets is made of. */
class PortSettings {
    SORN_VALUE_TYPE(Agent, PortSettings,
                    (NerioSwitchTable::PortConfigMode, mode, NerioSwitchTable::PortConfigMode::access),
                    (bool, txDisabled, false), (bool, l2ForwardingDisabled, false), (bool, mlagPeer, false),
                    (bool, learnOnly, false), (bool, learnDisabled, false), (bool, hashVlan, false),
                    (bool, hashProtocol, false), (bool, hashAddresses, false), (bool, hashPorts, false),
                    (U8, hashSeed, 0));
};

/** Where copies of what a port receives go. */
class MirrorTarget {
    SORN_VALUE_TYPE(Agent, MirrorTarget, (Ports, ports, {}), (bool, cpu, false));
};

struct PortChannelNumberTraits {
    using Representation = U8;
    static constexpr Representation first = 1;
    static constexpr Representation last = 62;
    static constexpr Representation initial = 1;
    static constexpr char const* rangeText = "Agent::PortChannelNumber::value < 1 or > 62 not allowed";
};

/** Number of a port channel, which is that of its group: 0 is what ports come back to, and 63 is none. */
using PortChannelNumber = Belmo::RangedIndex<PortChannelNumberTraits>;

/**
 * Settings of ports. In JSON, settings that ports have in common stand once, by the list of these ports:
 * {"0-39": {"mode": "access"}}. Ports with default settings are left out.
 */
template <class Settings>
using ByPort = std::map<NerioSwitch::ChipPortId, Settings>;

/** All of it as one value. Its parts are empty where nothing was said. */
struct SwitchState {
    std::map<Bridging::VlanId, Vlan> vlans;
    ByPort<PortSettings> ports;
    /** The members share packets evenly, by their hash. */
    std::map<PortChannelNumber, Ports> portChannels;
    ByPort<MirrorTarget> mirrors;
    ByPort<StormLimits> stormLimits;
    /** Classes that are not mentioned are not limited. */
    std::map<NerioSwitchTable::CoppClass, Rate> cpuLimits;

    /** Calls `visit(name, part)` for each part, with the name that it has in JSON. */
    template <class State, class Visit>
    static void forEachPart(State& state, Visit const& visit) {
        visit("vlans", state.vlans);
        visit("ports", state.ports);
        visit("portChannels", state.portChannels);
        visit("mirrors", state.mirrors);
        visit("stormLimits", state.stormLimits);
        visit("cpuLimits", state.cpuLimits);
    }

    friend bool operator==(SwitchState const&, SwitchState const&) = default;
};

/**
 * Reads the parts from the members of an object that has others as well. A VLAN without `floodUnicast` or
 * `floodMulticast` floods to all of its ports. Throws `JsonException` with the place of what makes no sense:
 * a port that the chip does not have or that is in two port channels, untagged in two VLANs, or in none that
 * it floods to; an ACL where the rows of VLANs have none; two addresses in one row; a limit that the chip
 * cannot tell.
 */
SwitchState switchStateFromJson(Json const& json, Place const& place,
                                NerioSwitch::ProfileInfo const& profile);
/** Adds the parts that there are to an object, and leaves out what is at its default. */
void switchStateToJson(SwitchState const& state, Json& json);

}  // namespace Agent
