// Packets on their way through the chip: their VLANs, addresses, LAGs, mirrors and limits.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NerioSwitchTable/NerioTableFloodSet.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "NerioSwitchTable/NerioTableNativeVlan.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "NerioSwitchTable/NerioTableStormControl.h"
#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "PacketWayFixture.h"
#include "chip/LagLookup.h"

namespace {

using namespace NerioSwitchTable;
using Chip::ArrivingPacket;
using Chip::IpProtocol;
using Chip::LagLookup;
using Chip::PacketFate;
using NerioSwitch::ChipPortId;
using NerioSwitch::IngressPortMask;
using NerioTest::bytesOf;
using NerioTest::inside;
using NerioTest::ip;
using NerioTest::PacketWayTest;
using NerioTest::peer;
using NerioTest::ruleOf;
using testing::HasSubstr;
using testing::Not;

class Layer2WayTest : public PacketWayTest {
protected:
    static ArrivingPacket plain() { return {.port = 1, .bytes = bytesOf(IpProtocol::tcp, inside, peer)}; }
    static ArrivingPacket framed(std::array<U8, 6> const& address) {
        auto packet = plain();
        packet.vlan = 20;
        packet.ethAddr = Lanvo::EthAddr(address);
        return packet;
    }
    std::vector<U32> portsOf(ArrivingPacket const& packet) {
        std::vector<U32> ports;
        for (auto const& copy : wayOf(packet).copies)
            ports.push_back(copy.port);
        return ports;
    }
    /** Starts a table cold. */
    template <class Table>
    Belmo::Ptr<Table> started(Belmo::Ptr<Table> const& table) {
        nat.framework->tableIs(table, NerioTest::cold);
        return table;
    }
    /** VLAN 20 of ports 1 and 30. */
    static VlanMembershipResult members() {
        return VlanMembershipResult().permitMaskIs(1u << 1 | 1u << 30).unicastRouteIs(true);
    }
    void routeTo9() {
        routeIs(2, 0xC6336400, 24, 9);
        lagIs(9, U64{1} << 30);
    }
};

constexpr std::array<U8, 6> station{0x00, 0x1C, 0x73, 0xA1, 0xB2, 0xC3};
constexpr std::array<U8, 6> group{0x01, 0x00, 0x5E, 0x01, 0x01, 0x01};
constexpr std::array<U8, 6> everyone{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

TEST_F(Layer2WayTest, AnUntaggedPacketTakesTheTagOfItsPort) {
    auto const tags = started(nativeVlanTableFactory("tags"));
    tags->entryIs(NativeVlanKey(ChipPortId(1)), NativeVlanResult().nativeVlanIdIs(20).pcpIs(5).deiIs(1));
    auto const text = textOf(plain());
    EXPECT_THAT(text, HasSubstr(", by port 1 in VLAN 20 and VRF 0, "));
    EXPECT_EQ(jsonOf(plain())["packet"]["vlan"], 20);
    EXPECT_EQ(stageText(text, "native VLAN"),
              "native VLAN      untagged, in VLAN 20 of port 1\n"
              "    egress/port[1]/vlan_tci: port 1 -> VLAN 20, priority 5, drop eligible\n");
    auto tagged = plain();
    tagged.vlan = 7;
    EXPECT_EQ(stageText(textOf(tagged), "native VLAN"), "");
    EXPECT_EQ(wayOf(tagged).vlan, 7);
}

TEST_F(Layer2WayTest, APortThatIsNoMemberOfTheVlanDropsThePacket) {
    auto const vlans = started(vlanMembershipTableFactory("vlans"));
    auto packet = plain();
    packet.vlan = 20;
    EXPECT_EQ(stageText(textOf(packet), "VLAN"), "VLAN             passed over: no VLAN has a member\n")
        << "rows that nobody wrote decide nothing";
    vlans->entryIs(VlanMembershipKey(20), members());
    EXPECT_THAT(stageOf(wayOf(packet), "VLAN").decision, HasSubstr("port 1 is a member of VLAN 20"));
    packet.port = 2;
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped);
    auto const text = textOf(packet);
    EXPECT_EQ(stageText(text, "VLAN"),
              "VLAN             port 2 is no member of VLAN 20\n"
              "    ingress/vlan[0]/vlans, row 20: VLAN 20, port 2 -> VRF 0, unicast route, ACL 0, ACL enable "
              "0, default permit\n");
    EXPECT_THAT(text, HasSubstr("\ndropped in stage VLAN\n"));
    packet.port = 1;
    packet.vlan = 21;
    EXPECT_EQ(wayOf(packet).stages.back().decision, "port 1 is no member of VLAN 21");
    vlans->entryIs(VlanMembershipKey(20), members().permitMaskIs(U64{1} << 30));
    EXPECT_EQ(stageOf(wayOf(packet), "VLAN").decision, "passed over: no VLAN has a member")
        << "those of the other pipeline stand in a copy of their own";
}

TEST_F(Layer2WayTest, AVlanGivesItsVrfAclAndNatProfileToPacketsThatCameWithout) {
    auto const vlans = started(vlanMembershipTableFactory("vlans"));
    routeTo9();
    vlans->entryIs(VlanMembershipKey(20), members()
                                              .vrfBitsIs(2)
                                              .aclIdIs(0, 3)
                                              .aclEnableIs(0, 1)
                                              .aclDefaultPermitIs(0, true)
                                              .natEnableIs(0, 1)
                                              .natIngressProfileIdIs(0, 4));
    auto packet = plain();
    packet.vlan = 20;
    auto const text = textOf(packet);
    EXPECT_EQ(
        stageText(text, "VLAN"),
        "VLAN             port 1 is a member of VLAN 20, which gives it VRF 2, ACL 3, NAT profile 4\n"
        "    ingress/vlan[0]/vlans, row 20: VLAN 20, port 1 -> member, VRF 2, unicast route, ACL 3, ACL "
        "enable 1, default permit, NAT 4\n");
    EXPECT_THAT(text, HasSubstr(" in VLAN 20 and VRF 2, "));
    EXPECT_THAT(text, HasSubstr("/table0/pipeline0: ACL 3, "));
    EXPECT_THAT(text,
                HasSubstr("/natMatch: source 10.0.0.5:8080, destination 198.51.100.7:40000, profile 4 "));
    EXPECT_THAT(text, HasSubstr(": VRF 2, destination 198.51.100.7 -> "));
    EXPECT_EQ(portsOf(packet), std::vector<U32>{30});

    packet.vrf = 1;
    packet.aclId = 6;
    packet.natProfile = 7;
    EXPECT_EQ(stageOf(wayOf(packet), "VLAN").decision, "port 1 is a member of VLAN 20");
    EXPECT_EQ(wayOf(packet).vrf, 1);
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped) << "VRF 1 has no route";
    EXPECT_THAT(textOf(packet), HasSubstr("/table0/pipeline0: ACL 6, "));
    EXPECT_THAT(textOf(packet), HasSubstr(", profile 7 -> no row"));
}

