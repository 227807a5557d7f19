// Packets on their way through the chip: their translations, routes and ports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PacketWayFixture.h"

namespace {

using namespace NerioSwitchTable;
using Chip::ArrivingPacket;
using Chip::IpProtocol;
using Chip::PacketFate;
using NerioSwitch::IngressPortMask;
using NerioTest::bytesOf;
using NerioTest::checksumsAreRight;
using NerioTest::cold;
using NerioTest::inside;
using NerioTest::ip;
using NerioTest::outside;
using NerioTest::PacketWayTest;
using NerioTest::peer;
using NerioTest::placeText;
using testing::ElementsAre;
using testing::HasSubstr;
using End = NerioTest::Ipv4Packet::End;

TEST_F(PacketWayTest, ATranslatedPacketLeavesWithTheOutsideAddress) {
    routerIs();
    auto const key = NatMatchKey()
                         .natTypeIs(NerioSwitch::NatType::sourcePort)
                         .sipIs(inside.address)
                         .sportIs(inside.port)
                         .ingressProfileIdIs(3);
    auto const rewrite = NatRewriteKey().isUnicastIs(true).natSessionIdIs(2).natProfileIdIs(3);
    auto const rewriteRow = nat.rewrites[1]->hashItem(rewrite)->hwIndex();
    auto const correction = nat.rewrites[1]->entry(rewrite).checksumCorrection();
    auto const routeRow = routes26().hashItem(NerioTest::routeKey(0, 0xC6336400, 24))->hwIndex();
    auto const way = wayOf(outbound());
    ASSERT_EQ(way.copies.size(), 1u);
    auto const came = Chip::headersOf(outbound().bytes);
    auto const leaves = Chip::headersOf(way.copies[0].bytes);
    EXPECT_EQ(leaves.source, outside.address.hostOrder());
    EXPECT_EQ(leaves.transport->sourcePort, outside.port);
    EXPECT_EQ(leaves.destination, came.destination);
    EXPECT_TRUE(checksumsAreRight(outbound().bytes));
    EXPECT_TRUE(checksumsAreRight(way.copies[0].bytes));
    EXPECT_EQ(
        textOf(outbound()),
        fmt::format(
            "TCP 10.0.0.5:8080 to 198.51.100.7:40000, by port 1 in VLAN 1 and VRF 0, "
            "through the switch under test\n"
            "\n"
            "ingress port     port 1 is in mode access\n"
            "    egress/port[1]/vlan_cfg: port 1 -> mode access\n"
            "native VLAN      passed over: port 1 has no native VLAN; VLAN 1 is taken\n"
            "VLAN             passed over: no VLAN has a member\n"
            "ACL              no rule applies; no ACL is named, so that only rules of the VRF were asked\n"
            "    ingress/processor_acl[0]/table5/pipeline0: VRF 0, source 10.0.0.5:8080, "
            "destination 198.51.100.7:40000 -> no row\n"
            "NAT match        the source 10.0.0.5:8080 is translated, by session 2\n"
            "    ingress/processor_l4[0]/natMatch, {}: source 10.0.0.5, source port 8080, profile 3 -> "
            "session 2, protocols TCP, rewrite 0, L3 LAG 57\n"
            "flow             no flow of these addresses\n"
            "    ingress/processor_l3[0]/sg: source 10.0.0.5, destination 198.51.100.7, profile 3 -> no row\n"
            "route            next hop 9, by L3 LAG 9\n"
            "    ingress/processor_l3[0]/lpm26, {}: VRF 0, destination 198.51.100.7 -> cell 0, next hop 9, "
            "L3 LAG 9, rewrite 0\n"
            "L3 LAG           L3 LAG 9 has port 30\n"
            "    ingress/processor_l3[0]/l3Lag, row 9: L3 LAG 9 -> ports 30\n"
            "egress port      leaves by port 30\n"
            "    egress/port[30]/vlan_cfg: port 30 -> mode trunk\n"
            "NAT rewrite      port 30: the source becomes 192.0.2.1:80\n"
            "    egress/processor[1]/natRewrite, {}: session 2, profile 3 -> address 192.0.2.1, port 80, "
            "checksum correction 0x{:04x}\n"
            "\n"
            "forwarded\n"
            "    came by port 1: TCP 10.0.0.5:8080 to 198.51.100.7:40000, header checksum 0x{:04x}, "
            "TCP checksum 0x{:04x}\n"
            "    leaves by port 30: TCP 192.0.2.1:80 to 198.51.100.7:40000, header checksum 0x{:04x}, "
            "TCP checksum 0x{:04x}\n",
            placeText(nat.matches->hashItem(key)->hwIndex(), 4096), placeText(routeRow, 4096),
            placeText(rewriteRow, 1024), correction, came.checksum, came.transport->checksum, leaves.checksum,
            leaves.transport->checksum));
}

TEST_F(PacketWayTest, AndItsAnswerComesBackToTheInsideAddress) {
    routerIs();
    auto const way = wayOf(inbound());
    EXPECT_EQ(way.fate, PacketFate::forwarded);
    ASSERT_EQ(way.copies.size(), 1u);
    EXPECT_EQ(way.copies[0].port, 1u);
    EXPECT_EQ(way.copies[0].bytes, bytesOf(IpProtocol::tcp, peer, inside));
    auto const text = textOf(inbound());
    EXPECT_THAT(text,
                HasSubstr("\nNAT match        the destination 192.0.2.1:80 is translated, by session 3\n"));
    EXPECT_THAT(text, HasSubstr(": destination 192.0.2.1, destination port 80, profile 3 -> session 3, "));
    EXPECT_THAT(text, HasSubstr("\n    ingress/processor_l3[1]/lpm26, ")) << "of the pipeline it comes by";
    EXPECT_THAT(text, HasSubstr("\nNAT rewrite      port 1: the destination becomes 10.0.0.5:8080\n"
                                "    egress/processor[0]/natRewrite, "));
}

TEST_F(PacketWayTest, APacketThatNoTranslationMatchesKeepsItsBytes) {
    routerIs();
    auto packet = outbound();
    packet.natProfile = 4;
    auto const way = wayOf(packet);
    EXPECT_THAT(namesOf(way),
                ElementsAre("ingress port", "ACL", "NAT match", "flow", "route", "L3 LAG", "egress port"));
    ASSERT_EQ(way.copies.size(), 1u);
    EXPECT_EQ(way.copies[0].bytes, packet.bytes);
    EXPECT_EQ(stageText(textOf(packet), "NAT match"),
              "NAT match        no translation matches\n"
              "    ingress/processor_l4[0]/natDynMatch/pipeline0: source 10.0.0.5:8080, "
              "destination 198.51.100.7:40000, profile 4 -> no row\n"
              "    ingress/processor_l4[0]/natMatch: source 10.0.0.5:8080, "
              "destination 198.51.100.7:40000, profile 4 -> no row\n");
    packet = outbound();
    packet.egressNatProfile = 5;
    EXPECT_EQ(wayOf(packet).copies.at(0).bytes, packet.bytes);
    EXPECT_EQ(stageText(textOf(packet), "NAT rewrite"),
              "NAT rewrite      port 30: no rewrite of session 2, the source stays\n"
              "    egress/processor[1]/natRewrite: session 2, profile 5 -> no row\n");
}

TEST_F(PacketWayTest, AMatchCanNameTheL3LagOrTrapToTheCpuAndShowsItsFilter) {
    lagIs(7, U64{1} << 40);
    auto const key = NatMatchKey()
                         .natTypeIs(NerioSwitch::NatType::sourceAddress)
                         .sipIs(inside.address)
                         .filterPfxIs({ip(198, 51, 100, 0), 24})
                         .ingressProfileIdIs(3);
    auto const result =
        NatMatchResult().validIs(true).natSessionIdIs(6).useAclIs(true).l3LagIndexIs(7).rewriteIndexIs(12);
    nat.matches->entryIs(key, result);
    auto const place = placeText(nat.matches->hashItem(key)->hwIndex(), 4096);
    auto const way = wayOf(outbound());
    EXPECT_THAT(namesOf(way), ElementsAre("ingress port", "ACL", "NAT match", "flow", "L3 LAG", "egress port",
                                          "NAT rewrite"))
        << "no route is asked for";
    EXPECT_EQ(way.copies.at(0).port, 40u);
    EXPECT_EQ(
        stageText(textOf(outbound()), "NAT match"),
        fmt::format("NAT match        the source 10.0.0.5:8080 is translated, by session 6, "
                    "and leaves by L3 LAG 7\n"
                    "    ingress/processor_l4[0]/natMatch, {}: source 10.0.0.5, filter 198.51.100.0/24, "
                    "profile 3 -> session 6, protocols any, asks the ACL, rewrite 12, L3 LAG 7\n",
                    place));
    nat.matches->entryIs(key, NatMatchResult(result).trapToCpuIs(true));
    auto const trapped = wayOf(outbound());
    EXPECT_EQ(trapped.fate, PacketFate::toCpu);
    EXPECT_EQ(trapped.stages.back().decision, "the translation of the source goes to the CPU");
    EXPECT_THAT(textOf(outbound()), HasSubstr("\nto the CPU\n    came by port 1: TCP 10.0.0.5:8080"));
    EXPECT_THAT(textOf(outbound()), HasSubstr("\n    goes to the CPU: TCP 10.0.0.5:8080 to "));
}

TEST_F(PacketWayTest, ADynamicMatchCountsAndShowsAllItLookedAt) {
    translationIs();
    auto const dynamic = natDynMatchTableFactory("dynamic", 0);
    nat.framework->tableIs(dynamic, cold);
    auto const key = NatMatchKey()
                         .natTypeIs(NerioSwitch::NatType::dynamicDestination)
                         .sipIs(inside.address)
                         .sportIs(inside.port)
                         .dipIs(peer.address)
                         .dportIs(peer.port)
                         .ingressProfileIdIs(3);
    dynamic->entryIs(key, NatDynMatchResult().validIs(true).protoIs(3).natSessionIdIs(0x1FFFF));
    EXPECT_EQ(
        stageText(textOf(outbound()), "NAT match"),
        fmt::format("NAT match        the destination 198.51.100.7:40000 is translated, by session 131071\n"
                    "    ingress/processor_l4[0]/natDynMatch/pipeline0, {}: source 10.0.0.5, "
                    "source port 8080, destination 198.51.100.7, destination port 40000, profile 3 -> "
                    "session 131071, protocols TCP and UDP, rewrite 0, L3 LAG 57\n",
                    placeText(dynamic->hashItem(key)->hwIndex(), 1024)));
}

TEST_F(PacketWayTest, AFlowNamesTheL3LagAndIsTranslatedTwice) {
    lagIs(6, 1u << 2);
    auto const flow = SGKey::unicastKey(inside.address, peer.address, 3);
    auto const unicast = SGResult::Unicast().l3LagIndexIs(6).rewriteIndexIs(8);
    auto const result = SGResult().dataIs(unicast).natTypeIs(SGNatType::sgNatTypeTnat).natSessionIdIs(77);
    auto const rewriteIs = [&](bool second, Lanvo::IpAddr from, U16 fromPort, End const& to) {
        nat.rewrites[0]->entryIs(
            NatRewriteKey().isUnicastIs(true).natSessionIdIs(77).natProfileIdIs(3).secondTnatIs(second),
            NatRewriteResult()
                .validIs(true)
                .newIpIs(to.address)
                .newPortIs(to.port)
                .checksumCorrectionIs(Agent::checksumCorrection(from, fromPort, to.address, to.port)));
    };
    End const other{ip(203, 0, 113, 9), 5555};
    rewriteIs(false, inside.address, inside.port, outside);
    rewriteIs(true, peer.address, peer.port, other);
    pairs().entryIs(flow, result);
    EXPECT_EQ(wayOf(outbound()).copies.at(0).bytes, outbound().bytes) << "its translation is not enabled";
    pairs().entryIs(flow, SGResult(result).natEnabledIs(true));
    auto const way = wayOf(outbound());
    EXPECT_THAT(namesOf(way), ElementsAre("ingress port", "ACL", "NAT match", "flow", "L3 LAG", "egress port",
                                          "NAT rewrite"));
    EXPECT_EQ(way.copies.at(0).bytes, bytesOf(IpProtocol::tcp, outside, other));
    auto const text = textOf(outbound());
    EXPECT_EQ(stageText(text, "flow"),
              fmt::format(
                  "flow             a flow of these addresses leaves by L3 LAG 6, translated by session 77\n"
                  "    ingress/processor_l3[0]/sg, {}: source 10.0.0.5, destination 198.51.100.7, "
                  "profile 3 -> rewrite 8, L3 LAG 6, NAT type both, session 77\n",
                  placeText(pairs().hashItem(flow)->hwIndex(), 8192)));
    EXPECT_THAT(text, HasSubstr("\nNAT rewrite      port 2: the source becomes 192.0.2.1:80; "
                                "port 2: the destination becomes 203.0.113.9:5555\n"));
    EXPECT_THAT(text, HasSubstr(": session 77, profile 3, second translation -> address 203.0.113.9, "));
}

TEST_F(PacketWayTest, ARoutedPacketLeavesByTheFirstPortOrAsTold) {
    routeIs(1, 0x0A000000, 8, 2u << 6 | 5);
    lagIs(5, 1u << 3 | 1u << 6 | IngressPortMask::cpu);
    ArrivingPacket packet{.port = 0, .vrf = 1, .bytes = bytesOf(IpProtocol::icmp, inside, inside)};
    auto const way = wayOf(packet);
    ASSERT_TRUE(way.route);
    EXPECT_EQ(way.route->nexthop, 133);
    ASSERT_EQ(way.copies.size(), 1u);
    EXPECT_EQ(way.copies[0].port, 3u);
    EXPECT_EQ(way.copies[0].bytes, packet.bytes);
    auto text = textOf(packet);
    EXPECT_EQ(
        stageText(text, "route"),
        "route            next hop 133, by L3 LAG 5\n"
        "    ingress/processor_l3[0]/lpm11, row 2128: VRF 1, destination 10.0.0.5 -> cell 0, next hop 133, "
        "L3 LAG 5, rewrite 2\n");
    EXPECT_EQ(stageText(text, "L3 LAG"),
              "L3 LAG           L3 LAG 5 has ports 3, 6 and the CPU\n"
              "    ingress/processor_l3[0]/l3Lag, row 5: L3 LAG 5 -> ports 3 6 52\n");
    EXPECT_EQ(stageText(text, "LAG member"),
              "LAG member       passed over: no LAG is met; the first port is taken\n");
    packet.egressPort = 9;
    text = textOf(packet);
    EXPECT_THAT(text, HasSubstr("has ports 3, 6 and the CPU; port 9 is taken, as told\n"));
    EXPECT_EQ(wayOf(packet).copies.at(0).port, 9u);
    packet.vrf = 2;
    EXPECT_THAT(textOf(packet),
                HasSubstr("\nL3 LAG           no L3 LAG is named; port 9 is taken, as told\n"));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::forwarded);
}

