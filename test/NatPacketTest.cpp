// Packets with real headers on their way through the chip, by what the agent programmed.
#include <gtest/gtest.h>

#include "Ipv4Packet.h"
#include "NatSwitch.h"
#include "RandomValue.h"

namespace {

using Agent::NatTranslation;
using NerioSwitch::NatL4Proto;
using NerioTest::below;
using NerioTest::ip;
using NerioTest::Ipv4Packet;
using NerioTest::NatSwitch;
using NerioTest::Random;
using End = NerioTest::Ipv4Packet::End;

std::vector<U8> randomBytes(Random& random, std::size_t size) {
    std::vector<U8> bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<U8>(random());
    return bytes;
}

NatTranslation portTranslation() {
    return NatTranslation()
        .insideIs(ip(10, 0, 0, 5))
        .insidePortIs(8080)
        .outsideIs(ip(192, 0, 2, 1))
        .outsidePortIs(80)
        .protoIs(NatL4Proto::tcp)
        .profileIs(3);
}

NatTranslation addressTranslation() {
    return NatTranslation().insideIs(ip(10, 0, 0, 6)).outsideIs(ip(192, 0, 2, 2)).profileIs(3);
}

End const peer{ip(198, 51, 100, 7), 40000};

class NatPacketTest : public testing::Test {
protected:
    void add(NatTranslation const& translation) {
        auto const refusal = nat.agent->translationIs(translation);
        ASSERT_FALSE(refusal) << refusal->text;
    }
    void expectUntouched(Ipv4Packet const& packet, U8 profile = 3) {
        auto copy = packet;
        EXPECT_FALSE(nat.translate(copy.bytes, profile));
        EXPECT_EQ(copy.bytes, packet.bytes);
    }

