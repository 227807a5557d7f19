#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <type_traits>
#include <unordered_set>

#include "Belmo/RangedIndex.h"
#include "Bridging/VlanId.h"
#include "NerioSwitch/Indexes.h"
#include "Sorn/Text.h"

#include "FailureText.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using NerioSwitch::ChipPortId;
using NerioSwitch::PipeId;

char const* const vlanIdText = "Bridging::VlanId::value < 1 or > 4094 not allowed";
char const* const vlanIdOrNoneText = "Bridging::VlanIdOrNone::value > 4094 not allowed";
char const* const chipPortIdText =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed";
char const* const pipeIdText =
    "NerioSwitch::PipeId::value < NerioSwitch::PipeId::min or > NerioSwitch::PipeId::null not allowed";

template <class Index, class Number>
std::string refusal(Number number) {
    return failureOf<Belmo::RangeException>([&] { Index index(number); });
}

/** Each of these would be legal if it were cut to the index's width, or read without its sign. */
template <class Index>
void expectNothingCut(char const* text) {
    EXPECT_EQ(refusal<Index>(-1), text);
    EXPECT_EQ(refusal<Index>(std::numeric_limits<long long>::min() + 5), text);
    EXPECT_EQ(refusal<Index>(std::numeric_limits<U64>::max()), text);
    for (int shift : {8, 16, 32, 63})
        EXPECT_EQ(refusal<Index>((U64{1} << shift << (shift == 8 ? 5 : 0)) + 5), text) << shift;
    EXPECT_EQ(refusal<Index>(short{-32763}), text);
    EXPECT_EQ(refusal<Index>(-0xFFFB), text);
}

template <class Index>
void expectBounds(U64 first, U64 last, char const* text) {
    EXPECT_EQ(Index(first).value(), first);
    EXPECT_EQ(Index(last).value(), last);
    EXPECT_EQ(refusal<Index>(last + 1), text);
    EXPECT_EQ(refusal<Index>(static_cast<long long>(first) - 1), text);
    expectNothingCut<Index>(text);
}

TEST(VlanId, Is1To4094AndStartsAt1) {
    EXPECT_EQ(VlanId().value(), 1u);
    expectBounds<VlanId>(1, 4094, vlanIdText);
}

TEST(VlanIdOrNone, Is0To4094AndStartsAt1) {
    EXPECT_EQ(VlanIdOrNone().value(), 1u);
    EXPECT_EQ(VlanIdOrNone(VlanIdOrNone::none).value(), 0u);
    expectBounds<VlanIdOrNone>(0, 4094, vlanIdOrNoneText);
}

TEST(ChipPortId, Is0To53AndStartsAtNull) {
    EXPECT_EQ(ChipPortId(), ChipPortId(ChipPortId::null));
    EXPECT_EQ(U32{ChipPortId::min}, 0u);
    EXPECT_EQ(U32{ChipPortId::null}, 53u);
    expectBounds<ChipPortId>(0, 53, chipPortIdText);
}

TEST(PipeId, Is0To17AndStartsAtNull) {
    EXPECT_EQ(PipeId(), PipeId(PipeId::null));
    EXPECT_EQ(U32{PipeId::min}, 0u);
    EXPECT_EQ(U32{PipeId::null}, 17u);
    expectBounds<PipeId>(0, 17, pipeIdText);
}

TEST(RangedIndex, IsCheckedWhereverANumberBecomesOne) {
    VlanId vlan = 7;
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { vlan = 4095; }), vlanIdText);
    EXPECT_EQ(vlan, VlanId(7));
    static_assert(VlanId(4094).value() == 4094);
    static_assert(std::is_same_v<decltype(PipeId().value()), U8>);
}

TEST(RangedIndex, IsOrderedByItsNumber) {
    EXPECT_LT(VlanId(2), VlanId(10));
    EXPECT_EQ(VlanId(2), VlanId(2));
    EXPECT_GT(VlanId(4094), VlanId(1));
}

TEST(RangedIndex, ReadsItsTextAndRefusesOthers) {
    Sorn::CharRange range("4094,");
    EXPECT_EQ(Sorn::parse<VlanId>(range), VlanId(4094));
    EXPECT_EQ(range.rest(), ",");
    EXPECT_EQ(Sorn::text(VlanId(4094)), "4094");
    EXPECT_EQ(Sorn::text(PipeId(3)), "3");
    auto const parse = [](char const* text) {
        return [text] {
            Sorn::CharRange input(text);
            Sorn::parse<VlanId>(input);
        };
    };
    EXPECT_EQ(failureOf<Belmo::RangeException>(parse("4095")), vlanIdText);
    EXPECT_EQ(failureOf<Belmo::RangeException>(parse("65537")), vlanIdText);
    EXPECT_EQ(failureOf<Belmo::RangeException>(parse("18446744073709551615")), vlanIdText);
    EXPECT_EQ(failureOf<Belmo::DeserializationException>(parse("-1")), "expected a number, found \"-1\"");
    EXPECT_EQ(failureOf<Belmo::DeserializationException>(parse("")), "expected a number, found \"\"");
}

TEST(RangedIndex, HashesApartByNumberAndSeed) {
    std::unordered_set<U32> hashes;
    for (int number = 1; number <= 4094; ++number)
        hashes.insert(VlanId(number).hash(0));
    EXPECT_EQ(hashes.size(), 4094u);
    EXPECT_NE(VlanId(5).hash(0), VlanId(5).hash(1));
}

}  // namespace