TEST_F(PacketWayTest, APacketThatNoRouteCoversIsDropped) {
    routeIs(1, 0x0A000000, 8, 5);
    ArrivingPacket const packet{.bytes = bytesOf(IpProtocol::icmp, inside, inside)};
    std::string lookups;
    for (U32 const stage : {32u, 29u, 26u, 23u, 20u, 17u, 14u, 11u})
        lookups +=
            fmt::format("    ingress/processor_l3[0]/lpm{}: VRF 0, destination 10.0.0.5 -> no row\n", stage);
    auto const text = textOf(packet);
    EXPECT_EQ(stageText(text, "route"), "route            no route in VRF 0\n" + lookups);
    EXPECT_EQ(stageText(text, "L3 LAG"), "L3 LAG           no L3 LAG is named\n");
    EXPECT_THAT(
        text, HasSubstr("\ndropped in stage L3 LAG\n    came by port 0: ICMP 10.0.0.5 to 10.0.0.5, header "));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped);
}

TEST_F(PacketWayTest, ARouteCanLeadToTheCpuAndToAnL3LagWithoutARow) {
    auto const table = lpm11TableFactory("lpm11");
    nat.framework->tableIs(table, cold);
    table->entryIs(NerioTest::routeKey(0, 0x0A000000, 11),
                   Lpm11Result().cellResultIs(NerioTest::routeCell(9, 8)).cpuTrapIs(true));
    ArrivingPacket const packet{.bytes = bytesOf(IpProtocol::udp, peer, inside)};
    EXPECT_EQ(wayOf(packet).fate, PacketFate::toCpu);
    EXPECT_EQ(stageText(textOf(packet), "route"),
              "route            next hop 9, to the CPU\n"
              "    ingress/processor_l3[0]/lpm11, row 80: VRF 0, destination 10.0.0.5 -> cell 0, next hop 9, "
              "L3 LAG 9, rewrite 0, trap to CPU\n");
    table->entryIs(NerioTest::routeKey(0, 0x0A000000, 11),
                   Lpm11Result().cellResultIs(NerioTest::routeCell(56, 8)));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped);
    EXPECT_EQ(stageText(textOf(packet), "L3 LAG"),
              "L3 LAG           L3 LAG 56 has no port\n"
              "    ingress/processor_l3[0]/l3Lag: L3 LAG 56 -> no row\n");
}

