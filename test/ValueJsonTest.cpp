#include <gtest/gtest.h>
#include <limits>
#include <rapidcheck/gtest.h>

#include "Bridging/VlanId.h"
#include "NerioSwitch/Indexes.h"

#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "RandomValue.h"
#include "agent/ValueJson.h"

namespace JsonTypes {

SORN_ENUM(Colour, U8, (red, 0), (green, 2));

class Inner {
    SORN_VALUE_TYPE(JsonTypes, Inner, (NerioSwitch::ChipPortId, port, {}), (U8, small, 7));
};

using NumberOfPipe = std::map<U8, U16>;

class Outer {
    SORN_VALUE_TYPE(JsonTypes, Outer, (Inner, inner, {}), (Colour, colour, Colour::green), (U64, large, 0),
                    (bool, flag, false), (double, real, 0.5), (Belmo::String, word, "x"));
};

/** A type with a JSON form of its own. */
struct Bare {
    U8 number = 0;
};

}  // namespace JsonTypes

template <>
struct Agent::JsonForm<JsonTypes::Bare> {
    static Json toJson(JsonTypes::Bare bare) { return bare.number; }
    static JsonTypes::Bare fromJson(Json const& json, Place const& place) {
        return {Agent::fromJson<U8>(json, place)};
    }
};

