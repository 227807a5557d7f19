#pragma once

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "Lanvo/Address.h"

/*
 * Addresses and filter prefixes as hardware keys hold them. A filter prefix is a 32-bit address with its
 * length folded into the low bits that the prefix leaves free, and a mask type of two bits that says how:
 *
 *   mask type   length     address bits kept       low bits hold
 *       0       32         all                     nothing
 *       1       31         all but the lowest      nothing
 *       2       27 to 30   all but the lowest 2    length - 27
 *       3       0 to 26    all but the lowest 5    length
 */
namespace NerioSwitchTable {

/** An address as the hardware holds it, turned round. All ones stands for the absent address, which is 0. */
constexpr U32 hwIpToSw(U32 address) {
    return address == 0xFFFFFFFF ? 0 : __builtin_bswap32(address);
}

/** Takes the folded length out of the address and returns it. Mask types above 3 fold nothing. */
BELMO_EXPORT U8 stripMaskLen(U32* address, U8 maskType);

/**
 * The folded address of a prefix, in host order; the mask type goes to `maskType`. The null prefix gives 0
 * and mask type 0, as 0.0.0.0/32 does: that there is a filter at all is told by another field of the key.
 */
BELMO_EXPORT U32 encodeFilterPfx(Lanvo::Prefix const& prefix, U8& maskType);

/** The prefix of a folded address. A mask type above 3 is a programming error. */
BELMO_EXPORT Lanvo::Prefix decodeFilterPfx(U32 address, U8 maskType);

}  // namespace NerioSwitchTable