TEST_F(PacketWayTest, APortThatMayNotTransmitSendsNothing) {
    routerIs();
    ports().entryIs(PortConfigKey(1),
                    PortConfigResult().portModeIs(PortConfigMode::qinq).l2ForwardingDisabledIs(true));
    ports().entryIs(PortConfigKey(30), PortConfigResult().txDisabledIs(true));
    auto const text = textOf(outbound());
    EXPECT_EQ(stageText(text, "ingress port"),
              "ingress port     port 1 is in mode qinq\n"
              "    egress/port[1]/vlan_cfg: port 1 -> mode qinq, L2 forwarding disabled\n");
    EXPECT_EQ(stageText(text, "egress port"),
              "egress port      port 30 may not transmit\n"
              "    egress/port[30]/vlan_cfg: port 30 -> mode access, tx disabled\n");
    EXPECT_THAT(text, HasSubstr("\ndropped in stage egress port\n"));
}

TEST(PortsOfOldChips, AreReadFromTheirOwnRegister) {
    auto const profile = NerioSwitch::profilePreset("default");
    profile->vlanRegVer = 1;
    auto const chip = Chip::simulatedChip(*profile);
    chip->write(chip->address("egress/port[2]/cfg"), 2);
    auto const way =
        Chip::packetWay(*chip, *profile, {.port = 2, .bytes = bytesOf(IpProtocol::udp, peer, inside)});
    EXPECT_EQ(way.stages.at(0).decision, "port 2 is in mode qinq");
    EXPECT_EQ(way.stages.at(0).lookups.at(0).memory, "egress/port[2]/cfg");
}

