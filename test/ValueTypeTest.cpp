#include <array>
#include <bit>
#include <cmath>
#include <compare>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <rapidcheck/gtest.h>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Belmo/Duration.h"
#include "Belmo/Exceptions.h"
#include "Bridging/VlanId.h"
#include "Sorn/Enum.h"
#include "Sorn/ValueType.h"

#include "FailureText.h"

namespace SornTest {

SORN_ENUM(Shape, U8, (round, 0), (square, 1), (squarish, 7));

using Bridging::VlanId;

class Inner {
    SORN_VALUE_TYPE(SornTest, Inner, (U16, number, 3), (Shape, shape, Shape::square));
};

using Members = std::map<VlanId, Inner>;

/** One attribute of every kind that a value type may have. */
class Everything {
    SORN_VALUE_TYPE(SornTest, Everything, (U8, small, 1), (U64, large, 2), (bool, flag, false),
                    (Shape, shape, Shape::round), (VlanId, vlanId, 5), (Inner, inner, {}),
                    (Members, members, {}), (float, ratio, 0.5f), (double, interval, 0.25),
                    (Belmo::String, name, {}), (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

class Counted {
    SORN_VALUE_TYPE(SornTest, Counted, (U16, number, 3), (U16, hint, 0));

    /** The hint says nothing of its own, so that keys which differ in it alone may share a hash. */
    std::array<U64, 1> hashNumbers() const { return {number_}; }
};

using Numbers = std::array<U8, 2>;

class Row {
    SORN_VALUE_TYPE(SornTest, Row, (Numbers, numbers, {}));
};

namespace {

template <class T>
T parsed(std::string const& text) {
    Sorn::CharRange range(text);
    auto value = Sorn::parse<T>(range);
    range.expectEnd();
    return value;
}

template <class T>
std::string parseFailure(std::string const& text) {
    return failureOf<Belmo::DeserializationException>([&] { parsed<T>(text); });
}

template <class Real, class Bits>
Real drawnReal() {
    auto const real = std::bit_cast<Real>(*rc::gen::arbitrary<Bits>());
    return std::isnan(real) ? std::numeric_limits<Real>::infinity() : real;
}

Inner drawnInner() {
    return Inner()
        .numberIs(*rc::gen::arbitrary<U16>())
        .shapeIs(static_cast<Shape>(*rc::gen::arbitrary<U8>()));
}

Everything drawn() {
    auto const vlanIds = *rc::gen::container<std::set<int>>(rc::gen::inRange(1, 4095));
    Members members;
    for (int const vlanId : vlanIds)
        members[vlanId] = drawnInner();
    return Everything()
        .smallIs(*rc::gen::arbitrary<U8>())
        .largeIs(*rc::gen::arbitrary<U64>())
        .flagIs(*rc::gen::arbitrary<bool>())
        .shapeIs(static_cast<Shape>(*rc::gen::arbitrary<U8>()))
        .vlanIdIs(*rc::gen::inRange(1, 4095))
        .innerIs(drawnInner())
        .membersIs(members)
        .ratioIs(drawnReal<float, U32>())
        .intervalIs(drawnReal<double, U64>())
        .nameIs(*rc::gen::container<std::string>(rc::gen::distinctFrom('"')))
        .lastHitIs(Belmo::Duration(drawnReal<double, U64>()));
}

/** Values that differ from the default in one attribute each, in declared order. */
std::vector<std::pair<std::string, Everything>> oneApart() {
    return {{"small", Everything().smallIs(2)},
            {"large", Everything().largeIs(U64{1} << 63)},
            {"flag", Everything().flagIs(true)},
            {"shape", Everything().shapeIs(Shape::square)},
            {"vlanId", Everything().vlanIdIs(6)},
            {"inner", Everything().innerIs(Inner().shapeIs(Shape::squarish))},
            {"members", Everything().membersIs({{5, Inner()}})},
            {"ratio", Everything().ratioIs(0.75f)},
            {"interval", Everything().intervalIs(0.5)},
            {"name", Everything().nameIs("x")},
            {"lastHit", Everything().lastHitIs(Belmo::Duration(0))}};
}

TEST(ValueType, StartsWithItsDefaults) {
    Everything const value;
    EXPECT_EQ(value.small(), 1);
    EXPECT_EQ(value.large(), 2u);
    EXPECT_FALSE(value.flag());
    EXPECT_EQ(value.shape(), Shape::round);
    EXPECT_EQ(value.vlanId(), VlanId(5));
    EXPECT_EQ(value.inner(), Inner().numberIs(3).shapeIs(Shape::square));
    EXPECT_TRUE(value.members().empty());
    EXPECT_EQ(value.ratio(), 0.5f);
    EXPECT_EQ(value.interval(), 0.25);
    EXPECT_EQ(value.name(), "");
    EXPECT_TRUE(value.lastHit().isNever());
}

TEST(ValueType, ReadsWhatItsMutatorsSetInAChain) {
    Everything value;
    auto& chained =
        value.smallIs(9).flagIs(true).vlanIdIs(4094).membersIs({{7, Inner().numberIs(8)}}).nameIs("n");
    EXPECT_EQ(&chained, &value);
    EXPECT_EQ(value.small(), 9);
    EXPECT_TRUE(value.flag());
    EXPECT_EQ(value.vlanId(), VlanId(4094));
    EXPECT_EQ(value.members().at(7).number(), 8);
    EXPECT_EQ(value.name(), "n");
    EXPECT_EQ(value.large(), 2u) << "others stay";
}

TEST(ValueType, HandsOutLargeAttributesByReferenceAndSmallOnesByValue) {
    Everything const value;
    EXPECT_EQ(&value.name(), &value.name());
    static_assert(std::is_same_v<decltype(value.name()), Belmo::String const&>);
    static_assert(std::is_same_v<decltype(value.members()), Members const&>);
    static_assert(std::is_same_v<decltype(value.vlanId()), VlanId>);
}

TEST(ValueType, KnowsItsNameAndItsAttributesInDeclaredOrder) {
    EXPECT_STREQ(Everything::typeName(), "SornTest::Everything");
    std::vector<std::string> names;
    Everything value;
    Sorn::forEachAttribute(value, [&](char const* name, auto&) { names.emplace_back(name); });
    std::vector<std::string> expected;
    for (auto const& [name, apart] : oneApart())
        expected.push_back(name);
    EXPECT_EQ(names, expected);
    static_assert(Sorn::ValueType<Everything>);
    static_assert(!Sorn::ValueType<VlanId>);
}

TEST(ValueType, IsEqualOnlyInAllAttributes) {
    EXPECT_EQ(Everything(), Everything());
    for (auto const& [name, apart] : oneApart()) {
        EXPECT_NE(apart, Everything()) << name;
        EXPECT_EQ(apart, Everything(apart)) << name;
    }
}

TEST(ValueType, LetsAnEarlierAttributeDecideTheOrder) {
    EXPECT_LT(Inner().numberIs(1).shapeIs(Shape::squarish), Inner().numberIs(2).shapeIs(Shape::round));
    EXPECT_LT(Inner().shapeIs(Shape::square), Inner().shapeIs(Shape::squarish));
}

auto asTuple(Everything const& value) {
    return std::tuple(
        value.small(), value.large(), value.flag(), static_cast<U8>(value.shape()), value.vlanId().value(),
        std::pair(value.inner().number(), static_cast<U8>(value.inner().shape())), value.members(),
        value.ratio(), value.interval(), value.name(), value.lastHit().seconds());
}

RC_GTEST_PROP(ValueType, IsOrderedByItsAttributesInDeclaredOrder, ()) {
    auto const left = drawn();
    // Leave the two alike up to some attribute, so that each gets to decide.
    auto right = drawn();
    int const alike = *rc::gen::inRange(0, 11);
    if (alike > 0) right.smallIs(left.small());
    if (alike > 1) right.largeIs(left.large());
    if (alike > 2) right.flagIs(left.flag());
    if (alike > 3) right.shapeIs(left.shape());
    if (alike > 4) right.vlanIdIs(left.vlanId());
    if (alike > 5) right.innerIs(left.inner());
    if (alike > 6) right.membersIs(left.members());
    if (alike > 7) right.ratioIs(left.ratio());
    if (alike > 8) right.intervalIs(left.interval());
    if (alike > 9) right.nameIs(left.name());
    RC_ASSERT((left <=> right) == (asTuple(left) <=> asTuple(right)));
    RC_ASSERT((left == right) == (asTuple(left) == asTuple(right)));
}

TEST(ValueType, HashesEachAttributeAndTheSeed) {
    std::set<U32> hashes{Everything().hash(0), Everything().hash(1)};
    for (auto const& [name, apart] : oneApart()) {
        EXPECT_TRUE(hashes.insert(apart.hash(0)).second) << name;
        EXPECT_TRUE(hashes.insert(apart.hash(1)).second) << name;
    }
    EXPECT_EQ(Everything().hash(7), Everything().hash(7));
}

TEST(ValueType, HashesTheOrderOfWhatItHolds) {
    EXPECT_NE(Inner().numberIs(1).shapeIs(Shape{2}).hash(0), Inner().numberIs(2).shapeIs(Shape{1}).hash(0));
    auto const twoMembers = Everything().membersIs({{1, Inner()}, {2, Inner().numberIs(4)}});
    auto const swapped = Everything().membersIs({{1, Inner().numberIs(4)}, {2, Inner()}});
    EXPECT_NE(twoMembers.hash(0), swapped.hash(0));
    EXPECT_EQ(Everything().ratioIs(0.0f).hash(0), Everything().ratioIs(-0.0f).hash(0)) << "they are equal";
}

TEST(ValueType, WritesItsTextInDeclaredOrder) {
    EXPECT_EQ(Sorn::text(Inner()), "SornTest::Inner(number=3,shape=square)");
    EXPECT_EQ(Sorn::text(Everything()),
              "SornTest::Everything(small=1,large=2,flag=false,shape=round,vlanId=5,"
              "inner=SornTest::Inner(number=3,shape=square),members={},ratio=0.5,interval=0.25,name=\"\","
              "lastHit=inf)");
    EXPECT_EQ(Sorn::text(Everything()
                             .smallIs(255)
                             .largeIs(~U64{0})
                             .flagIs(true)
                             .shapeIs(Shape{200})
                             .vlanIdIs(4094)
                             .innerIs(Inner().numberIs(0))
                             .membersIs({{9, Inner()}, {10, Inner().shapeIs(Shape::round)}})
                             .ratioIs(0.1f)
                             .intervalIs(1e-7)
                             .nameIs("a, (b)={c}")
                             .lastHitIs(Belmo::Duration(12.5))),
              "SornTest::Everything(small=255,large=18446744073709551615,flag=true,shape=200,vlanId=4094,"
              "inner=SornTest::Inner(number=0,shape=square),"
              "members={9:SornTest::Inner(number=3,shape=square),10:SornTest::Inner(number=3,shape=round)},"
              "ratio=0.1,interval=1e-07,name=\"a, (b)={c}\",lastHit=12.5)");
}

RC_GTEST_PROP(ValueType, IsReadBackFromItsText, ()) {
    auto const value = drawn();
    RC_ASSERT(parsed<Everything>(Sorn::text(value)) == value);
}

TEST(ValueType, IsMadeOfACharRangeAndLeavesTheRest) {
    Sorn::CharRange range("SornTest::Inner(number=0x10,shape=7) and more");
    EXPECT_EQ(Inner(range), Inner().numberIs(16).shapeIs(Shape::squarish));
    EXPECT_EQ(range.rest(), " and more");
}

TEST(ValueType, NamesTheAttributeWhoseTextIsBad) {
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=x,shape=round)"),
              "SornTest::Inner::number: expected a number, found \"x,shape=round)\"");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=65536,shape=round)"),
              "SornTest::Inner::number: 65536 > 65535 not allowed");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=1,shape=256)"),
              "SornTest::Inner::shape: 256 > 255 not allowed");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=1,shape=oval)"),
              "SornTest::Inner::shape: expected a number, found \"oval)\"");
}

