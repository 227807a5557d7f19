#pragma once

#include <array>
#include <bit>
#include <compare>

#include "Belmo/Assert.h"
#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "Sorn/CharRange.h"
#include "Sorn/Hash.h"

/** Network value types. Addresses are held in network order, as they stand in a packet. */
namespace Lanvo {

/** IPv4 address. Text form "10.0.0.1"; zeros in front are refused, for some programs read them as octal. */
class BELMO_EXPORT IpAddr {
public:
    constexpr IpAddr() = default;
    static constexpr IpAddr fromHostOrder(U32 address) {
        IpAddr result;
        for (U32 i = 0; i < 4; ++i)
            result.bytes_[i] = static_cast<U8>(address >> (24 - 8 * i));
        return result;
    }

    /** The four bytes, first byte first. */
    constexpr std::array<U8, 4> const& bytes() const { return bytes_; }
    constexpr U32 hostOrder() const {
        U32 address = 0;
        for (U8 const byte : bytes_)
            address = address << 8 | byte;
        return address;
    }

    friend constexpr bool operator==(IpAddr const& a, IpAddr const& b) {
        return std::bit_cast<U32>(a.bytes_) == std::bit_cast<U32>(b.bytes_);
    }
    friend constexpr auto operator<=>(IpAddr const& a, IpAddr const& b) {
        return a.hostOrder() <=> b.hostOrder();
    }
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(hostOrder(), seed); }
    Belmo::String text() const;
    static IpAddr fromText(Sorn::CharRange& range);

private:
    std::array<U8, 4> bytes_{};
};

/**
 * IPv4 prefix. Text form "10.0.0.0/8"; the null prefix, of length 255, is "null". Bits beyond the length
 * must be zero: the constructor throws `Belmo::RangeException` otherwise.
 */
class BELMO_EXPORT Prefix {
public:
    static constexpr U8 nullLength = 255;

    constexpr Prefix() = default;
    Prefix(IpAddr address, U8 length);
    static constexpr Prefix null() {
        Prefix result;
        result.length_ = nullLength;
        return result;
    }

    constexpr IpAddr const& address() const { return address_; }
    constexpr U8 len() const { return length_; }
    constexpr bool isNull() const { return length_ == nullLength; }
    /** The bits that a prefix of this length, 0 to 32, compares, in host order. */
    static constexpr U32 mask(U8 length) {
        BELMO_ASSERT(length <= 32);
        return length == 0 ? 0 : ~U32{0} << (32 - length);
    }
    /** Whether the length is at most 32 and no bit beyond it is set; or the null prefix, of address 0. */
    static constexpr bool validAsPrefix(IpAddr address, U8 length) {
        return length == nullLength ? address == IpAddr()
                                    : length <= 32 && (address.hostOrder() & ~mask(length)) == 0;
    }

    friend constexpr bool operator==(Prefix const&, Prefix const&) = default;
    // NOLINTNEXTLINE(modernize-use-nullptr)
    friend constexpr auto operator<=>(Prefix const&, Prefix const&) = default;
    constexpr U32 hash(U32 seed) const {
        return Sorn::hashOf(U64{address_.hostOrder()} << 8 | length_, seed);
    }
    Belmo::String text() const;
    static Prefix fromText(Sorn::CharRange& range);

private:
    IpAddr address_;
    U8 length_ = 0;
};

/** Ethernet address. Text form "00:1c:73:00:00:01". */
class BELMO_EXPORT EthAddr {
public:
    constexpr EthAddr() = default;
    constexpr explicit EthAddr(std::array<U8, 6> const& bytes) : bytes_(bytes) {}

    /** The six bytes, first byte first. */
    constexpr std::array<U8, 6> const& bytes() const { return bytes_; }

    friend constexpr bool operator==(EthAddr const&, EthAddr const&) = default;
    friend constexpr auto operator<=>(EthAddr const&, EthAddr const&) = default;  // NOLINT
    constexpr U32 hash(U32 seed) const {
        U64 number = 0;
        for (U8 const byte : bytes_)
            number = number << 8 | byte;
        return Sorn::hashOf(number, seed);
    }
    Belmo::String text() const;
    static EthAddr fromText(Sorn::CharRange& range);

private:
    std::array<U8, 6> bytes_{};
};

}  // namespace Lanvo
