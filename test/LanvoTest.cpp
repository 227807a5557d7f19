#include <array>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <string>

#include "Belmo/Exceptions.h"
#include "Lanvo/Address.h"
#include "Sorn/Text.h"

#include "FailureText.h"

namespace {

using Lanvo::EthAddr;
using Lanvo::IpAddr;
using Lanvo::Prefix;

char const* const invalidPrefix = "Lanvo::Prefix::validAsPrefix != true not allowed";

template <class T>
T parsed(std::string const& text) {
    Sorn::CharRange range(text);
    auto const value = T::fromText(range);
    range.expectEnd();
    return value;
}

template <class T>
std::string refusal(std::string const& text) {
    return failureOf<Belmo::DeserializationException>([&] { parsed<T>(text); });
}

IpAddr ip(U32 hostOrder) {
    return IpAddr::fromHostOrder(hostOrder);
}

TEST(IpAddr, IsHeldInNetworkOrder) {
    EXPECT_EQ(ip(0x0A0B0C0D).bytes(), (std::array<U8, 4>{10, 11, 12, 13}));
    EXPECT_EQ(ip(0x0A0B0C0D).hostOrder(), 0x0A0B0C0Du);
    EXPECT_EQ(IpAddr().hostOrder(), 0u);
    static_assert(sizeof(IpAddr) == 4);
}

TEST(IpAddr, WritesAndReadsItsText) {
    EXPECT_EQ(ip(0x0A000001).text(), "10.0.0.1");
    EXPECT_EQ(ip(0xFFFFFFFF).text(), "255.255.255.255");
    EXPECT_EQ(IpAddr().text(), "0.0.0.0");
    EXPECT_EQ(parsed<IpAddr>("10.0.0.1"), ip(0x0A000001));
}

TEST(IpAddr, LeavesWhatFollows) {
    for (char const* rest : {"", "/8", ",x", ")", ":5", "}"}) {
        auto const text = std::string("1.2.3.4") + rest;
        Sorn::CharRange range(text);
        EXPECT_EQ(IpAddr::fromText(range), ip(0x01020304));
        EXPECT_EQ(range.rest(), rest);
    }
}

TEST(IpAddr, RefusesOtherTexts) {
    for (char const* text : {"", "10", "10.0.0", "10.0.0.", ".0.0.1", "10..0.1", "256.0.0.1", "10.0.0.1000",
                             "10.0.0.-1", "10.0.0.+1", "10.0.0.0x1", "a.b.c.d", "10,0,0,1", " 10.0.0.1",
                             "10.0.0.1x", "10.0.0.01", "00.0.0.1"})
        EXPECT_EQ(refusal<IpAddr>(text), fmt::format("\"{}\" is no IPv4 address", text));
    EXPECT_EQ(refusal<IpAddr>("10.0.0.1.2"), "expected the end, found \".2\"");
}

RC_GTEST_PROP(IpAddr, IsOrderedByItsNumberAndReadBackFromItsText, (U32 left, U32 right)) {
    RC_ASSERT((ip(left) <=> ip(right)) == (left <=> right));
    RC_ASSERT((ip(left) == ip(right)) == (left == right));
    RC_ASSERT(parsed<IpAddr>(ip(left).text()) == ip(left));
    RC_ASSERT(ip(left).hostOrder() == left);
}

TEST(Prefix, StartsAsAllAddresses) {
    EXPECT_EQ(Prefix().len(), 0);
    EXPECT_EQ(Prefix().address(), IpAddr());
    EXPECT_FALSE(Prefix().isNull());
    EXPECT_EQ(Prefix(), Prefix(IpAddr(), 0));
}

TEST(Prefix, MasksAsManyBitsAsItIsLong) {
    EXPECT_EQ(Prefix::mask(0), 0u);
    EXPECT_EQ(Prefix::mask(1), 0x80000000u);
    EXPECT_EQ(Prefix::mask(8), 0xFF000000u);
    EXPECT_EQ(Prefix::mask(31), 0xFFFFFFFEu);
    EXPECT_EQ(Prefix::mask(32), 0xFFFFFFFFu);
}

TEST(PrefixDeathTest, HasNoMaskForALengthBeyond32) {
    EXPECT_DEATH(Prefix::mask(33), "Assertion failed: length <= 32 \\(");
    EXPECT_DEATH(Prefix::mask(Prefix::nullLength), "Assertion failed: length <= 32 \\(");
}

TEST(Prefix, RefusesBitsBeyondItsLength) {
    for (U8 length = 0; length < 32; ++length) {
        U32 const lastInside = length == 0 ? 0 : U32{1} << (32 - length);
        U32 const firstBeyond = U32{1} << (31 - length);
        EXPECT_EQ(Prefix(ip(lastInside), length).address(), ip(lastInside));
        for (U32 const beyond : {firstBeyond, U32{1}}) {
            EXPECT_FALSE(Prefix::validAsPrefix(ip(beyond), length));
            EXPECT_EQ(failureOf<Belmo::RangeException>([&] { Prefix(ip(beyond), length); }), invalidPrefix);
        }
    }
    EXPECT_EQ(Prefix(ip(0xFFFFFFFF), 32).len(), 32);
}

TEST(Prefix, RefusesLengthsBeyond32) {
    for (int const length : {33, 64, 128, 254}) {
        EXPECT_FALSE(Prefix::validAsPrefix(IpAddr(), static_cast<U8>(length)));
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { Prefix(IpAddr(), static_cast<U8>(length)); }),
                  invalidPrefix);
    }
}