    NatSwitch nat;
};

TEST_F(NatPacketTest, APortIsTranslatedOnItsWayOutAndBack) {
    add(portTranslation());
    End const inside{ip(10, 0, 0, 5), 8080};
    End const outside{ip(192, 0, 2, 1), 80};
    Random random(1);
    for (int i = 0; i < 300; ++i) {
        Ipv4Packet packet(Ipv4Packet::tcp, inside, peer, randomBytes(random, below(random, 40)),
                          below(random, 3));
        ASSERT_TRUE(packet.checksumsAreRight());
        ASSERT_TRUE(nat.translate(packet.bytes, 3));
        EXPECT_EQ(packet.source(), outside);
        EXPECT_EQ(packet.destination(), peer);
        ASSERT_TRUE(packet.checksumsAreRight());

        Ipv4Packet const answer(Ipv4Packet::tcp, peer, outside, randomBytes(random, below(random, 40)));
        auto back = answer;
        ASSERT_TRUE(nat.translate(back.bytes, 3, 1, 0));
        EXPECT_EQ(back.source(), peer);
        EXPECT_EQ(back.destination(), inside);
        ASSERT_TRUE(back.checksumsAreRight());
    }
}

TEST_F(NatPacketTest, AnAddressIsTranslatedForEveryPortAndProtocol) {
    add(addressTranslation());
    Random random(2);
    for (U8 const protocol : {Ipv4Packet::tcp, Ipv4Packet::udp, Ipv4Packet::icmp}) {
        for (int i = 0; i < 100; ++i) {
            End const inside{ip(10, 0, 0, 6), static_cast<U16>(random())};
            Ipv4Packet const sent(protocol, inside, peer, randomBytes(random, below(random, 40)));
            auto packet = sent;
            ASSERT_TRUE(nat.translate(packet.bytes, 3));
            EXPECT_EQ(packet.source(), (End{ip(192, 0, 2, 2), sent.source().port}));
            ASSERT_TRUE(packet.checksumsAreRight());
            Ipv4Packet answer(protocol, packet.destination(), packet.source(), {1, 2, 3});
            ASSERT_TRUE(nat.translate(answer.bytes, 3));
            EXPECT_EQ(answer.destination(), sent.source());
            ASSERT_TRUE(answer.checksumsAreRight());
        }
    }
}

TEST_F(NatPacketTest, ChecksumsAreRightForAnyAddressesAndPorts) {
    Random random(3);
    for (int i = 0; i < 400; ++i) {
        auto const number = [&] {
            return below(random, 4) == 0 ? static_cast<U32>(below(random, 2) == 0 ? 0 : ~U64{0})
                                         : static_cast<U32>(random());
        };
        auto const port = [&] { return static_cast<U16>(std::max(1u, number() & 0xFFFF)); };
        auto const translation = NatTranslation()
                                     .insideIs(Lanvo::IpAddr::fromHostOrder(number()))
                                     .insidePortIs(port())
                                     .outsideIs(Lanvo::IpAddr::fromHostOrder(number()))
                                     .outsidePortIs(port())
                                     .profileIs(below(random, 64));
        add(translation);
        auto const profile = static_cast<U8>(translation.profile().value());
        U8 const protocol = below(random, 2) == 0 ? Ipv4Packet::tcp : Ipv4Packet::udp;
        Ipv4Packet packet(protocol, {translation.inside(), translation.insidePort()}, peer,
                          randomBytes(random, below(random, 8)));
        ASSERT_TRUE(nat.translate(packet.bytes, profile));
        EXPECT_EQ(packet.source(), (End{translation.outside(), translation.outsidePort()}));
        ASSERT_TRUE(packet.checksumsAreRight()) << Sorn::text(translation);
        ASSERT_TRUE(nat.agent->translationDel(translation));
    }
}

TEST_F(NatPacketTest, EveryChecksumOfATransportHeaderComesOutRight) {
    add(portTranslation().protoIs(NatL4Proto::tcpAndUdp));
    for (U8 const protocol : {Ipv4Packet::tcp, Ipv4Packet::udp}) {
        U32 wrong = 0;
        for (U32 payload = 0; payload <= 0xFFFF; ++payload) {
            Ipv4Packet packet(protocol, {ip(10, 0, 0, 5), 8080}, peer,
                              {static_cast<U8>(payload >> 8), static_cast<U8>(payload)});
            bool const translated = nat.translate(packet.bytes, 3);
            wrong += translated && packet.checksumsAreRight() ? 0 : 1;
        }
        EXPECT_EQ(wrong, 0u) << int{protocol};
    }
}

TEST_F(NatPacketTest, AUdpPacketWithoutAChecksumKeepsNone) {
    add(addressTranslation());
    Ipv4Packet packet(Ipv4Packet::udp, {ip(10, 0, 0, 6), 53}, peer, {1, 2, 3});
    packet.put(packet.checksumAt(), 0);
    ASSERT_TRUE(nat.translate(packet.bytes, 3));
    EXPECT_EQ(packet.at(packet.checksumAt()), 0);
    EXPECT_EQ(packet.at(10), packet.headerChecksum());
}

TEST_F(NatPacketTest, AFragmentBehindTheFirstHasNoPorts) {
    add(addressTranslation());
    add(portTranslation());
    Ipv4Packet const whole(Ipv4Packet::udp, {ip(10, 0, 0, 6), 53}, peer, {1, 2, 3});
    auto packet = whole;
    packet.put(6, 5);
    packet.put(10, packet.headerChecksum());
    auto const before = packet.bytes;
    ASSERT_TRUE(nat.translate(packet.bytes, 3));
    EXPECT_EQ(packet.at(10), packet.headerChecksum());
    EXPECT_TRUE(std::equal(before.begin() + 20, before.end(), packet.bytes.begin() + 20));
    Ipv4Packet ofPort(Ipv4Packet::tcp, {ip(10, 0, 0, 5), 8080}, peer, {});
    ofPort.put(6, 5);
    expectUntouched(ofPort);
}

TEST_F(NatPacketTest, OtherPacketsAreLeftAsTheyAre) {
    add(portTranslation());
    End const inside{ip(10, 0, 0, 5), 8080};
    expectUntouched(Ipv4Packet(Ipv4Packet::udp, inside, peer, {}));
    expectUntouched(Ipv4Packet(Ipv4Packet::tcp, {ip(10, 0, 0, 5), 8081}, peer, {}));
    expectUntouched(Ipv4Packet(Ipv4Packet::tcp, {ip(10, 0, 0, 4), 8080}, peer, {}));
    expectUntouched(Ipv4Packet(Ipv4Packet::tcp, peer, inside, {}));
    expectUntouched(Ipv4Packet(Ipv4Packet::tcp, inside, peer, {}), 4);
    expectUntouched(Ipv4Packet(Ipv4Packet::icmp, inside, peer, {}));
    std::vector<U8> noPacket(20, 0);
    EXPECT_THROW(nat.translate(noPacket, 3), Belmo::RangeException);
    noPacket.resize(19);
    EXPECT_THROW(nat.translate(noPacket, 3), Belmo::RangeException);
}

TEST_F(NatPacketTest, AFilterTellsPeersApartAndTheLongestOneCounts) {
    auto const to = [&](Lanvo::Prefix const& filter, U32 last) {
        add(addressTranslation().filterPfxIs(filter).outsideIs(ip(192, 0, 2, last)));
    };
    to(Lanvo::Prefix::null(), 1);
    to({ip(198, 51, 100, 0), 24}, 24);
    to({ip(198, 51, 100, 4), 30}, 30);
    to({ip(198, 51, 100, 9), 32}, 32);
    to({ip(0, 0, 0, 0), 1}, 2);
    struct Case {
        Lanvo::IpAddr peer;
        U32 last;
    };
    for (auto const& each : {Case{ip(198, 51, 100, 9), 32},
                             {ip(198, 51, 100, 7), 30},
                             {ip(198, 51, 100, 8), 24},
                             {ip(198, 51, 101, 8), 1},
                             {ip(127, 0, 0, 1), 2},
                             {ip(128, 0, 0, 1), 1}}) {
        Ipv4Packet packet(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 99}, {each.peer, 40000}, {7});
        ASSERT_TRUE(nat.translate(packet.bytes, 3));
        EXPECT_EQ(packet.source().address, ip(192, 0, 2, each.last)) << each.peer.text();
        Ipv4Packet answer(Ipv4Packet::tcp, packet.destination(), packet.source(), {7});
        ASSERT_TRUE(nat.translate(answer.bytes, 3));
        EXPECT_EQ(answer.destination(), (End{ip(10, 0, 0, 6), 99}));
        EXPECT_TRUE(answer.checksumsAreRight());
    }
    nat.agent->translationDel(addressTranslation().outsideIs(ip(192, 0, 2, 1)));
    expectUntouched(Ipv4Packet(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 99}, {ip(198, 51, 101, 8), 1}, {}));
}

