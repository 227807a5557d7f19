#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "NerioSwitchTable/Address.h"

namespace {

using Lanvo::IpAddr;
using Lanvo::Prefix;
using NerioSwitchTable::decodeFilterPfx;
using NerioSwitchTable::encodeFilterPfx;
using NerioSwitchTable::hwIpToSw;
using NerioSwitchTable::stripMaskLen;

Prefix prefixOf(U32 address, U8 length) {
    return {IpAddr::fromHostOrder(address), length};
}

struct Folded {
    U32 address;
    int maskType;
    friend bool operator==(Folded const&, Folded const&) = default;
};

Folded fold(Prefix const& prefix) {
    U8 maskType = 0xEE;
    U32 const address = encodeFilterPfx(prefix, maskType);
    return {address, maskType};
}

TEST(HwIpToSw, TurnsAddressesRoundAndKnowsTheAbsentOne) {
    EXPECT_EQ(hwIpToSw(0xFFFFFFFF), 0u);
    EXPECT_EQ(hwIpToSw(0), 0u);
    EXPECT_EQ(hwIpToSw(0x0A000001), 0x0100000Au);
    EXPECT_EQ(hwIpToSw(0xFFFFFFFE), 0xFEFFFFFFu);
}

RC_GTEST_PROP(HwIpToSw, IsItsOwnInverse, (U32 address)) {
    RC_PRE(address != 0xFFFFFFFF);
    RC_ASSERT(hwIpToSw(hwIpToSw(address)) == address);
}

TEST(EncodeFilterPfx, FoldsTheLengthIntoTheBitsThatThePrefixLeavesFree) {
    EXPECT_EQ(fold(prefixOf(0x0A0B0C0D, 32)), (Folded{0x0A0B0C0D, 0}));
    EXPECT_EQ(fold(prefixOf(0x0A0B0C0E, 31)), (Folded{0x0A0B0C0E, 1}));
    EXPECT_EQ(fold(prefixOf(0x0A0B0C0C, 30)), (Folded{0x0A0B0C0F, 2}));
    EXPECT_EQ(fold(prefixOf(0x0A0B0C08, 29)), (Folded{0x0A0B0C0A, 2}));
    EXPECT_EQ(fold(prefixOf(0x0A0B0C10, 28)), (Folded{0x0A0B0C11, 2}));
    EXPECT_EQ(fold(prefixOf(0x0A0B0C20, 27)), (Folded{0x0A0B0C20, 2}));
    EXPECT_EQ(fold(prefixOf(0x0A0B0C40, 26)), (Folded{0x0A0B0C5A, 3}));
    EXPECT_EQ(fold(prefixOf(0x0A000000, 8)), (Folded{0x0A000008, 3}));
    EXPECT_EQ(fold(prefixOf(0x80000000, 1)), (Folded{0x80000001, 3}));
    EXPECT_EQ(fold(prefixOf(0, 0)), (Folded{0, 3}));
}

TEST(EncodeFilterPfx, GivesTheNullPrefixTheEncodingOfTheZeroAddress) {
    EXPECT_EQ(fold(Prefix::null()), (Folded{0, 0}));
    EXPECT_EQ(fold(prefixOf(0, 32)), (Folded{0, 0}));
}

RC_GTEST_PROP(FilterPfx, DecodesToThePrefixThatWasEncoded, (U32 address)) {
    for (U8 length = 0; length <= 32; ++length) {
        auto const prefix = prefixOf(address & Prefix::mask(length), length);
        U8 maskType = 0;
        U32 const folded = encodeFilterPfx(prefix, maskType);
        RC_ASSERT(decodeFilterPfx(folded, maskType) == prefix);
    }
}

RC_GTEST_PROP(FilterPfx, EncodesToWhatWasDecoded, (U32 address)) {
    for (U8 maskType = 0; maskType <= 3; ++maskType) {
        U32 stripped = address;
        U8 const length = stripMaskLen(&stripped, maskType);
        if (maskType == 3 && length > 26) continue;  // the encoder folds these lengths otherwise
        auto const prefix = decodeFilterPfx(address, maskType);
        RC_ASSERT(prefix.len() == length);
        // Hardware words may hold address bits beyond the length; a prefix does not.
        RC_ASSERT(prefix.address().hostOrder() == (stripped & Prefix::mask(length)));
        U32 const foldedLength = address - stripped;
        U8 again = 0;
        RC_ASSERT(encodeFilterPfx(prefix, again) == ((stripped & Prefix::mask(length)) | foldedLength));
        RC_ASSERT(again == maskType);
    }
}

TEST(DecodeFilterPfx, ClearsBitsBeyondTheLength) {
    EXPECT_EQ(decodeFilterPfx(0xFFFFFFFF, 0), prefixOf(0xFFFFFFFF, 32));
    EXPECT_EQ(decodeFilterPfx(0xFFFFFFFF, 1), prefixOf(0xFFFFFFFE, 31));
    EXPECT_EQ(decodeFilterPfx(0xFFFFFFFC, 2), prefixOf(0xFFFFFFE0, 27));
    EXPECT_EQ(decodeFilterPfx(0xFFFFFFE0, 3), prefixOf(0, 0));
    EXPECT_EQ(decodeFilterPfx(0xFFFFFFE8, 3), prefixOf(0xFF000000, 8));
}

TEST(DecodeFilterPfx, TakesLengthsThatTheEncoderFoldsOtherwise) {
    EXPECT_EQ(decodeFilterPfx(0x0A0B0C3F, 3), prefixOf(0x0A0B0C3E, 31));
    EXPECT_EQ(decodeFilterPfx(0x0A0B0C3B, 3), prefixOf(0x0A0B0C20, 27));
    EXPECT_EQ(decodeFilterPfx(0x0A0B0C3D, 3), prefixOf(0x0A0B0C38, 29));
}

TEST(DecodeFilterPfxDeathTest, RefusesMaskTypesAboveThree) {
    char const* const text = R"(Assertion failed: false && "Unsupported maskType" \()";
    EXPECT_DEATH(decodeFilterPfx(0, 4), text);
    EXPECT_DEATH(decodeFilterPfx(0, 255), text);
}

TEST(StripMaskLen, TakesFiveBitsOfMaskType3) {
    U32 address = 0x0A0B0C3F;
    EXPECT_EQ(stripMaskLen(&address, 3), 31);
    EXPECT_EQ(address, 0x0A0B0C20u);
    address = 0x0A0B0C5A;
    EXPECT_EQ(stripMaskLen(&address, 3), 26);
    EXPECT_EQ(address, 0x0A0B0C40u);
}

TEST(StripMaskLen, TakesTwoBitsOfMaskType2) {
    U32 address = 0x0A0B0C0F;
    EXPECT_EQ(stripMaskLen(&address, 2), 30);
    EXPECT_EQ(address, 0x0A0B0C0Cu);
    EXPECT_EQ(stripMaskLen(&address, 2), 27);
    EXPECT_EQ(address, 0x0A0B0C0Cu);
}

TEST(StripMaskLen, LeavesTheAddressOfAnyOtherMaskType) {
    for (int maskType : {0, 1, 4, 20, 32}) {
        U32 address = 0x0A0B0C3F;
        EXPECT_EQ(stripMaskLen(&address, static_cast<U8>(maskType)), 32 - maskType);
        EXPECT_EQ(address, 0x0A0B0C3Fu);
    }
}

}  // namespace