namespace {

using Agent::fromJson;
using Agent::Json;
using Agent::JsonException;
using Agent::Place;
using Agent::toJson;
using namespace JsonTypes;

Json operator""_json_text(char const* text, std::size_t size) {
    return Json::parse(std::string(text, size));
}

template <class T>
T read(Json const& json) {
    return fromJson<T>(json, Place());
}

/** How a value at "/a/v" is refused: "PLACE TYPE: TEXT"; empty if it is taken. */
template <class T>
std::string refusal(Json const& json) {
    Place const root;
    auto const a = root.member("a");
    try {
        fromJson<T>(json, a.member("v"));
        return {};
    } catch (JsonException const& failure) {
        return failure.place() + " " + failure.typeName() + ": " + failure.what();
    }
}

template <class T>
void expectSame(T const& value, char const* text) {
    auto const json = Json::parse(text);
    EXPECT_EQ(toJson(value), json);
    EXPECT_EQ(read<T>(json), value);
}

TEST(ValueJsonTest, NumbersReachTheirLimits) {
    expectSame(U8{255}, "255");
    expectSame(U16{65535}, "65535");
    expectSame(U32{4294967295}, "4294967295");
    expectSame(std::numeric_limits<U64>::max(), "18446744073709551615");
    EXPECT_EQ(toJson(std::numeric_limits<U64>::max()).dump(), "18446744073709551615");
    expectSame(U64{0}, "0");
    EXPECT_EQ(read<U64>(Json("0xFFFFFFFFFFFFFFFF")), std::numeric_limits<U64>::max());
    EXPECT_EQ(read<U8>(Json("0xff")), 255);
    EXPECT_EQ(read<U8>(Json(5)), 5);  // a signed number that is none below zero
    EXPECT_EQ(read<U8>("-0"_json_text), 0);
}

TEST(ValueJsonTest, NumbersBeyondTheirLimitsAreRefused) {
    EXPECT_EQ(refusal<U8>(256), "/a/v RangeException: v 256 > 255 not allowed");
    EXPECT_EQ(refusal<U8>("0x100"), "/a/v RangeException: v 256 > 255 not allowed");
    EXPECT_EQ(refusal<U16>(65536), "/a/v RangeException: v 65536 > 65535 not allowed");
    EXPECT_EQ(refusal<U32>(4294967296), "/a/v RangeException: v 4294967296 > 4294967295 not allowed");
    EXPECT_EQ(refusal<U64>(-1), "/a/v RangeException: v -1 < 0 not allowed");
    EXPECT_EQ(refusal<U64>("18446744073709551616"_json_text),
              "/a/v ScriptError: v: expected an integer of at most 64 bits, found 1.8446744073709552e+19");
    for (auto const* text : {R"("0x")", R"("0x1g")", R"("0x-1")", R"("0x 1")", R"("12")", R"("")",
                             R"("0x10000000000000000")", "1.5", "true"}) {
        EXPECT_EQ(refusal<U64>(Json::parse(text)),
                  std::string("/a/v ScriptError: v: expected an integer of at most 64 bits, found ") + text);
    }
}

TEST(ValueJsonTest, ValuesOfTheWrongKindAreNamedShortly) {
    EXPECT_EQ(refusal<U8>(Json::object()),
              "/a/v ScriptError: v: expected an integer of at most 64 bits, found an object");
    EXPECT_EQ(refusal<bool>(0), "/a/v ScriptError: v: expected true or false, found 0");
    EXPECT_EQ(refusal<double>("1"), "/a/v ScriptError: v: expected a number, found \"1\"");
    EXPECT_EQ(refusal<Belmo::String>(1), "/a/v ScriptError: v: expected a text, found 1");
    EXPECT_EQ(refusal<Inner>(nullptr), "/a/v ScriptError: v: expected an object, found null");
    EXPECT_EQ(refusal<NumberOfPipe>(Json::array()),
              "/a/v ScriptError: v: expected an object, found an array");
    EXPECT_EQ(refusal<std::vector<U8>>("x"), "/a/v ScriptError: v: expected an array, found \"x\"");
    // A text is cut between characters: 39 and 2 bytes here.
    EXPECT_EQ(refusal<bool>(std::string(39, 'x') + "\u00e4\u00e4"),
              "/a/v ScriptError: v: expected true or false, found \"" + std::string(39, 'x') + "...\"");
    Json deep;
    for (int i = 0; i < 100000; ++i) {
        Json outer = Json::array();
        outer.push_back(std::move(deep));
        deep = std::move(outer);
    }
    EXPECT_EQ(refusal<bool>(deep), "/a/v ScriptError: v: expected true or false, found an array");
}

TEST(ValueJsonTest, RangedIndexesAreNumbersAndRefuseInTheirOwnWords) {
    expectSame(NerioSwitch::ChipPortId(0), "0");
    expectSame(NerioSwitch::ChipPortId(53), "53");
    expectSame(Bridging::VlanId(4094), "4094");
    auto const* const vlan = "/a/v RangeException: Bridging::VlanId::value < 1 or > 4094 not allowed";
    for (auto const* text :
         {"0", "4095", "65537", "-1", "-9223372036854775808", "18446744073709551615", R"("0xFFF")"})
        EXPECT_EQ(refusal<Bridging::VlanId>(Json::parse(text)), vlan) << text;
    EXPECT_EQ(read<Bridging::VlanId>(Json("0xFFE")), Bridging::VlanId(4094));
    EXPECT_EQ(read<Bridging::VlanId>(Json(7)), Bridging::VlanId(7));
}

TEST(ValueJsonTest, PortMasksAreNumbers) {
    using NerioSwitch::IngressPortMask;
    expectSame(IngressPortMask(IngressPortMask::cpu | 5), "4503599627370501");
    EXPECT_EQ(refusal<IngressPortMask>(std::numeric_limits<U64>::max()),
              std::string("/a/v RangeException: ") + IngressPortMask::rangeText);
}

TEST(ValueJsonTest, AddressesAreTexts) {
    expectSame(Lanvo::IpAddr::fromHostOrder(0x0A000001), R"("10.0.0.1")");
    expectSame(Lanvo::EthAddr({0x00, 0x1C, 0x73, 0x00, 0x00, 0x01}), R"("00:1c:73:00:00:01")");
    expectSame(Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(0x0A000000), 8), R"("10.0.0.0/8")");
    expectSame(Lanvo::Prefix(), R"("0.0.0.0/0")");
    expectSame(Lanvo::Prefix::null(), "null");
    EXPECT_EQ(refusal<Lanvo::IpAddr>(nullptr), "/a/v ScriptError: v: expected a text, found null");
    EXPECT_EQ(refusal<Lanvo::IpAddr>("10.0.0"), "/a/v ScriptError: v: \"10.0.0\" is no IPv4 address");
    EXPECT_EQ(refusal<Lanvo::IpAddr>("10.0.0.1 "), "/a/v ScriptError: v: expected the end, found \" \"");
    EXPECT_EQ(refusal<Lanvo::EthAddr>("00:1c:73:00:00"),
              "/a/v ScriptError: v: \"00:1c:73:00:00\" is no Ethernet address");
    auto const* const notAPrefix = "/a/v RangeException: Lanvo::Prefix::validAsPrefix != true not allowed";
    EXPECT_EQ(refusal<Lanvo::Prefix>("10.0.0.1/8"), notAPrefix);
    EXPECT_EQ(refusal<Lanvo::Prefix>("10.0.0.0/33"), notAPrefix);
    EXPECT_EQ(refusal<Lanvo::Prefix>(8), "/a/v ScriptError: v: expected a text, found 8");
}

