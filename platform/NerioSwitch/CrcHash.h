#pragma once

#include "Belmo/Assert.h"
#include "Belmo/Export.h"
#include "Belmo/Types.h"

/*
 * The chip's hash functions: cyclic redundancy checks (W. W. Peterson and D. T. Brown, "Cyclic Codes for
 * Error Detection", Proceedings of the IRE, 1961) with an initial value of 0, no reflection and no final
 * exclusive or.
 *
 * A key is a polynomial over GF(2) in which bit i, that is bit i % 8 of byte i / 8, is the coefficient of
 * x^i. Its hash of width k is key(x) * x^k mod P(x), where each of the four ways has a primitive polynomial P
 * of its own: with one polynomial for all, keys that collide in one way would collide in every way. What a
 * bit contributes depends on its position only, so zero bits on top of a key do not change its hash. Any k
 * neighbouring key bits, with the others fixed, are mapped one to one to rows, which is why a row need not
 * store them.
 */
namespace NerioSwitch {

/** The hashes of one key in all ways. */
class CrcHashes {
public:
    static constexpr U8 ways = 4;
    static constexpr U32 wayBits = 16;

    constexpr explicit CrcHashes(U64 packed) : packed_(packed) {}

    /** The row in one way, 0 to 3. */
    constexpr U32 way(U8 hashNumber) const {
        BELMO_ASSERT(hashNumber < ways);
        return packed_ >> (wayBits * hashNumber) & 0xFFFF;
    }

    friend constexpr bool operator==(CrcHashes, CrcHashes) = default;

private:
    U64 packed_;
};

/**
 * The rows of a key in all ways, 10 to 13 bits wide. Only the first `bits` bits of the key count, 0 to 255 of
 * them, and no byte behind them is read; an empty key hashes to 0.
 */
BELMO_EXPORT CrcHashes crc10Hashes(U8 const* key, U8 bits);
BELMO_EXPORT CrcHashes crc11Hashes(U8 const* key, U8 bits);
BELMO_EXPORT CrcHashes crc12Hashes(U8 const* key, U8 bits);
BELMO_EXPORT CrcHashes crc13Hashes(U8 const* key, U8 bits);

/** The row of a key in way `hashNumber`, 0 to 3. Who needs several ways takes them from one `crc..Hashes`. */
inline U32 crc10Hash(U8 const* key, U8 hashNumber, U8 bits) {
    return crc10Hashes(key, bits).way(hashNumber);
}
inline U32 crc11Hash(U8 const* key, U8 hashNumber, U8 bits) {
    return crc11Hashes(key, bits).way(hashNumber);
}
inline U32 crc12Hash(U8 const* key, U8 hashNumber, U8 bits) {
    return crc12Hashes(key, bits).way(hashNumber);
}
inline U32 crc13Hash(U8 const* key, U8 hashNumber, U8 bits) {
    return crc13Hashes(key, bits).way(hashNumber);
}

}  // namespace NerioSwitch