TEST_F(Layer2WayTest, AVlansAclThatIsNotEnabledIsNotAskedAndOneWithoutPermitDeniesTheRest) {
    auto const vlans = started(vlanMembershipTableFactory("vlans"));
    routeTo9();
    auto result = members().vrfBitsIs(2).aclIdIs(0, 3).aclDefaultPermitIs(0, false);
    vlans->entryIs(VlanMembershipKey(20), result);
    auto packet = plain();
    packet.vlan = 20;
    EXPECT_THAT(stageOf(wayOf(packet), "ACL").decision, HasSubstr("no ACL is named"));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::forwarded);
    vlans->entryIs(VlanMembershipKey(20), result.aclEnableIs(0, 1));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped);
    EXPECT_EQ(stageOf(wayOf(packet), "ACL").decision, "no rule applies; the VLAN's ACL denies all else");
    rules(0).entryIs(NerioSwitch::AclHashKey().aclIdIs(3).combinationIs(3).secondPrefixIs(
                         NerioTest::prefixOf({198, 51, 100, 0}, 24)),
                     NerioTest::resultOf(ruleOf(9, true, 5)));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::forwarded);
    packet.aclId = 4;
    EXPECT_EQ(wayOf(packet).fate, PacketFate::forwarded) << "that ACL is not the VLAN's";
}