TEST(ValueJsonTest, DurationsAreSecondsAndNeverIsNull) {
    expectSame(Belmo::Duration(2.5), "2.5");
    expectSame(Belmo::Duration(0), "0.0");
    expectSame(Belmo::Duration::never(), "null");
    EXPECT_EQ(read<Belmo::Duration>(Json(3)), Belmo::Duration(3));
    EXPECT_EQ(refusal<Belmo::Duration>("3"), "/a/v ScriptError: v: expected a number, found \"3\"");
}

TEST(ValueJsonTest, EnumeratorsAreNamesAndNumbersWithoutNamesNumbers) {
    expectSame(Colour::green, R"("green")");
    expectSame(static_cast<Colour>(1), "1");
    EXPECT_EQ(read<Colour>(2), Colour::green);
    EXPECT_EQ(read<Colour>("0x2"), Colour::green);
    EXPECT_EQ(refusal<Colour>("blue"), "/a/v ScriptError: v: unknown enumerator \"blue\"");
    EXPECT_EQ(refusal<Colour>("2"), "/a/v ScriptError: v: unknown enumerator \"2\"");
    EXPECT_EQ(refusal<Colour>(256), "/a/v RangeException: v 256 > 255 not allowed");
}

TEST(ValueJsonTest, MapsAreObjectsWithTheNumberAsText) {
    expectSame(NumberOfPipe{{0, 3}, {1, 4}, {17, 65535}}, R"({"0":3,"1":4,"17":65535})");
    expectSame(NumberOfPipe{}, "{}");
    expectSame(std::map<NerioSwitch::ChipPortId, bool>{{5, true}}, R"({"5":true})");
    expectSame(std::map<Belmo::String, U32>{{"floodSet", 128}}, R"({"floodSet":128})");
    EXPECT_EQ(refusal<NumberOfPipe>(Json::parse(R"({"0":3,"x":4})")),
              "/a/v/x ScriptError: x: expected a number, found \"x\"");
    EXPECT_EQ(refusal<NumberOfPipe>(Json::parse(R"({"256":4})")),
              "/a/v/256 RangeException: 256 > 255 not allowed");
    EXPECT_EQ(refusal<NumberOfPipe>(Json::parse(R"({"1":65536})")),
              "/a/v/1 RangeException: 1 65536 > 65535 not allowed");
    EXPECT_EQ((refusal<std::map<NerioSwitch::ChipPortId, bool>>(Json::parse(R"({"54":true})"))),
              std::string("/a/v/54 RangeException: ") + NerioSwitch::ChipPortId::rangeText);
}

TEST(ValueJsonTest, ArraysAreArrays) {
    expectSame(std::array<U8, 3>{1, 2, 3}, "[1,2,3]");
    expectSame(std::vector<U16>{}, "[]");
    EXPECT_EQ((read<std::array<U8, 3>>("[9]"_json_text)), (std::array<U8, 3>{9, 0, 0}));
    EXPECT_EQ((refusal<std::array<U8, 2>>("[1,2,3]"_json_text)), "/a/v ScriptError: v: more than 2 elements");
    EXPECT_EQ((refusal<std::vector<U8>>("[1,256]"_json_text)),
              "/a/v/1 RangeException: 1 256 > 255 not allowed");
}

TEST(ValueJsonTest, ValueTypesAreObjectsByAttribute) {
    Outer outer;
    outer.innerIs(Inner().portIs(5)).colourIs(Colour::red).flagIs(true);
    expectSame(outer, R"({"inner":{"port":5,"small":7},"colour":"red","large":0,"flag":true,"real":0.5,
                          "word":"x"})");
    EXPECT_EQ(read<Outer>("{}"_json_text), Outer());
    EXPECT_EQ(read<Outer>(R"({"flag":true})"_json_text), Outer().flagIs(true));
    EXPECT_EQ(refusal<Outer>(R"({"inner":{"port":54}})"_json_text),
              std::string("/a/v/inner/port RangeException: ") + NerioSwitch::ChipPortId::rangeText);
    EXPECT_EQ(refusal<Outer>(R"({"inner":{"prt":5}})"_json_text),
              "/a/v/inner/prt ScriptError: unknown attribute \"prt\" of JsonTypes::Inner");
    EXPECT_EQ(refusal<Outer>(R"({"a/b~":1})"_json_text),
              "/a/v/a~1b~0 ScriptError: unknown attribute \"a/b~\" of JsonTypes::Outer");
    EXPECT_EQ(refusal<std::vector<Outer>>(R"([{},{"inner":{"small":true}}])"_json_text),
              "/a/v/1/inner/small ScriptError: small: expected an integer of at most 64 bits, found true");
}