TEST_F(PacketWayTest, JsonHasWhatTheTextHas) {
    routerIs();
    auto const json = jsonOf(outbound());
    EXPECT_EQ(json["fate"], "forwarded");
    auto const came = Chip::headersOf(outbound().bytes);
    EXPECT_EQ(json["packet"], (Agent::Json{{"src", "10.0.0.5"},
                                           {"dst", "198.51.100.7"},
                                           {"proto", 6},
                                           {"checksum", came.checksum},
                                           {"sport", 8080},
                                           {"dport", 40000},
                                           {"transportChecksum", came.transport->checksum},
                                           {"port", 1},
                                           {"vlan", 1},
                                           {"vrf", 0}}));
    ASSERT_EQ(json["stages"].size(), 10u);
    EXPECT_EQ(json["stages"][7],
              Agent::Json::parse(R"({"stage":"L3 LAG","decision":"L3 LAG 9 has port 30","lookups":[
                  {"memory":"ingress/processor_l3[0]/l3Lag","way":null,"row":9,"key":{"l3Lag":9},
                   "result":{"ports":[30],"cpuPriority":false,"natEnabled":false}}]})"));
    EXPECT_EQ(json["stages"][3]["lookups"][0]["result"], nullptr);
    ASSERT_EQ(json["copies"].size(), 1u);
    EXPECT_EQ(json["copies"][0]["packet"]["src"], "192.0.2.1");
    EXPECT_EQ(json["copies"][0]["packet"]["sport"], 80);
    EXPECT_EQ(json["copies"][0]["vlan"], nullptr);
    EXPECT_EQ(json["mirrored"], Agent::Json::array());
}

