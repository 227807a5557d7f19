#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CrowdedKeys.h"
#include "FailureText.h"
#include "Ipv4Packet.h"
#include "NatSwitch.h"

namespace {

using Agent::NatTranslation;
using Agent::Refusal;
using NerioSwitchApi::StartMode;
using NerioSwitchTable::NatMatchKey;
using NerioSwitchTable::NatRewriteKey;
using NerioTest::ip;
using NerioTest::Ipv4Packet;
using NerioTest::NatSwitch;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

NatTranslation numbered(U32 number) {
    return NatTranslation()
        .insideIs(Lanvo::IpAddr::fromHostOrder(0x0A000000 + number))
        .insidePortIs(static_cast<U16>(1 + number % 0xFFFF))
        .outsideIs(Lanvo::IpAddr::fromHostOrder(0xC0000200 + number / 50000))
        .outsidePortIs(static_cast<U16>(1 + number % 50000))
        .profileIs(2);
}

struct NatAgentTest : testing::Test {
    std::optional<Refusal> add(NatTranslation const& translation) {
        return nat.agent->translationIs(translation);
    }
    bool added(NatTranslation const& translation) { return !add(translation); }
    void expectNothing() const {
        EXPECT_THAT(nat.entries(), Each(0u));
        EXPECT_THAT(nat.rowsInUse(), Each(0u));
        EXPECT_EQ(nat.chip->state(), empty);
    }

