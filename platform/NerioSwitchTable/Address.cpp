#include "NerioSwitchTable/Address.h"

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

U8 stripMaskLen(U32* address, U8 maskType) {
    U32 length = 32u - maskType;
    if (maskType == 3) {
        length = *address & 31;
        *address &= ~U32{31};
    } else if (maskType == 2) {
        length = (*address & 3) + 27;
        *address &= ~U32{3};
    }
    return static_cast<U8>(length);
}

U32 encodeFilterPfx(Lanvo::Prefix const& prefix, U8& maskType) {
    maskType = 0;
    if (prefix.isNull()) return 0;
    U8 const length = prefix.len();
    U32 const address = prefix.address().hostOrder() & Lanvo::Prefix::mask(length);
    if (length > 30) {
        maskType = static_cast<U8>(32 - length);
        return address;
    }
    if (length > 26) {
        maskType = 2;
        return address | (length - 27u);
    }
    maskType = 3;
    return address | length;
}

Lanvo::Prefix decodeFilterPfx(U32 address, U8 maskType) {
    BELMO_ASSERT_TEXT(maskType <= 3, "false && \"Unsupported maskType\"");
    // The folded length of a valid word lies beyond the prefix, so that its bits are cleared with the others.
    U32 stripped = address;
    U8 const length = stripMaskLen(&stripped, maskType);
    return {Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(length)), length};
}

}  // namespace NerioSwitchTable