/** The text of the default with one piece replaced. */
std::string spoiled(std::string const& piece, std::string const& by) {
    auto text = Sorn::text(Everything());
    text.replace(text.find(piece), piece.size(), by);
    return text;
}

TEST(ValueType, NamesTheAttributeOfEveryKind) {
    auto const failure = [](char const* piece, char const* by) {
        auto const text = parseFailure<Everything>(spoiled(piece, by));
        return text.substr(0, text.find(": "));
    };
    EXPECT_EQ(failure("small=1", "small=256"), "SornTest::Everything::small");
    EXPECT_EQ(failure("large=2", "large=-2"), "SornTest::Everything::large");
    EXPECT_EQ(failure("flag=false", "flag=0"), "SornTest::Everything::flag");
    EXPECT_EQ(failure("shape=round", "shape=rounded"), "SornTest::Everything::shape");
    EXPECT_EQ(failure("vlanId=5", "vlanId=4095"), "SornTest::Everything::vlanId");
    EXPECT_EQ(failure("Inner(number=3", "Inner(number="), "SornTest::Everything::inner");
    EXPECT_EQ(failure("members={}", "members={5}"), "SornTest::Everything::members");
    EXPECT_EQ(failure("ratio=0.5", "ratio=1e39"), "SornTest::Everything::ratio");
    EXPECT_EQ(failure("interval=0.25", "interval="), "SornTest::Everything::interval");
    EXPECT_EQ(failure("name=\"\"", "name=x"), "SornTest::Everything::name");
    EXPECT_EQ(failure("lastHit=inf", "lastHit=never"), "SornTest::Everything::lastHit");
}