    NatSwitch nat;
    std::vector<U32> const empty = nat.chip->state();
};

TEST(ChecksumCorrectionTest, IsTheOnesComplementSumOfWhatChanges) {
    // RFC 1624, section 4: m = 0x5555, m' = 0x3285; ~m + m' = 0xAAAA + 0x3285.
    EXPECT_EQ(Agent::checksumCorrection(ip(0x55, 0x55, 1, 2), 7, ip(0x32, 0x85, 1, 2), 7), 0xDD2F);
    EXPECT_EQ(Agent::checksumCorrection(ip(10, 0, 0, 1), 80, ip(10, 0, 0, 1), 80), 0xFFFF)
        << "minus zero, which changes no sum";
    EXPECT_EQ(Agent::checksumCorrection(ip(255, 255, 255, 255), 0xFFFF, {}, 0), 0);
    EXPECT_EQ(Agent::checksumCorrection({}, 0, {}, 1), 1);
    EXPECT_EQ(Agent::checksumCorrection({}, 1, {}, 0), 0xFFFE);
}

TEST_F(NatAgentTest, ATranslationIsTwoMatchesAndTwoRewritesForEachPipeline) {
    auto const translation = NatTranslation()
                                 .insideIs(ip(10, 0, 0, 5))
                                 .insidePortIs(8080)
                                 .outsideIs(ip(192, 0, 2, 1))
                                 .outsidePortIs(80)
                                 .protoIs(1)
                                 .profileIs(3)
                                 .filterPfxIs({ip(198, 51, 100, 0), 24});
    EXPECT_FALSE(add(translation));
    U32 const session = nat.agent->sessions().at(translation);
    EXPECT_EQ(session % 2, 0u);
    auto const match = NatMatchKey().ingressProfileIdIs(3).filterPfxIs({ip(198, 51, 100, 0), 24});
    auto const result = NerioSwitchTable::NatMatchResult().validIs(true).protoIs(1);
    EXPECT_EQ(nat.matches->entry(NatMatchKey(match).natTypeIs(1).sipIs(ip(10, 0, 0, 5)).sportIs(8080)),
              NerioSwitchTable::NatMatchResult(result).natSessionIdIs(session));
    EXPECT_EQ(nat.matches->entry(NatMatchKey(match).natTypeIs(3).dipIs(ip(192, 0, 2, 1)).dportIs(80)),
              NerioSwitchTable::NatMatchResult(result).natSessionIdIs(session + 1));
    for (auto const& table : nat.rewrites) {
        auto const rewrite = [&](U32 of) {
            return table->entry(NatRewriteKey().isUnicastIs(true).natSessionIdIs(of).natProfileIdIs(3));
        };
        EXPECT_TRUE(rewrite(session).valid());
        EXPECT_EQ(rewrite(session).newIp(), ip(192, 0, 2, 1));
        EXPECT_EQ(rewrite(session).newPort(), 80);
        EXPECT_EQ(rewrite(session + 1).newIp(), ip(10, 0, 0, 5));
        EXPECT_EQ(rewrite(session + 1).newPort(), 8080);
    }
    EXPECT_THAT(nat.entries(), Each(2u));
}

TEST_F(NatAgentTest, WithoutPortsItIsOneOfTheWholeAddress) {
    EXPECT_FALSE(add(NatTranslation().insideIs(ip(10, 0, 0, 5)).outsideIs(ip(192, 0, 2, 1))));
    EXPECT_TRUE(nat.matches->entryHas(NatMatchKey().natTypeIs(0).sipIs(ip(10, 0, 0, 5))));
    EXPECT_TRUE(nat.matches->entryHas(NatMatchKey().natTypeIs(2).dipIs(ip(192, 0, 2, 1))));
}

TEST_F(NatAgentTest, GoesAgainAsOne) {
    for (U32 i = 0; i < 20; ++i)
        EXPECT_FALSE(add(numbered(i)));
    EXPECT_THAT(nat.rowsInUse(), Each(40u));
    for (U32 i = 0; i < 20; ++i)
        EXPECT_TRUE(nat.agent->translationDel(numbered(i)));
    expectNothing();
    EXPECT_FALSE(nat.agent->translationDel(numbered(3)));
}

TEST_F(NatAgentTest, OneThatIsThereIsNotWrittenAgain) {
    add(numbered(1));
    auto const writes = nat.bus->writes();
    EXPECT_FALSE(add(numbered(1)));
    EXPECT_EQ(nat.bus->writes(), writes);
}

TEST_F(NatAgentTest, WhatRowsCannotCarryIsRefusedAndNothingIsDone) {
    auto const failure = [&](NatTranslation const& translation) {
        return failureOf<Belmo::RangeException>([&] { add(translation); });
    };
    std::string const ports = "Agent::NatTranslation::insidePort == 0 != outsidePort == 0 not allowed";
    EXPECT_EQ(failure(numbered(1).insidePortIs(0)), ports);
    EXPECT_EQ(failure(numbered(1).outsidePortIs(0)), ports);
    EXPECT_EQ(failure(numbered(1).protoIs(4)),
              "Agent::NatTranslation::proto > NerioSwitch::NatL4Proto::tcpAndUdp not allowed");
    EXPECT_EQ(failure(numbered(1).profileIs(64)), "Agent::NatTranslation::profile > 63 not allowed");
    expectNothing();
    EXPECT_EQ(failure(numbered(1).profileIs(63).protoIs(3)), "");
}

TEST_F(NatAgentTest, TwoTranslationsDoNotMatchTheSamePackets) {
    add(numbered(1));
    auto const sameInside = add(numbered(1).outsidePortIs(999));
    ASSERT_TRUE(sameInside);
    EXPECT_EQ(sameInside->reason, Refusal::Reason::taken);
    EXPECT_THAT(sameInside->text, HasSubstr("sip=10.0.0.1"));
    auto const sameOutside = add(numbered(1).insidePortIs(999));
    ASSERT_TRUE(sameOutside);
    EXPECT_THAT(sameOutside->text, HasSubstr("dip=192.0.2.0"));
    EXPECT_THAT(nat.entries(), Each(2u));
    EXPECT_FALSE(add(numbered(1).profileIs(3)));
    EXPECT_FALSE(add(numbered(1).filterPfxIs({ip(10, 0, 0, 0), 8})));
}

/** Numbers whose inside matches share all their rows, so that three of them fill these. */
TEST_F(NatAgentTest, ATranslationWithoutAPlaceForAllOfItHasNone) {
    auto const inside = [](U64 number) {
        return NatTranslation()
            .insideIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(number)))
            .insidePortIs(static_cast<U16>(1u << 15 | number >> 32))
            .profileIs(2);
    };
    auto const rowOf = [&](U64 number, U8 table) {
        auto const key = NatMatchKey()
                             .natTypeIs(1)
                             .sipIs(inside(number).inside())
                             .sportIs(inside(number).insidePort())
                             .ingressProfileIdIs(2);
        return NerioSwitchTable::NatMatchTableCuckooEntry(key, true).getHash(table);
    };
    auto const numbers = NerioTest::spanOf(NerioTest::rowKeepers(rowOf, 47, {0, 1, 2}, 2));
    ASSERT_EQ(numbers.size(), 4u);
    auto const translation = [&](std::size_t i) {
        return inside(numbers[i]).outsideIs(ip(192, 0, 2, 9)).outsidePortIs(static_cast<U16>(100 + i));
    };
    for (std::size_t i = 0; i < 3; ++i)
        ASSERT_TRUE(added(translation(i)));
    auto const before = nat.chip->state();
    auto const refusal = add(translation(3));
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->reason, Refusal::Reason::noPlace);
    EXPECT_THAT(refusal->text, HasSubstr("no place in matches for natType=1"));
    EXPECT_FALSE(nat.agent->translationHas(translation(3)));
    EXPECT_EQ(nat.chip->state(), before);
    EXPECT_THAT(nat.entries(), Each(6u));
    nat.agent->translationDel(translation(1));
    EXPECT_TRUE(added(translation(3)));
}

