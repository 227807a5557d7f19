#include "nerio/PacketOptions.h"

#include <array>
#include <charconv>
#include <fmt/format.h>
#include <string_view>

#include "Sorn/CharRange.h"

#include "chip/Ipv4Packet.h"
#include "nerio/Guarded.h"

namespace Nerio {

namespace {

using Chip::IpProtocol;

struct NamedProtocol {
    std::string_view name;
    U8 number;
};

constexpr std::array namedProtocols{NamedProtocol{"tcp", IpProtocol::tcp},
                                    NamedProtocol{"udp", IpProtocol::udp},
                                    NamedProtocol{"icmp", IpProtocol::icmp}};

U32 addressOf(char const* option, std::string const& text) {
    try {
        Sorn::CharRange range(text);
        auto const address = Lanvo::IpAddr::fromText(range);
        range.expectEnd();
        return address.hostOrder();
    } catch (Belmo::DeserializationException const&) {
        throw BadInput(fmt::format("{}: \"{}\" is no IPv4 address", option, text));
    }
}

std::optional<Lanvo::EthAddr> ethAddrOf(PacketOptions const& options) {
    if (options.ethAddr.empty()) return std::nullopt;
    try {
        Sorn::CharRange range(options.ethAddr);
        auto const address = Lanvo::EthAddr::fromText(range);
        range.expectEnd();
        return address;
    } catch (Belmo::DeserializationException const&) {
        throw BadInput(fmt::format("--dst-mac: \"{}\" is no MAC address", options.ethAddr));
    }
}

template <class Number>
Number within(char const* option, U32 value, U32 least, U32 most) {
    if (value < least) throw BadInput(fmt::format("{}: {} is below {}", option, value, least));
    if (value > most) throw BadInput(fmt::format("{}: {} is above {}", option, value, most));
    return static_cast<Number>(value);
}

template <class Number>
std::optional<Number> within(char const* option, std::optional<U32> value, U32 least, U32 most) {
    if (!value) return std::nullopt;
    return within<Number>(option, *value, least, most);
}

/** Without one, TCP for a packet with ports and ICMP for others. */
U8 protocolOf(PacketOptions const& options) {
    auto const& text = options.protocol;
    if (text.empty())
        return options.sourcePort || options.destinationPort ? IpProtocol::tcp : IpProtocol::icmp;
    for (auto const& protocol : namedProtocols) {
        if (protocol.name == text) return protocol.number;
    }
    U8 number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size()) return number;
    throw BadInput(fmt::format("--proto: \"{}\" is none of tcp, udp, icmp and 0 to 255", text));
}

Chip::Ipv4Headers headersOf(PacketOptions const& options) {
    Chip::Ipv4Headers headers{.source = addressOf("--src", options.source),
                              .destination = addressOf("--dst", options.destination),
                              .protocol = protocolOf(options)};
    bool const hasPorts = headers.protocol == IpProtocol::tcp || headers.protocol == IpProtocol::udp;
    for (auto const& [option, given] : {std::pair{"--sport", options.sourcePort.has_value()},
                                        std::pair{"--dport", options.destinationPort.has_value()}}) {
        if (given && !hasPorts) throw BadInput(fmt::format("{}: only tcp and udp have ports", option));
    }
    if (hasPorts) {
        headers.transport = {within<U16>("--sport", options.sourcePort.value_or(0), 0, 0xFFFF),
                             within<U16>("--dport", options.destinationPort.value_or(0), 0, 0xFFFF), 0};
    }
    return headers;
}

}  // namespace

void addPacketOptions(CLI::App& command, PacketOptions& options) {
    auto* destination =
        command.add_option("--dst", options.destination, "Show the way of a packet to that address");
    auto const add = [&](char const* name, auto& value, char const* description) {
        command.add_option(name, value, description)->needs(destination);
    };
    add("--src", options.source, "Its source, 0.0.0.0 if left out");
    add("--proto", options.protocol, "tcp, udp, icmp or a number; tcp with ports, icmp without if left out");
    add("--sport", options.sourcePort, "Its source port, 0 if left out");
    add("--dport", options.destinationPort, "Its destination port, 0 if left out");
    add("--port", options.port, "The port that it comes by, 0 if left out");
    add("--vlan", options.vlan, "The VLAN that it comes in, untagged if left out");
    add("--dst-mac", options.ethAddr, "The MAC address that it is for, the router's if left out");
    add("--acl", options.acl, "The ACL it is held against, that of its VLAN if left out");
    add("--acl-proto", options.aclProtocol,
        "Its protocol in ACL rules; what the switch has for its protocol if left out");
    command.add_flag("--acl-key-flag", options.aclKeyFlag, "Sets the flag of ACL keys of VRFs")
        ->needs(destination);
    add("--nat-profile", options.natProfile,
        "Of the interface that it comes by, that of its VLAN or 0 if left out");
    add("--egress-nat-profile", options.egressNatProfile,
        "Of the interface that it leaves by, the same one if left out");
    add("--flood-nexthop", options.floodNexthop,
        "Where a multicast packet without a route is flooded to, 0 if left out");
    add("--egress-port", options.egressPort, "The port that it leaves by, whatever ports the L3 LAG has");
}

Chip::ArrivingPacket arrivingPacket(PacketOptions const& options, std::optional<U32> vrf,
                                    NerioSwitch::ProfileInfo const& profile) {
    auto const headers = headersOf(options);
    U32 const lastPort = profile.numPorts - 1u;
    Chip::ArrivingPacket packet;
    packet.port = within<U32>("--port", options.port, 0, lastPort);
    packet.ethAddr = ethAddrOf(options);
    packet.vlan = within<U16>("--vlan", options.vlan, 1, 4094);
    packet.vrf = within<U8>("--vrf", vrf, 0, profile.numVrfs - 1);
    packet.aclId = within<U8>("--acl", options.acl, 0, 15);
    packet.aclProtocol = within<U8>("--acl-proto", options.aclProtocol, 0, 15);
    packet.aclKeyFlag = options.aclKeyFlag;
    packet.natProfile = within<U8>("--nat-profile", options.natProfile, 0, 63);
    packet.egressNatProfile = within<U8>("--egress-nat-profile", options.egressNatProfile, 0, 63);
    packet.floodNexthop = within<U32>("--flood-nexthop", options.floodNexthop, 0, 159);
    packet.egressPort = within<U32>("--egress-port", options.egressPort, 0, lastPort);
    packet.bytes = Chip::ipv4Packet(headers);
    return packet;
}

}  // namespace Nerio
