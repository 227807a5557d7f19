#include "NerioSwitch/CrcHash.h"

#include <array>
#include <cstddef>

namespace NerioSwitch {

namespace {

/** What each value of each key byte contributes to the hashes of all ways. */
using CrcTable = std::array<std::array<U64, 256>, 32>;

/** One polynomial per way, as bit masks: bit i is the coefficient of x^i, the top bit x^width included. */
using Polynomials = std::array<U32, CrcHashes::ways>;

constexpr CrcTable crcTable(U32 width, Polynomials const& polynomials) {
    CrcTable table{};
    Polynomials weights{};  // of the key bit at hand: x^(position + width) mod P
    for (std::size_t way = 0; way < weights.size(); ++way)
        weights[way] = polynomials[way] ^ U32 { 1 } << width;
    for (auto& byte : table) {
        for (std::size_t bit = 1; bit < byte.size(); bit *= 2) {
            U64 packed = 0;
            for (std::size_t way = 0; way < weights.size(); ++way) {
                packed |= U64{weights[way]} << (CrcHashes::wayBits * way);
                weights[way] <<= 1;
                if (weights[way] >> width != 0) weights[way] ^= polynomials[way];
            }
            for (std::size_t lower = 0; lower < bit; ++lower)
                byte[bit + lower] = byte[lower] ^ packed;
        }
    }
    return table;
}

constexpr CrcTable crc10Table = crcTable(10, {0x58F, 0x643, 0x531, 0x427});
constexpr CrcTable crc11Table = crcTable(11, {0x8E1, 0xF9B, 0xB41, 0xFAD});
constexpr CrcTable crc12Table = crcTable(12, {0x1107, 0x1609, 0x1C11, 0x1069});
constexpr CrcTable crc13Table = crcTable(13, {0x2C8B, 0x2297, 0x344D, 0x20A5});

inline CrcHashes hashes(CrcTable const& table, U8 const* key, U8 bits) {
    std::size_t const bytes = bits / 8;
    U64 packed = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        packed ^= table[i][key[i]];
    if (U32 const rest = bits % 8; rest != 0) packed ^= table[bytes][key[bytes] & ((1u << rest) - 1)];
    return CrcHashes(packed);
}

}  // namespace

CrcHashes crc10Hashes(U8 const* key, U8 bits) {
    return hashes(crc10Table, key, bits);
}

CrcHashes crc11Hashes(U8 const* key, U8 bits) {
    return hashes(crc11Table, key, bits);
}

CrcHashes crc12Hashes(U8 const* key, U8 bits) {
    return hashes(crc12Table, key, bits);
}

CrcHashes crc13Hashes(U8 const* key, U8 bits) {
    return hashes(crc13Table, key, bits);
}

}  // namespace NerioSwitch