TEST_F(NatAgentTest, FillsTheRewritesAndLosesNothingAtTheLimit) {
    U32 placed = 0;
    std::optional<Refusal> refusal;
    for (U32 i = 0; i < 2200; ++i) {
        refusal = add(numbered(i));
        if (refusal) break;
        ++placed;
    }
    ASSERT_TRUE(refusal) << "4096 rows have no room for 4400 rewrites";
    EXPECT_EQ(refusal->reason, Refusal::Reason::noPlace);
    EXPECT_THAT(refusal->text, HasSubstr("no place in rewrites0"));
    EXPECT_GT(placed, 4096u * 95 / 100 / 2);
    EXPECT_THAT(nat.entries(), Each(2 * placed));
    EXPECT_THAT(nat.rowsInUse(), Each(2 * placed));
}

TEST_F(NatAgentTest, SessionsAreTakenAgainAndNeverTwice) {
    std::set<U32> sessions;
    for (U32 i = 0; i < 70000; ++i) {
        ASSERT_TRUE(added(numbered(i % 7)));
        sessions.insert(nat.agent->sessions().at(numbered(i % 7)));
        nat.agent->translationDel(numbered(i % 7));
    }
    EXPECT_EQ(*sessions.begin(), 2u) << "0 is no session";
    EXPECT_EQ(*sessions.rbegin(), 0x1FFFEu);
    EXPECT_EQ(sessions.size(), 65535u);
    expectNothing();
}

TEST_F(NatAgentTest, WhenTheBusFailsNoPartOfATranslationStays) {
    add(numbered(100));
    auto const before = nat.chip->state();
    for (U32 i = 0; i < 26; ++i) {
        nat.bus->failAfter(i);
        EXPECT_THROW(add(numbered(i)), NerioSwitchApi::BusException) << i;
        nat.bus->heal();
        EXPECT_FALSE(nat.agent->translationHas(numbered(i)));
        EXPECT_FALSE(nat.agent->translationDel(numbered(i))) << "which settles what was left";
        EXPECT_THAT(nat.entries(), Each(2u));
        EXPECT_EQ(nat.chip->state(), before) << i;
    }
    EXPECT_TRUE(added(numbered(1)));
}

TEST_F(NatAgentTest, AfterAFailureThatPassesNothingIsLeftAtOnce) {
    for (U32 i = 0; i < 26; ++i) {
        nat.bus->failAfter(i, 1);
        EXPECT_THROW(add(numbered(i)), NerioSwitchApi::BusException) << i;
        EXPECT_THAT(nat.entries(), Each(0u));
        EXPECT_EQ(nat.chip->state(), empty) << i;
    }
}

TEST_F(NatAgentTest, WhenTheBusFailsARemovalIsDoneLater) {
    for (U32 i = 0; i < 26; ++i) {
        ASSERT_TRUE(added(numbered(i)));
        nat.bus->failAfter(i);
        EXPECT_THROW(nat.agent->translationDel(numbered(i)), NerioSwitchApi::BusException) << i;
        nat.bus->heal();
        EXPECT_FALSE(nat.agent->translationHas(numbered(i)));
        ASSERT_TRUE(added(numbered(i + 1000)));
        ASSERT_TRUE(nat.agent->translationDel(numbered(i + 1000)));
        EXPECT_EQ(nat.chip->state(), empty) << i;
    }
    expectNothing();
}