TEST(ValueType, TellsARangeFailureWithTheTextOfItsType) {
    EXPECT_EQ(parseFailure<Everything>(spoiled("vlanId=5", "vlanId=0")),
              "SornTest::Everything::vlanId: Bridging::VlanId::value < 1 or > 4094 not allowed");
}

TEST(ValueType, NamesThePathToANestedAttribute) {
    EXPECT_EQ(parseFailure<Everything>(spoiled("number=3", "number=65536")),
              "SornTest::Everything::inner: SornTest::Inner::number: 65536 > 65535 not allowed");
}

TEST(ValueType, RefusesTextOfAnotherForm) {
    EXPECT_EQ(parseFailure<Inner>("SornTest::Outer(number=3,shape=round)"),
              "expected \"SornTest::Inner\", found \"SornTest::Outer(number=3,shape=round)\"");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(shape=round,number=3)"),
              "expected \"number\", found \"shape=round,number=3)\"");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=3)"), "expected \",\", found \")\"");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=3,shape=round"), "expected \")\", found \"\"");
    EXPECT_EQ(parseFailure<Inner>("SornTest::Inner(number=3,shape=round))"), "expected the end, found \")\"");
}

TEST(Text, ReadsMapsInAnyOrderAndRefusesBrokenOnes) {
    using Map = std::map<U16, U8>;
    EXPECT_EQ(parsed<Map>("{}"), Map());
    EXPECT_EQ(parsed<Map>("{3:1,1:2}"), (Map{{1, 2}, {3, 1}}));
    EXPECT_EQ(Sorn::text(Map{{1, 2}, {3, 1}}), "{1:2,3:1}");
    for (char const* text : {"", "{", "{1:2", "{1}", "{1:2 3:4}", "{1:2,}", "{,}", "1:2"})
        EXPECT_NE(parseFailure<Map>(text), "") << text;
}

