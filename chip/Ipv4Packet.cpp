#include "chip/Ipv4Packet.h"

#include "Belmo/Exceptions.h"

namespace Chip {

namespace {

using Bytes = std::span<U8 const>;

constexpr std::size_t fragmentField = 6;
constexpr std::size_t checksumField = 10;
constexpr std::size_t sourceField = 12;
constexpr std::size_t destinationField = 16;
constexpr std::size_t shortestHeader = 20;

constexpr std::size_t tcpHeader = 20;
constexpr std::size_t udpHeader = 8;

U16 numberAt(Bytes packet, std::size_t at) {
    return static_cast<U16>(packet[at] << 8 | packet[at + 1]);
}

void numberIs(std::span<U8> packet, std::size_t at, U32 number) {
    packet[at] = static_cast<U8>(number >> 8);
    packet[at + 1] = static_cast<U8>(number);
}

U32 addressAt(Bytes packet, std::size_t at) {
    return U32{numberAt(packet, at)} << 16 | numberAt(packet, at + 2);
}

void numbersAre(std::span<U8> packet, std::size_t at, U32 address) {
    numberIs(packet, at, address >> 16);
    numberIs(packet, at + 2, address);
}

U32 halves(U32 word) {
    return (word >> 16) + (word & 0xFFFF);
}

U16 folded(U32 sum) {
    while (sum > 0xFFFF)
        sum = halves(sum);
    return static_cast<U16>(sum);
}

/** Adds to the sum that a checksum stands for (RFC 1624, equation 3). */
U16 corrected(U16 checksum, U32 correction) {
    return static_cast<U16>(~folded((~U32{checksum} & 0xFFFF) + correction));
}

/** The Internet checksum (RFC 1071) of bytes of an even number, behind a sum that was begun with others. */
U16 checksumOf(Bytes bytes, U32 sum = 0) {
    for (std::size_t at = 0; at < bytes.size(); at += 2)
        sum += numberAt(bytes, at);
    return static_cast<U16>(~folded(sum));
}

/** UDP has no checksum of 0: it stands for none. */
U16 transportChecksum(U8 protocol, U16 checksum) {
    return protocol == IpProtocol::udp && checksum == 0 ? U16{0xFFFF} : checksum;
}

std::size_t headerLength(Bytes packet) {
    return std::size_t{4} * (packet[0] & 0xF);
}

/** The length of a protocol's header, 0 for one without ports. */
std::size_t transportLength(U8 protocol) {
    return protocol == IpProtocol::tcp ? tcpHeader : protocol == IpProtocol::udp ? udpHeader : 0;
}

std::size_t checksumAt(U8 protocol) {
    return protocol == IpProtocol::tcp ? 16 : 6;
}

void check(Bytes packet) {
    bool const isIpv4 = packet.size() >= shortestHeader && packet[0] >> 4 == 4 &&
                        headerLength(packet) >= shortestHeader && packet.size() >= headerLength(packet);
    if (!isIpv4) throw Belmo::RangeException("no IPv4 packet");
}

bool hasTransport(Bytes packet) {
    auto const length = transportLength(packet[9]);
    bool const firstFragment = (numberAt(packet, fragmentField) & 0x1FFF) == 0;
    return length != 0 && firstFragment && packet.size() >= headerLength(packet) + length;
}

}  // namespace

Ipv4Headers headersOf(Bytes packet) {
    check(packet);
    Ipv4Headers headers{.source = addressAt(packet, sourceField),
                        .destination = addressAt(packet, destinationField),
                        .protocol = packet[9],
                        .checksum = numberAt(packet, checksumField)};
    if (hasTransport(packet)) {
        auto const transport = packet.subspan(headerLength(packet));
        headers.transport = {numberAt(transport, 0), numberAt(transport, 2),
                             numberAt(transport, checksumAt(headers.protocol))};
    }
    return headers;
}

std::vector<U8> ipv4Packet(Ipv4Headers const& headers) {
    auto const length = transportLength(headers.protocol);
    std::vector<U8> packet(shortestHeader + length);
    packet[0] = 0x45;
    numberIs(packet, 2, static_cast<U32>(packet.size()));
    packet[8] = 64;
    packet[9] = headers.protocol;
    numbersAre(packet, sourceField, headers.source);
    numbersAre(packet, destinationField, headers.destination);
    numberIs(packet, checksumField, checksumOf(packet));
    if (length == 0) return packet;

    auto const transport = std::span(packet).subspan(shortestHeader);
    auto const ports = headers.transport.value_or(Ipv4Headers::Transport());
    numberIs(transport, 0, ports.sourcePort);
    numberIs(transport, 2, ports.destinationPort);
    if (headers.protocol == IpProtocol::tcp) {
        transport[12] = 5 << 4;
        transport[13] = 2;  // SYN
    } else {
        numberIs(transport, 4, udpHeader);
    }
    U32 const pseudoHeader =
        halves(headers.source) + halves(headers.destination) + headers.protocol + static_cast<U32>(length);
    numberIs(transport, checksumAt(headers.protocol),
             transportChecksum(headers.protocol, checksumOf(transport, pseudoHeader)));
    return packet;
}

void addressIs(std::span<U8> packet, bool destination, U32 address) {
    check(packet);
    auto const field = destination ? destinationField : sourceField;
    U32 const change = halves(~addressAt(packet, field)) + halves(address);
    numbersAre(packet, field, address);
    numberIs(packet, checksumField, corrected(numberAt(packet, checksumField), change));
}

void portIs(std::span<U8> packet, bool destination, std::optional<U16> port, U16 correction) {
    if (!hasTransport(packet)) return;
    U8 const protocol = packet[9];
    auto const transport = packet.subspan(headerLength(packet));
    if (port) numberIs(transport, destination ? 2 : 0, *port);
    U16 const checksum = numberAt(transport, checksumAt(protocol));
    if (protocol == IpProtocol::udp && checksum == 0) return;
    numberIs(transport, checksumAt(protocol), transportChecksum(protocol, corrected(checksum, correction)));
}

}  // namespace Chip
