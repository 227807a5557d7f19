#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "Belmo/Types.h"
#include "Lanvo/Address.h"

namespace NerioTest {

/** The Internet checksum (RFC 1071) of bytes behind a sum that was begun with others. */
inline U16 internetChecksum(std::span<U8 const> bytes, U32 sum = 0) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
        sum += i % 2 == 0 ? U32{bytes[i]} << 8 : U32{bytes[i]};
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<U16>(~sum);
}

/** An IPv4 packet as bytes. Checksums are worked out from all of it, never brought in line. */
class Ipv4Packet {
public:
    static constexpr U8 icmp = 1;
    static constexpr U8 tcp = 6;
    static constexpr U8 udp = 17;

    struct End {
        Lanvo::IpAddr address;
        U16 port = 0;
    };

    Ipv4Packet(U8 protocol, End const& source, End const& destination, std::vector<U8> const& payload,
               std::size_t optionWords = 0)
        : headerSize_(20 + 4 * optionWords) {
        std::size_t const transport = protocol == tcp ? 20 : 8;
        bytes.resize(headerSize_ + transport + payload.size());
        bytes[0] = static_cast<U8>(0x40 | headerSize_ / 4);
        put(2, static_cast<U16>(bytes.size()));
        put(4, 0x1234);
        bytes[8] = 64;
        bytes[9] = protocol;
        for (std::size_t i = 20; i < headerSize_; ++i)
            bytes[i] = 1;  // no operation
        for (std::size_t i = 0; i < 4; ++i) {
            bytes[12 + i] = source.address.bytes()[i];
            bytes[16 + i] = destination.address.bytes()[i];
        }
        if (protocol != icmp) {
            put(headerSize_, source.port);
            put(headerSize_ + 2, destination.port);
        }
        if (protocol == tcp) bytes[headerSize_ + 12] = 5 << 4;
        if (protocol == udp) put(headerSize_ + 4, static_cast<U16>(bytes.size() - headerSize_));
        std::copy(payload.begin(), payload.end(), bytes.end() - static_cast<std::ptrdiff_t>(payload.size()));
        put(10, headerChecksum());
        if (protocol != icmp) put(checksumAt(), transportChecksum());
    }

    U8 protocol() const { return bytes[9]; }
    End source() const { return {address(12), protocol() == icmp ? U16{0} : at(headerSize_)}; }
    End destination() const { return {address(16), protocol() == icmp ? U16{0} : at(headerSize_ + 2)}; }
    std::size_t checksumAt() const { return headerSize_ + (protocol() == tcp ? 16u : 6u); }
    U16 at(std::size_t field) const { return static_cast<U16>(bytes[field] << 8 | bytes[field + 1]); }
    void put(std::size_t field, U16 number) {
        bytes[field] = static_cast<U8>(number >> 8);
        bytes[field + 1] = static_cast<U8>(number);
    }

    /** What the checksums have to be for the bytes as they are. */
    U16 headerChecksum() const {
        auto header =
            std::vector<U8>(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(headerSize_));
        header[10] = header[11] = 0;
        return internetChecksum(header);
    }
    U16 transportChecksum() const {
        auto copy = *this;
        copy.put(checksumAt(), 0);
        auto const segment = std::span<U8 const>(copy.bytes).subspan(headerSize_);
        U32 sum = protocol() + static_cast<U32>(segment.size());
        for (std::size_t field = 12; field < 20; field += 2)
            sum += at(field);
        U16 const checksum = internetChecksum(segment, sum);
        return protocol() == udp && checksum == 0 ? U16{0xFFFF} : checksum;
    }
    bool checksumsAreRight() const {
        bool const header = at(10) == headerChecksum();
        return header && (protocol() == icmp || at(checksumAt()) == transportChecksum());
    }

    std::vector<U8> bytes;

private:
    Lanvo::IpAddr address(std::size_t field) const {
        return Lanvo::IpAddr::fromHostOrder(U32{at(field)} << 16 | at(field + 2));
    }

    std::size_t headerSize_;
};

inline bool operator==(Ipv4Packet::End const& a, Ipv4Packet::End const& b) {
    return a.address == b.address && a.port == b.port;
}

}  // namespace NerioTest
