#pragma once

#include <array>

#include "NerioSwitchTable/BitField.h"

namespace NerioSwitchTable {

/**
 * The rows of routes by source and destination. Which fields they have, and so where each is, depends on the
 * chip: its ports, whether it translates addresses, and whether its rows have room for a session. Rows store
 * all of a key but the low bits of the destination, which the row's number makes up for; a word that only
 * the shadow keeps has all of them.
 */
struct SGRowLayout {
    /** Bits of a key that rows store; whether a key is one of unicast is the result's first bit. */
    static constexpr U8 compareWidth = 59;
    static constexpr U8 hashTableId = 8;
    static constexpr U8 words = 7;
    static constexpr U8 firstHitBit = 8;

    /** Of a key. */
    static constexpr BitField storedDip{"storedDip", 0, 15};
    static constexpr BitField sip{"sip", 15, 32};
    static constexpr BitField vlanId{"vlanId", 47, 12};
    static constexpr BitField ingressProfileId{"ingressProfileId", 51, 6};
    static constexpr BitField compare{"compare", 0, compareWidth};

    constexpr SGRowLayout(U32 numPorts, bool natProfile, bool natResultSupported)
        : dataWords(natResultSupported ? 5 : 4),
          controlWord(dataWords),
          unicast{"unicast", compareWidth, width(natProfile, 1)},
          lookupType{"lookupType", after(unicast), width(natProfile, 2)},
          valid{"valid", after(lookupType), 1},
          vlanGroupId{"vlanGroupId", after(valid), 4},
          portMask{"portMask", after(vlanGroupId), static_cast<U8>(numPorts + 1)},
          rewriteIndex{"rewriteIndex", after(valid), 6},
          l3LagIndex{"l3LagIndex", after(rewriteIndex), 6},
          parity{"parity", after(portMask), 1},
          natType{"natType", after(parity), width(natProfile && natResultSupported, 2)},
          natSessionId{"natSessionId", after(natType), width(natProfile && natResultSupported, 17)},
          natEnabled{"natEnabled", after(natSessionId), width(natProfile && natResultSupported, 1)},
          row{"row", control(0), 13},
          way{"way", control(14), 2},
          writeStrobe{"writeStrobe", control(17), 1},
          tableId{"tableId", control(18), 4},
          wholeDip{"wholeDip", static_cast<U16>(32 * (dataWords + 1)), 32} {}

    /** What rows of both kinds have alike, and what each kind has of its own. */
    constexpr std::array<BitField, 12> commonFields() const {
        return {unicast,    lookupType, valid, parity,      natType, natSessionId,
                natEnabled, row,        way,   writeStrobe, tableId, wholeDip};
    }
    static constexpr std::array multicastKeyFields{storedDip, sip, vlanId};
    static constexpr std::array unicastKeyFields{storedDip, sip, ingressProfileId};
    constexpr std::array<BitField, 2> multicastResultFields() const { return {vlanGroupId, portMask}; }
    constexpr std::array<BitField, 2> unicastResultFields() const { return {rewriteIndex, l3LagIndex}; }
    /** Every field has its place, and those of a chip's rows share none. */
    constexpr bool fits() const {
        return natEnabled.end() <= 32u * dataWords && l3LagIndex.end() <= portMask.end() &&
               fieldsFit(commonFields(), words) && fieldsDisjoint(commonFields()) &&
               vlanGroupId.first == valid.end() && portMask.first == vlanGroupId.end() &&
               parity.first == portMask.end();
    }

    U8 dataWords;
    U8 controlWord;
    BitField unicast;
    BitField lookupType;
    BitField valid;
    BitField vlanGroupId;
    BitField portMask;
    BitField rewriteIndex;
    BitField l3LagIndex;
    BitField parity;
    BitField natType;
    BitField natSessionId;
    BitField natEnabled;
    BitField row;
    BitField way;
    BitField writeStrobe;
    BitField tableId;
    BitField wholeDip;

private:
    static constexpr U8 width(bool present, U8 bits) { return present ? bits : U8{0}; }
    static constexpr U16 after(BitField const& field) { return static_cast<U16>(field.end()); }
    constexpr U16 control(U32 bit) const { return static_cast<U16>(32u * controlWord + bit); }
};
static_assert(SGRowLayout(52, true, true).fits() && SGRowLayout(52, true, false).fits() &&
              SGRowLayout(52, false, true).fits() && SGRowLayout(52, false, false).fits());

}  // namespace NerioSwitchTable