TEST_F(Layer2WayTest, AnIdOfOlderRowsIsNoNatProfile) {
    nat.profile->vlanRegVer = 6;
    auto const vlans = started(vlanMembershipTableFactory("vlans"));
    vlans->entryIs(VlanMembershipKey(20), members().natEnableIs(0, 1).natIdIs(0, 5));
    auto packet = plain();
    packet.vlan = 20;
    auto const text = textOf(packet);
    EXPECT_THAT(stageText(text, "VLAN"), HasSubstr("which gives it VRF 0\n"));
    EXPECT_THAT(stageText(text, "VLAN"), HasSubstr(", NAT 5\n"));
    EXPECT_THAT(text, HasSubstr(", profile 0 -> no row"));
}

TEST_F(Layer2WayTest, APacketForAStationStaysInItsVlan) {
    auto const macs = started(macVlanTableFactory("macs"));
    macs->entryIs(
        MacVlanKey(7),
        MacVlanResult().macVlanIs({20, Lanvo::EthAddr(station)}).ingressPortMaskIs(1u << 1 | 1u << 4));
    auto const packet = framed(station);
    auto const text = textOf(packet);
    EXPECT_EQ(
        stageText(text, "MAC address"),
        "MAC address      the address leads to port 4\n"
        "    ingress/processor_l2[0]/macVlans, row 7: VLAN 20, address 00:1c:73:a1:b2:c3 -> ports 1 4\n")
        << "not back to where it came from";
    EXPECT_EQ(stageText(text, "route"), "");
    EXPECT_EQ(stageText(text, "NAT match"), "");
    EXPECT_EQ(stageText(text, "L3 LAG"), "");
    EXPECT_THAT(text, HasSubstr("\n    leaves by port 4: TCP 10.0.0.5:8080 to 198.51.100.7:40000, "));
    macs->entryIs(
        MacVlanKey(7),
        MacVlanResult().macVlanIs({20, Lanvo::EthAddr(station)}).ingressPortMaskIs(IngressPortMask::cpu));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::toCpu);
    macs->entryIs(MacVlanKey(7),
                  MacVlanResult().macVlanIs({20, Lanvo::EthAddr(station)}).ingressPortMaskIs(1u << 1));
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped);
    EXPECT_EQ(wayOf(packet).stages.back().decision, "the address leads to no port");
}

TEST_F(Layer2WayTest, APacketForTheRouterIsRouted) {
    auto const macs = started(macVlanTableFactory("macs"));
    routeTo9();
    auto packet = framed(station);
    packet.vrf = 2;
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped) << "nobody wrote its address or a flood set";
    macs->entryIs(MacVlanKey(7), MacVlanResult().macVlanIs({20, Lanvo::EthAddr(station)}).ipRouteIs(true));
    EXPECT_EQ(
        stageText(textOf(packet), "MAC address"),
        "MAC address      the router's address\n"
        "    ingress/processor_l2[0]/macVlans, row 7: VLAN 20, address 00:1c:73:a1:b2:c3 -> no ports, IP "
        "route\n");
    EXPECT_EQ(portsOf(packet), std::vector<U32>{30});
}

TEST_F(Layer2WayTest, UnknownAddressesAreFlooded) {
    auto const floods = started(floodSetTableFactory("floods"));
    auto const vlans = started(vlanMembershipTableFactory("vlans"));
    floods->entryIs(FloodSetEntry(20, FloodSetResult().uucPortMaskIs(0b10010).umcPortMaskIs(0b100010)));
    EXPECT_EQ(stageText(textOf(framed(station)), "MAC address"),
              "MAC address      unknown; flooding leads to port 4\n"
              "    ingress/processor_l2[0]/macVlans: VLAN 20, address 00:1c:73:a1:b2:c3 -> no row\n"
              "    ingress/vlan[0]/floodSets, row 20: VLAN 20, traffic unicast -> ports 1 4\n");
    EXPECT_EQ(portsOf(framed(group)), std::vector<U32>{5});
    EXPECT_EQ(portsOf(framed(everyone)), std::vector<U32>{5});
    auto const withCpu = [&](VlanMembershipResult const& result) {
        vlans->entryIs(VlanMembershipKey(20), result);
        std::vector<bool> toCpu;
        for (auto const& address : {station, group, everyone})
            toCpu.push_back(portsOf(framed(address)).back() == 52);
        return toCpu;
    };
    EXPECT_EQ(withCpu(members()), (std::vector<bool>{false, false, false}));
    EXPECT_EQ(withCpu(members().unknownDaToCpuIs(true)), (std::vector<bool>{true, false, false}));
    EXPECT_EQ(withCpu(members().unknownMulticastToCpuIs(true)), (std::vector<bool>{false, true, false}));
    EXPECT_EQ(withCpu(members().broadcastToCpuIs(true)), (std::vector<bool>{false, false, true}));
}