TEST(Prefix, IsNullAtLength255) {
    EXPECT_TRUE(Prefix::null().isNull());
    EXPECT_EQ(Prefix::null().len(), 255);
    EXPECT_EQ(Prefix::null().address(), IpAddr());
    EXPECT_EQ(Prefix(IpAddr(), 255), Prefix::null());
    EXPECT_NE(Prefix::null(), Prefix());
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { Prefix(ip(1), 255); }), invalidPrefix);
}

TEST(Prefix, IsOrderedByAddressThenLength) {
    EXPECT_LT(Prefix(ip(0x0A000000), 32), Prefix(ip(0x0B000000), 8));
    EXPECT_LT(Prefix(ip(0x0A000000), 8), Prefix(ip(0x0A000000), 9));
    EXPECT_LT(Prefix(ip(0x7F000000), 8), Prefix(ip(0x80000000), 8)) << "bytes have no sign";
    EXPECT_LT(Prefix(), Prefix::null());
    EXPECT_LT(Prefix::null(), Prefix(ip(1), 32));
}

TEST(Prefix, HashesAddressAndLength) {
    EXPECT_NE(Prefix(ip(0x0A000000), 8).hash(0), Prefix(ip(0x0A000000), 9).hash(0));
    EXPECT_NE(Prefix(ip(0x0A000000), 8).hash(0), Prefix(ip(0x0B000000), 8).hash(0));
    EXPECT_NE(Prefix(ip(0x0A000000), 8).hash(0), Prefix(ip(0x0A000000), 8).hash(1));
    EXPECT_NE(Prefix::null().hash(0), Prefix().hash(0));
}

TEST(Prefix, WritesAndReadsItsText) {
    EXPECT_EQ(Prefix(ip(0x0A000000), 8).text(), "10.0.0.0/8");
    EXPECT_EQ(Prefix().text(), "0.0.0.0/0");
    EXPECT_EQ(Prefix::null().text(), "null");
    EXPECT_EQ(parsed<Prefix>("null"), Prefix::null());
    EXPECT_EQ(parsed<Prefix>("0.0.0.0/0"), Prefix());
    EXPECT_EQ(parsed<Prefix>("255.255.255.255/32"), Prefix(ip(0xFFFFFFFF), 32));
}

RC_GTEST_PROP(Prefix, IsReadBackFromItsText, (U32 address)) {
    for (U8 length = 0; length <= 32; ++length) {
        Prefix const prefix(ip(address & Prefix::mask(length)), length);
        RC_ASSERT(parsed<Prefix>(prefix.text()) == prefix);
    }
}

TEST(Prefix, RefusesOtherTexts) {
    EXPECT_EQ(refusal<Prefix>("10.0.0.0"), "expected \"/\", found \"\"");
    EXPECT_EQ(refusal<Prefix>("10.0.0.0/"), "expected a number, found \"\"");
    EXPECT_EQ(refusal<Prefix>("10.0.0.0/-1"), "expected a number, found \"-1\"");
    EXPECT_EQ(refusal<Prefix>("10.0.0/8"), "\"10.0.0/8\" is no IPv4 address");
    EXPECT_EQ(refusal<Prefix>("nul"), "\"nul\" is no IPv4 address");
    EXPECT_EQ(refusal<Prefix>("nulls"), "expected the end, found \"s\"");
    for (char const* text : {"10.0.0.1/8", "0.0.0.0/33", "0.0.0.0/255", "0.0.0.0/256", "0.0.0.0/4294967296"})
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { parsed<Prefix>(text); }), invalidPrefix) << text;
}

EthAddr const station({0x00, 0x1c, 0x73, 0x00, 0xAB, 0xFF});

TEST(EthAddr, IsHeldInNetworkOrder) {
    EXPECT_EQ(station.bytes(), (std::array<U8, 6>{0x00, 0x1c, 0x73, 0x00, 0xAB, 0xFF}));
    EXPECT_EQ(EthAddr().bytes(), (std::array<U8, 6>{}));
}

TEST(EthAddr, WritesAndReadsItsText) {
    EXPECT_EQ(station.text(), "00:1c:73:00:ab:ff");
    EXPECT_EQ(parsed<EthAddr>("00:1c:73:00:ab:ff"), station);
    EXPECT_EQ(parsed<EthAddr>("0:1C:73:0:AB:FF"), station);
    Sorn::CharRange asKey("00:1c:73:00:ab:ff:5}");
    EXPECT_EQ(EthAddr::fromText(asKey), station);
    EXPECT_EQ(asKey.rest(), ":5}");
}

TEST(EthAddr, RefusesOtherTexts) {
    for (char const* text :
         {"", "00:1c:73:00:ab", "00:1c:73:00:ab:", "00:1c:73:00:ab:100", "00:1c:73:00:ab:fg",
          "00-1c-73-00-ab-ff", "001c.7300.abff", "00:1c:73::ab:ff", "00:1c:73:00:ab:-1"})
        EXPECT_EQ(refusal<EthAddr>(text), fmt::format("\"{}\" is no Ethernet address", text));
}

RC_GTEST_PROP(EthAddr, IsOrderedByItsBytesAndReadBackFromItsText, ()) {
    auto const bytes = [] { return *rc::gen::arbitrary<std::array<U8, 6>>(); };
    auto const left = bytes();
    auto right = bytes();
    if (*rc::gen::arbitrary<bool>()) right = left;
    if (*rc::gen::arbitrary<bool>()) right[5] = left[5];
    RC_ASSERT((EthAddr(left) <=> EthAddr(right)) == (left <=> right));
    RC_ASSERT((EthAddr(left).hash(3) == EthAddr(right).hash(3)) == (left == right));
    RC_ASSERT(parsed<EthAddr>(EthAddr(left).text()) == EthAddr(left));
}

}  // namespace