TEST_F(PacketWayTest, AskingLeavesTheChipAsItIs) {
    routerIs();
    auto const before = std::vector<U32>(nat.chip->memory().begin(), nat.chip->memory().end());
    wayOf(outbound());
    EXPECT_TRUE(std::ranges::equal(nat.chip->memory(), before)) << "not even a hit bit";
}

TEST_F(PacketWayTest, WhatTheChipLacksIsPassedOver) {
    nat.profile->numVrfs = 16;
    nat.profile->hwApi = {1, 0};
    ArrivingPacket const packet{.egressPort = 8, .bytes = bytesOf(IpProtocol::icmp, inside, peer)};
    auto const way = wayOf(packet);
    EXPECT_EQ(stageOf(way, "ACL").decision, "passed over: ACL lookup: no rows are known of hardware API 1.0");
    EXPECT_EQ(stageOf(way, "route").decision, "passed over: route lookup: no rows are known of 16 VRFs");
    EXPECT_EQ(way.fate, PacketFate::forwarded);
    nat.profile->natProfile = false;
    EXPECT_THAT(namesOf(wayOf(packet)), ElementsAre("ingress port", "ACL", "route", "L3 LAG", "egress port"));
}

TEST_F(PacketWayTest, NumbersThatTheChipLacksAreRefused) {
    ArrivingPacket const good{.bytes = bytesOf(IpProtocol::icmp, inside, peer)};
    auto const refused = [&](auto const& change) {
        auto packet = good;
        change(packet);
        EXPECT_THROW(wayOf(packet), Belmo::RangeException);
    };
    wayOf(good);
    refused([](ArrivingPacket& packet) { packet.port = 52; });
    refused([](ArrivingPacket& packet) { packet.egressPort = 52; });
    refused([](ArrivingPacket& packet) { packet.vlan = 4096; });
    refused([](ArrivingPacket& packet) { packet.vrf = 4; });
    refused([](ArrivingPacket& packet) { packet.aclId = 16; });
    refused([](ArrivingPacket& packet) { packet.aclProtocol = 16; });
    refused([](ArrivingPacket& packet) { packet.natProfile = 64; });
    refused([](ArrivingPacket& packet) { packet.egressNatProfile = 64; });
    refused([](ArrivingPacket& packet) { packet.floodNexthop = 160; });
    refused([](ArrivingPacket& packet) { packet.bytes.resize(19); });
    nat.profile->numPorts = 63;
    refused([](ArrivingPacket&) {});
}

TEST(Ipv4PacketTest, PacketsThatAreMadeHaveRightChecksums) {
    for (U8 const protocol : {IpProtocol::icmp, IpProtocol::tcp, IpProtocol::udp, U8{89}}) {
        for (U32 i = 0; i < 500; ++i) {
            End const source{Lanvo::IpAddr::fromHostOrder(i * 0x9E3779B1u), static_cast<U16>(i * 40503u)};
            auto const bytes = bytesOf(protocol, source, peer);
            auto const headers = Chip::headersOf(bytes);
            ASSERT_EQ(headers.source, source.address.hostOrder());
            ASSERT_EQ(headers.destination, peer.address.hostOrder());
            ASSERT_EQ(headers.protocol, protocol);
            bool const hasPorts = protocol == IpProtocol::tcp || protocol == IpProtocol::udp;
            ASSERT_EQ(headers.transport.has_value(), hasPorts);
            if (hasPorts) {
                ASSERT_EQ(headers.transport->sourcePort, source.port);
                ASSERT_TRUE(checksumsAreRight(bytes));
            }
            ASSERT_EQ(NerioTest::internetChecksum(std::span(bytes).first(20)), 0);
        }
    }
}

}  // namespace