/** Ports 3 and 6 are a LAG, of which port 3 takes the even buckets. */
class LagWayTest : public Layer2WayTest {
protected:
    void lagOfPorts() {
        auto const hash = started(lagHashControlTableFactory("hash"));
        hash->entryIs(LagHashControlKey(ChipPortId(1)),
                      LagHashControlResult().useSipAndDipIs(true).useSportAndDportIs(true));
        auto const buckets = started(lagLookUpTableFactory("buckets"));
        buckets->entryIs(LagLookUpKey(ChipPortId(3)), LagLookUpResult(0x55555555));
        buckets->entryIs(LagLookUpKey(ChipPortId(6)), LagLookUpResult(0xAAAAAAAA));
    }
    U32 bucketOf(ArrivingPacket const& packet) {
        auto const headers = Chip::headersOf(packet.bytes);
        return LagLookup(*nat.chip, *nat.profile)
            .bucket(packet.port, {.source = headers.source,
                                  .destination = headers.destination,
                                  .sourcePort = headers.transport->sourcePort,
                                  .destinationPort = headers.transport->destinationPort});
    }
};

TEST_F(LagWayTest, AHashPicksThePortOfALag) {
    routeIs(0, 0xC6336400, 24, 9);
    lagIs(9, 1u << 3 | 1u << 6);
    EXPECT_EQ(portsOf(plain()), std::vector<U32>{3}) << "without a LAG it is the first one";
    lagOfPorts();
    std::set<U32> taken;
    for (U16 source = 1; source <= 40; ++source) {
        auto packet = plain();
        packet.bytes = bytesOf(IpProtocol::tcp, {inside.address, source}, peer);
        U32 const port = bucketOf(packet) % 2 == 0 ? 3 : 6;
        ASSERT_EQ(portsOf(packet), std::vector<U32>{port});
        taken.insert(port);
    }
    EXPECT_EQ(taken.size(), 2u);
    U32 const bucket = bucketOf(plain());
    std::vector<U32> even;
    std::vector<U32> odd;
    for (U32 number = 0; number < 32; number += 2) {
        even.push_back(number);
        odd.push_back(number + 1);
    }
    auto const rows = [&](U32 port) {
        auto const row = LagLookup(*nat.chip, *nat.profile).bucketRow(1, port);
        return fmt::format("{}, row {}", row.memory.description().name, row.number);
    };
    EXPECT_EQ(stageText(textOf(plain()), "LAG member"),
              fmt::format("LAG member       bucket {} leaves by port {}\n"
                          "    pipeline[0]/port[1]/lhash_ctl: port 1 -> bucket {}\n"
                          "    {}: port 3 -> buckets {}\n"
                          "    {}: port 6 -> buckets {}\n",
                          bucket, bucket % 2 == 0 ? 3 : 6, bucket, rows(3), fmt::join(even, " "), rows(6),
                          fmt::join(odd, " ")));
    auto told = plain();
    told.egressPort = 6;
    EXPECT_EQ(portsOf(told), std::vector<U32>{6});
    EXPECT_EQ(stageText(textOf(told), "LAG member"), "");
}

