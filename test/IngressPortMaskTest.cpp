#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <string>

#include "NerioSwitch/IngressPortMask.h"
#include "Sorn/Text.h"

#include "FailureText.h"

namespace {

using NerioSwitch::IngressPortMask;

char const* const rangeText =
    "NerioSwitch::IngressPortMask::value < 0 or > NerioSwitch::IngressPortMask::invalid not allowed";

template <class Number>
std::string refusal(Number number) {
    return failureOf<Belmo::RangeException>([&] { IngressPortMask const mask(static_cast<U64>(number)); });
}

TEST(IngressPortMask, IsEmptyAtFirst) {
    EXPECT_EQ(IngressPortMask().value(), 0u);
    EXPECT_FALSE(IngressPortMask().hasCpu());
}

TEST(IngressPortMask, IsAtMostTheInvalidMask) {
    EXPECT_EQ(IngressPortMask::invalid, 0x20000000000000u);
    EXPECT_EQ(IngressPortMask(0x1FFFFFFFFFFFFF).value(), 0x1FFFFFFFFFFFFFu);
    EXPECT_EQ(IngressPortMask(0x20000000000000).value(), 0x20000000000000u);
    EXPECT_EQ(refusal(0x20000000000001), rangeText);
    EXPECT_EQ(refusal(U64{1} << 63), rangeText);
    EXPECT_EQ(refusal(~U64{0}), rangeText);
    EXPECT_EQ(refusal(-1), rangeText);
}

TEST(IngressPortMask, HasTheCpuAtBit52) {
    EXPECT_TRUE(IngressPortMask(0x10000000000000).hasCpu());
    EXPECT_FALSE(IngressPortMask(0x0FFFFFFFFFFFFF).hasCpu());
}

struct Case {
    U32 numPorts;
    U64 mask;
    U64 hardware;
};

TEST(IngressPortMask, PutsTheCpuBehindTheLastPort) {
    Case const cases[]{{16, 0x10000000000000, 0x10000},          {16, 0x1000000000FFFF, 0x1FFFF},
                       {16, 0x00000000008001, 0x08001},          {31, 0x10000000000000, 0x80000000},
                       {31, 0x1000007FFFFFFF, 0xFFFFFFFF},       {31, 0x00000040000001, 0x40000001},
                       {32, 0x10000000000000, 0x100000000},      {32, 0x100000FFFFFFFF, 0x1FFFFFFFF},
                       {32, 0x00000080000000, 0x080000000},      {52, 0x10000000000000, 0x10000000000000},
                       {52, 0x1FFFFFFFFFFFFF, 0x1FFFFFFFFFFFFF}, {52, 0x08000000000001, 0x08000000000001}};
    for (auto const& [numPorts, mask, hardware] : cases) {
        EXPECT_EQ(IngressPortMask(mask).hardwareBitmask(numPorts), hardware) << numPorts;
        EXPECT_EQ(IngressPortMask::ingressPortMaskFromHw(hardware, numPorts), IngressPortMask(mask))
            << numPorts;
    }
}

TEST(IngressPortMask, LeavesOutPortsThatTheChipDoesNotHave) {
    EXPECT_EQ(IngressPortMask(0x0FFFFFFFFF0000).hardwareBitmask(16), 0u);
    EXPECT_EQ(IngressPortMask(0x1FFFFFFFFF0001).hardwareBitmask(16), 0x10001u);
    EXPECT_EQ(IngressPortMask(IngressPortMask::invalid).hardwareBitmask(52), 0u);
}

TEST(IngressPortMask, ReadsNoHardwareBitsBehindTheCpu) {
    EXPECT_EQ(IngressPortMask::ingressPortMaskFromHw(~U64{0} << 17, 16), IngressPortMask());
    EXPECT_EQ(IngressPortMask::ingressPortMaskFromHw(~U64{0}, 16), IngressPortMask(0x1000000000FFFF));
    EXPECT_EQ(IngressPortMask::ingressPortMaskFromHw(~U64{0}, 52), IngressPortMask(0x1FFFFFFFFFFFFF));
}

RC_GTEST_PROP(IngressPortMask, ComesBackFromHardwareForAnyNumberOfPorts, (U64 bits)) {
    for (U32 numPorts = 0; numPorts <= 52; ++numPorts) {
        U64 const hardware = bits & ((U64{2} << numPorts) - 1);
        auto const mask = IngressPortMask::ingressPortMaskFromHw(hardware, numPorts);
        RC_ASSERT(mask.hardwareBitmask(numPorts) == hardware);
        RC_ASSERT(mask.hasCpu() == (hardware >> numPorts == 1));
        RC_ASSERT((mask.value() & ~IngressPortMask::cpu) == (hardware & ((U64{1} << numPorts) - 1)));
    }
}

TEST(IngressPortMask, IsOrderedHashedAndWrittenAsItsNumber) {
    EXPECT_LT(IngressPortMask(2), IngressPortMask(10));
    EXPECT_NE(IngressPortMask(2).hash(0), IngressPortMask(10).hash(0));
    EXPECT_EQ(Sorn::text(IngressPortMask(0x20000000000000)), "9007199254740992");
    Sorn::CharRange range("0x1F");
    EXPECT_EQ(Sorn::parse<IngressPortMask>(range), IngressPortMask(31));
    Sorn::CharRange tooLarge("9007199254740993");
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { Sorn::parse<IngressPortMask>(tooLarge); }), rangeText);
}

TEST(IngressPortMaskDeathTest, RefusesMorePortsThanBits) {
    EXPECT_DEATH(IngressPortMask().hardwareBitmask(64), "Assertion failed: numPorts < 64 \\(");
}

}  // namespace