TEST(ValueJsonTest, ATypeMayHaveAFormOfItsOwn) {
    EXPECT_EQ(toJson(std::map<U8, Bare>{{1, {9}}}), R"({"1":9})"_json_text);
    EXPECT_EQ(read<Bare>(9).number, 9);
    EXPECT_EQ(refusal<Bare>(256), "/a/v RangeException: v 256 > 255 not allowed");
}

TEST(ValueJsonTest, ParsingFailuresNameLineAndColumn) {
    auto const failureOf = [](std::string const& text, std::size_t firstLine = 1) {
        try {
            Agent::parseJson(text, firstLine);
            return std::string();
        } catch (JsonException const& failure) {
            return std::string(failure.what());
        }
    };
    EXPECT_EQ(failureOf("{}"), "");
    EXPECT_EQ(failureOf("x"), "line 1, column 1: not JSON: invalid literal");
    EXPECT_EQ(failureOf("[1,\n 2,\n  ]"),
              "line 3, column 3: not JSON: unexpected ']'; expected '[', '{', or a literal");
    EXPECT_EQ(failureOf("[1", 9), "line 9, column 3: not JSON: unexpected end of input; expected ']'");
    EXPECT_EQ(failureOf("[\n1e999]", 3), "line 3: not JSON: number too large: '1e999'");
    EXPECT_EQ(failureOf("\"" + std::string(1000, 'x')),
              "line 1, column 1002: not JSON: invalid string: missing closing quote");
}

RC_GTEST_PROP(ValueJson, NumbersComeBack, (U64 number)) {
    RC_ASSERT(read<U64>(Json::parse(toJson(number).dump())) == number);
    RC_ASSERT(read<U64>(Json(fmt::format("0x{:x}", number))) == number);
}

RC_GTEST_PROP(ValueJson, AddressesComeBack, (U32 address, std::array<U8, 6> ethernet)) {
    auto const ip = Lanvo::IpAddr::fromHostOrder(address);
    auto const mac = Lanvo::EthAddr(ethernet);
    RC_ASSERT(read<Lanvo::IpAddr>(Json::parse(toJson(ip).dump())) == ip);
    RC_ASSERT(read<Lanvo::EthAddr>(Json::parse(toJson(mac).dump())) == mac);
    auto const length = *rc::gen::inRange<int>(0, 33);
    auto const len = static_cast<U8>(length);
    auto const prefix = Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(len)), len);
    RC_ASSERT(read<Lanvo::Prefix>(Json::parse(toJson(prefix).dump())) == prefix);
}

RC_GTEST_PROP(ValueJson, ValueTypesComeBack, (U8 small, U64 large, bool flag, double real)) {
    auto const port = *rc::gen::inRange(0, 54);
    auto const colour = *rc::gen::inRange(0, 256);
    Outer outer;
    outer.innerIs(Inner().portIs(port).smallIs(small)).colourIs(static_cast<Colour>(colour));
    outer.largeIs(large).flagIs(flag).realIs(real).wordIs("a \"word\"\n");
    RC_ASSERT(read<Outer>(Json::parse(toJson(outer).dump())) == outer);
}

RC_GTEST_PROP(ValueJson, MapsComeBack, (std::map<U8, U16> const& numbers)) {
    RC_ASSERT(read<NumberOfPipe>(Json::parse(toJson(numbers).dump())) == numbers);
}

RC_GTEST_PROP(ValueJson, PortConfigurationComesBack, (U64 seed)) {
    NerioTest::Random random(seed);
    auto const key = NerioTest::randomValue<NerioSwitchTable::PortConfigKey>(random);
    auto const result = NerioTest::randomValue<NerioSwitchTable::PortConfigResult>(random);
    RC_ASSERT(read<NerioSwitchTable::PortConfigKey>(Json::parse(toJson(key).dump())) == key);
    RC_ASSERT(read<NerioSwitchTable::PortConfigResult>(Json::parse(toJson(result).dump())) == result);
}

}  // namespace