TEST(Text, ReadsArraysOfTheirLengthAndRefusesOthers) {
    using Array = std::array<U16, 3>;
    EXPECT_EQ(Sorn::text(Array{5, 6, 7}), "[5,6,7]");
    EXPECT_EQ(parsed<Array>("[5,6,7]"), (Array{5, 6, 7}));
    for (char const* text : {"", "[", "[]", "[5,6]", "[5,6,7", "[5,6,7,8]", "[5 6 7]", "5,6,7"})
        EXPECT_NE(parseFailure<Array>(text), "") << text;
}

TEST(ValueType, HashesTheNumbersThatItGivesInPlaceOfItsAttributes) {
    EXPECT_EQ(Counted().hintIs(1).hash(7), Counted().hintIs(2).hash(7));
    EXPECT_NE(Counted().numberIs(1).hash(7), Counted().numberIs(2).hash(7));
    EXPECT_NE(Counted().hash(7), Counted().hash(8));
}

TEST(ValueType, HashesTheElementsOfAnArrayInTheirOrder) {
    EXPECT_NE(Row().numbersIs({1, 2}).hash(0), Row().numbersIs({2, 1}).hash(0));
    EXPECT_EQ(Row().numbersIs({1, 2}).hash(0), Row().numbersIs({1, 2}).hash(0));
}

TEST(Enum, KnowsItsNamesAndValuesInOrder) {
    auto const all = enumerators(Shape{});
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].value, Shape::round);
    EXPECT_EQ(all[2].value, Shape::squarish);
    EXPECT_EQ(static_cast<U8>(Shape::squarish), 7);
    EXPECT_EQ(Sorn::enumName(Shape::square), "square");
    EXPECT_EQ(Sorn::enumName(Shape{2}), "");
    static_assert(std::is_same_v<std::underlying_type_t<Shape>, U8>);
    static_assert(Sorn::DescribedEnum<Shape>);
    static_assert(!Sorn::DescribedEnum<std::strong_ordering>);
}

TEST(Enum, IsReadByNameOrByNumber) {
    for (auto const& [value, name] : enumerators(Shape{})) {
        EXPECT_EQ(parsed<Shape>(std::string(name)), value);
        EXPECT_EQ(parsed<Shape>(std::to_string(static_cast<int>(value))), value);
        EXPECT_EQ(Sorn::text(value), name);
    }
    EXPECT_EQ(Sorn::text(Shape{2}), "2");
    EXPECT_EQ(parsed<Shape>("2"), Shape{2});
    EXPECT_EQ(parsed<Shape>("0xff"), Shape{255});
}

TEST(Enum, TakesNoNameForTheStartOfAnother) {
    EXPECT_EQ(parsed<Shape>("squarish"), Shape::squarish);
    for (char const* text : {"squa", "squares", "Round", "", "round "})
        EXPECT_NE(parseFailure<Shape>(text), "") << text;
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { parsed<Shape>("256"); }), "256 > 255 not allowed");
}

}  // namespace

}  // namespace SornTest