TEST_F(LagWayTest, OneCopyOfAFloodedPacketLeavesByALagAndNoneByTheLagItCameOn) {
    lagOfPorts();
    auto const floods = started(floodSetTableFactory("floods"));
    floods->entryIs(FloodSetEntry(20, FloodSetResult().uucPortMaskIs(0b11011010)));
    U32 const picked = bucketOf(framed(station)) % 2 == 0 ? 3 : 6;
    std::vector<U32> expected{picked, 4, 7};
    std::ranges::sort(expected);
    EXPECT_EQ(portsOf(framed(station)), expected);
    auto const members = started(lagMembershipTableFactory("members"));
    members->entryIs(LagMembershipKey(ChipPortId(1)),
                     LagMembershipResult(5).portIs(1, true).portIs(7, true).portIs(4, true));
    EXPECT_EQ(portsOf(framed(station)), std::vector<U32>{picked});
    floods->entryIs(FloodSetEntry(20, FloodSetResult().uucPortMaskIs(1u << 7)));
    EXPECT_EQ(wayOf(framed(station)).fate, PacketFate::dropped);
    EXPECT_THAT(wayOf(framed(station)).stages.back().decision, HasSubstr(" leaves by no port"));
}

TEST_F(Layer2WayTest, WhatAPortReceivesIsCopiedToItsMirrorsWhateverBecomesOfIt) {
    auto const mirrors = started(rxPortMirrorTableFactory("mirrors"));
    auto const packet = plain();
    EXPECT_EQ(stageText(textOf(packet), "receive mirror"), "");
    mirrors->entryIs(RxPortMirrorKey(ChipPortId(1)), RxPortMirrorResult(U64{1} << 40 | U64{1} << 52));
    auto const way = wayOf(packet);
    EXPECT_EQ(way.fate, PacketFate::dropped);
    ASSERT_EQ(way.mirrored.size(), 2u);
    EXPECT_EQ(way.mirrored[0].bytes, packet.bytes);
    auto const text = textOf(packet);
    EXPECT_EQ(stageText(text, "receive mirror"),
              "receive mirror   copied to port 40 and the CPU\n"
              "    ingress/processor_l2_mirror_reg[0]: port 1 -> ports 40 52\n");
    EXPECT_THAT(text, HasSubstr("\n    is mirrored to port 40: TCP 10.0.0.5:8080 to "));
    EXPECT_THAT(text, HasSubstr("\n    is mirrored to the CPU: TCP 10.0.0.5:8080 to "));
    auto const json = jsonOf(packet)["mirrored"];
    EXPECT_EQ(json[0]["port"], 40);
    EXPECT_EQ(json[1]["cpu"], true);
}

TEST_F(Layer2WayTest, TheLimitOfAPortIsShownForTheKindOfTraffic) {
    auto const storm = started(stormControlTableFactory());
    auto const limitIs = [&](StormControlClass kind, U32 increment, U32 scale) {
        storm->entryIs(StormControlEntryKey(ChipPortId(1), kind),
                       StormControlEntry().enabledIs(true).incrementIs(increment).scaleFactorIs(scale));
    };
    storm->entryIs(StormControlEntryKey(ChipPortId(1), StormControlClass::stormControlInterval),
                   StormControlEntry().intervalIs(31250));
    EXPECT_EQ(stageText(textOf(plain()), "storm control"), "") << "nothing is limited";
    limitIs(StormControlClass::stormControlAllUcast, 5, 0);
    limitIs(StormControlClass::stormControlMcast, 6, 0);
    limitIs(StormControlClass::stormControlBcast, 7, 1);
    EXPECT_EQ(stageText(textOf(plain()), "storm control"),
              "storm control    port 1 lets 5000 packets of unicast in a second\n"
              "    pipeline[0]/port[1]/unicast_limit: port 1 -> packets a second 5000\n");
    auto stream = plain();
    stream.bytes = bytesOf(IpProtocol::udp, inside, {ip(239, 1, 1, 1), 5000});
    auto const decision = [&](ArrivingPacket const& packet) {
        return stageOf(wayOf(packet), "storm control").decision;
    };
    EXPECT_EQ(decision(stream), "port 1 lets 6000 packets of multicast in a second");
    EXPECT_EQ(decision(framed(group)), "port 1 lets 6000 packets of multicast in a second");
    EXPECT_EQ(decision(framed(station)), "port 1 lets 5000 packets of unicast in a second");
    EXPECT_EQ(decision(framed(everyone)), "port 1 lets 7000 bits of broadcast in a second");
    auto other = plain();
    other.port = 2;
    EXPECT_THAT(textOf(other), Not(HasSubstr("storm control")));
}

}  // namespace