TEST_F(NatAgentTest, ATranslationThatIsToldAgainAfterARestartKeepsItsSessionAndIsNotWritten) {
    std::map<NatTranslation, U32> sessions;
    for (U32 i = 0; i < 300; ++i)
        add(numbered(i));
    sessions = nat.agent->sessions();
    auto const writes = nat.bus->writes();
    nat.start(StartMode::warm);
    for (U32 i = 299; i + 1 > 0; --i)
        EXPECT_FALSE(add(numbered(i)));
    EXPECT_EQ(nat.agent->sessions(), sessions);
    nat.agent->othersDel();
    EXPECT_EQ(nat.bus->writes(), writes);
    EXPECT_TRUE(added(numbered(300)));
}

TEST_F(NatAgentTest, WhatNobodyToldAgainGoesAndItsSessionIsNotGivenAwayBefore) {
    for (U32 i = 0; i < 10; ++i)
        add(numbered(i));
    auto const session = nat.agent->sessions().at(numbered(3));
    auto const multicast = NatRewriteKey().natSessionIdIs(9).vlanGroupIdIs(1);
    nat.rewrites[0]->entryIs(multicast, NerioSwitchTable::NatRewriteResult().validIs(true));
    nat.start(StartMode::warm);
    EXPECT_TRUE(added(numbered(50)));
    EXPECT_GT(nat.agent->sessions().at(numbered(50)), 21u) << "older sessions are still in hardware";
    EXPECT_TRUE(added(numbered(3)));
    EXPECT_EQ(nat.agent->sessions().at(numbered(3)), session);
    nat.agent->othersDel();
    EXPECT_THAT(nat.entries(), ElementsAre(4u, 5u, 4u));
    EXPECT_TRUE(nat.rewrites[0]->entryHas(multicast));
    nat.agent->translationDel(numbered(3));
    nat.agent->translationDel(numbered(50));
    nat.rewrites[0]->entryDel(multicast);
    expectNothing();
}

TEST_F(NatAgentTest, ATranslationOfOtherWayOutThatIsToldAfterARestartTakesNoHeldSession) {
    add(numbered(1));
    nat.start(StartMode::warm);
    auto const moved = numbered(1).outsidePortIs(999);
    EXPECT_TRUE(added(moved)) << "the old one was not told again";
    nat.agent->othersDel();
    EXPECT_THAT(nat.entries(), Each(2u));
    EXPECT_THAT(nat.rowsInUse(), Each(2u));
}

TEST(NatAgentBeforeVersion10Test, AFilterThatComesBackAsAnotherIsReplacedWithoutAGap) {
    NatSwitch nat({9, 9});
    auto const translation = NatTranslation()
                                 .insideIs(ip(10, 0, 0, 5))
                                 .outsideIs(ip(192, 0, 2, 1))
                                 .profileIs(3)
                                 .filterPfxIs({ip(198, 51, 100, 0), 24});
    auto const isTranslated = [&] {
        Ipv4Packet packet(Ipv4Packet::tcp, {ip(10, 0, 0, 5), 99}, {ip(198, 51, 100, 7), 80}, {1, 2});
        bool const translated = nat.translate(packet.bytes, 3);
        return translated && packet.source().address == ip(192, 0, 2, 1) && packet.checksumsAreRight();
    };
    EXPECT_FALSE(nat.agent->translationIs(translation));
    EXPECT_TRUE(isTranslated());
    nat.start(StartMode::warm);
    EXPECT_TRUE(isTranslated());
    EXPECT_FALSE(nat.agent->translationIs(translation));
    EXPECT_TRUE(isTranslated());
    EXPECT_THAT(nat.entries(), Each(4u)) << "the old one, under the filter of its row, and the new one";
    nat.agent->othersDel();
    EXPECT_TRUE(isTranslated());
    EXPECT_THAT(nat.entries(), Each(2u));
}

}  // namespace
