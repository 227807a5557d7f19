#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

/* IPv4 packets as bytes, from the first byte of their header on. */
namespace Chip {

/** Numbers of protocols as they stand in packets. */
struct IpProtocol {
    static constexpr U8 icmp = 1;
    static constexpr U8 tcp = 6;
    static constexpr U8 udp = 17;
};

/** What lookups read in a packet's headers. Addresses, ports and checksums are in host order. */
struct Ipv4Headers {
    U32 source = 0;
    U32 destination = 0;
    U8 protocol = 0;
    U16 checksum = 0;

    /** The header of TCP or UDP. */
    struct Transport {
        U16 sourcePort = 0;
        U16 destinationPort = 0;
        U16 checksum = 0;

        friend bool operator==(Transport const&, Transport const&) = default;
    };
    /** Missing for other protocols, and in packets that lack it: fragments behind the first, and short ones.
     */
    std::optional<Transport> transport{};

    friend bool operator==(Ipv4Headers const&, Ipv4Headers const&) = default;
};

/** Throws `Belmo::RangeException` for what is no IPv4 packet. */
BELMO_EXPORT Ipv4Headers headersOf(std::span<U8 const> packet);

/** A packet of those headers without options and without contents. Its checksums are right, whatever
 * checksums the headers name. A protocol with ports that has none gets ports 0. */
BELMO_EXPORT std::vector<U8> ipv4Packet(Ipv4Headers const& headers);

/** Exchanges an address, and brings the header's checksum in line, as RFC 1624 tells. Throws like
 * `headersOf`.
 */
void addressIs(std::span<U8> packet, bool destination, U32 address);
/** Exchanges a port and adds a correction to the checksum's sum; a UDP packet without a checksum keeps none.
 * Does nothing to a packet without the header. */
void portIs(std::span<U8> packet, bool destination, std::optional<U16> port, U16 correction);

}  // namespace Chip