TEST_F(NatPacketTest, APortCountsBeforeTheWholeAddress) {
    add(addressTranslation());
    add(portTranslation().insideIs(ip(10, 0, 0, 6)).protoIs(0));
    Ipv4Packet ofPort(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 8080}, peer, {});
    ASSERT_TRUE(nat.translate(ofPort.bytes, 3));
    EXPECT_EQ(ofPort.source(), (End{ip(192, 0, 2, 1), 80}));
    Ipv4Packet ofAddress(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 8081}, peer, {});
    ASSERT_TRUE(nat.translate(ofAddress.bytes, 3));
    EXPECT_EQ(ofAddress.source(), (End{ip(192, 0, 2, 2), 8081}));
}

TEST_F(NatPacketTest, ADynamicMatchCountsBeforeAStaticOne) {
    add(addressTranslation());
    auto const dynamic = NerioSwitchTable::natDynMatchTableFactory("dynamic", 0);
    nat.framework->tableIs(dynamic, NerioSwitchApi::StartMode::cold);
    auto const flow = NerioSwitchTable::NatMatchKey()
                          .natTypeIs(NerioSwitch::NatType::dynamicSourcePort)
                          .sipIs(ip(10, 0, 0, 6))
                          .sportIs(99)
                          .dipIs(peer.address)
                          .dportIs(peer.port)
                          .ingressProfileIdIs(3);
    auto const session = NerioSwitchTable::NatDynMatchResult().validIs(true).natSessionIdIs(0x1FFFF);
    dynamic->entryIs(flow, session);
    U16 const correction = Agent::checksumCorrection(ip(10, 0, 0, 6), 99, ip(203, 0, 113, 1), 5555);
    nat.rewrites[1]->entryIs(
        NerioSwitchTable::NatRewriteKey().isUnicastIs(true).natSessionIdIs(0x1FFFF).natProfileIdIs(3),
        NerioSwitchTable::NatRewriteResult()
            .validIs(true)
            .newIpIs(ip(203, 0, 113, 1))
            .newPortIs(5555)
            .checksumCorrectionIs(correction));
    Ipv4Packet packet(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 99}, peer, {1});
    ASSERT_TRUE(nat.translate(packet.bytes, 3));
    EXPECT_EQ(packet.source(), (End{ip(203, 0, 113, 1), 5555}));
    EXPECT_TRUE(packet.checksumsAreRight());
    Ipv4Packet other(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 98}, peer, {1});
    ASSERT_TRUE(nat.translate(other.bytes, 3));
    EXPECT_EQ(other.source(), (End{ip(192, 0, 2, 2), 98}));
    dynamic->entryIs(flow, NerioSwitchTable::NatDynMatchResult(session).trapToCpuIs(true));
    expectUntouched(Ipv4Packet(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 99}, peer, {1}));
}

TEST_F(NatPacketTest, ATranslatedPacketMarksItsMatch) {
    add(addressTranslation());
    Ipv4Packet packet(Ipv4Packet::tcp, {ip(10, 0, 0, 6), 99}, peer, {});
    ASSERT_TRUE(nat.translate(packet.bytes, 3));
    EXPECT_EQ(nat.framework->pollHitBits(Belmo::Duration(5)), 1u);
    auto const key = NerioSwitchTable::NatMatchKey().sipIs(ip(10, 0, 0, 6)).ingressProfileIdIs(3);
    EXPECT_EQ(nat.matches->tableStatus()->entryStatus(key).lastHit(), Belmo::Duration(5));
}

}  // namespace
