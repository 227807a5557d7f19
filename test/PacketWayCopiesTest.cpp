// Packets on their way through the chip: the rules of ACLs, and the copies of multicast packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PacketWayFixture.h"

namespace {

using namespace NerioSwitchTable;
using Chip::ArrivingPacket;
using Chip::IpProtocol;
using Chip::PacketFate;
using Chip::PacketWay;
using NerioSwitch::IngressPortMask;
using NerioSwitch::MrouteKey;
using NerioTest::bytesOf;
using NerioTest::checksumsAreRight;
using NerioTest::cold;
using NerioTest::inside;
using NerioTest::ip;
using NerioTest::outside;
using NerioTest::PacketWayTest;
using NerioTest::peer;
using NerioTest::placeText;
using NerioTest::ruleOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using End = NerioTest::Ipv4Packet::End;

class AclWayTest : public PacketWayTest {
protected:
    static constexpr U8 webPort = 80;

    AclWayTest() { nat.profile->hwApi = {6, 2}; }
    static ArrivingPacket toServer() {
        return {.port = 1,
                .aclId = 3,
                .aclProtocol = 1,
                .bytes = bytesOf(IpProtocol::tcp, {ip(10, 30, 0, 9), 4000}, {ip(10, 20, 0, 53), webPort})};
    }
    /** A rule of both addresses that looks at the destination's port. */
    static NerioSwitch::AclHashKey pairKey(Lanvo::Prefix const& source, Lanvo::Prefix const& destination) {
        return NerioSwitch::AclHashKey()
            .aclIdIs(3)
            .combinationIs(13)
            .firstPrefixIs(source)
            .secondPrefixIs(destination)
            .protocolIs(1)
            .portIs(webPort);
    }
    static Lanvo::Prefix clients() { return NerioTest::prefixOf({10, 30, 0, 0}, 16); }
    static Lanvo::Prefix server() { return NerioTest::prefixOf({10, 20, 0, 53}, 32); }
};

TEST_F(AclWayTest, ADeniedPacketGoesNoFurther) {
    auto const key = pairKey(clients(), server());
    rules(2).entryIs(key, NerioTest::resultOf(ruleOf(12, false, 143)));
    auto const way = wayOf(toServer());
    EXPECT_EQ(way.fate, PacketFate::dropped);
    EXPECT_TRUE(way.copies.empty());
    EXPECT_THAT(namesOf(way), ElementsAre("ingress port", "ACL"));
    auto const text = textOf(toServer());
    EXPECT_EQ(
        stageText(text, "ACL"),
        fmt::format("ACL              denied by a rule of priority 12, counter 143\n"
                    "    ingress/processor_acl[0]/table2/pipeline0, {}: combination 13, ACL 3, "
                    "source 10.30.0.0/16, destination 10.20.0.53/32, protocol 1, destination port 80 -> "
                    "priority 12, action deny, counter 143\n",
                    placeText(rules(2).createHashEntry(key, true)->hwIndex(), 4096)));
    EXPECT_THAT(text, HasSubstr("\ndropped in stage ACL\n    came by port 1: TCP 10.30.0.9:4000 to "));
}

TEST_F(AclWayTest, TheRuleOfTheLowestPriorityNumberDecides) {
    rules(2).entryIs(pairKey(clients(), server()), NerioTest::resultOf(ruleOf(12, false, 1)));
    rules(2).entryIs(pairKey(NerioTest::prefixOf({10, 0, 0, 0}, 8), server()),
                     NerioTest::resultOf(ruleOf(11, true, 2)));
    rules(0).entryIs(NerioSwitch::AclHashKey().aclIdIs(3).combinationIs(3).secondPrefixIs(
                         NerioTest::prefixOf({10, 0, 0, 0}, 8)),
                     NerioTest::resultOf(ruleOf(20, false, 3)));
    auto way = wayOf(toServer());
    EXPECT_EQ(stageOf(way, "ACL").lookups.size(), 3u) << "it hits all of them";
    EXPECT_EQ(stageOf(way, "ACL").decision, "permitted by a rule of priority 11, counter 2");
    rules(1).entryIs(
        NerioSwitch::AclHashKey().aclIdIs(3).combinationIs(10).firstPrefixIs(clients()).protocolIs(1).portIs(
            4000),
        NerioTest::resultOf(ruleOf(5, false, 4)));
    EXPECT_EQ(stageOf(wayOf(toServer()), "ACL").decision, "denied by a rule of priority 5, counter 4");
    EXPECT_THAT(textOf(toServer()), HasSubstr(": combination 10, ACL 3, source 10.30.0.0/16, protocol 1, "
                                              "source port 4000 -> priority 5, "));
    auto udp = toServer();
    udp.aclProtocol = 2;
    EXPECT_EQ(stageOf(wayOf(udp), "ACL").decision, "denied by a rule of priority 20, counter 3")
        << "the one that does not look at the protocol";
    auto other = toServer();
    other.aclId = 4;
    EXPECT_EQ(stageOf(wayOf(other), "ACL").decision, "no rule applies");
    EXPECT_EQ(stageText(textOf(other), "ACL"),
              "ACL              no rule applies\n"
              "    ingress/processor_acl[0]/table0/pipeline0: ACL 4, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80, protocol 1 -> no row\n"
              "    ingress/processor_acl[0]/table1/pipeline0: ACL 4, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80, protocol 1 -> no row\n"
              "    ingress/processor_acl[0]/table2/pipeline0: ACL 4, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80, protocol 1 -> no row\n"
              "    ingress/processor_acl[0]/table5/pipeline0: VRF 0, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80 -> no row\n");
    auto ofOtherPipeline = toServer();
    ofOtherPipeline.port = 30;
    EXPECT_EQ(stageOf(wayOf(ofOtherPipeline), "ACL").decision, "no rule applies");
}

TEST_F(AclWayTest, RulesOfAVrfAreAskedWithoutAnAcl) {
    rules(5).entryIs(
        NerioSwitch::AclHashKey().combinationIs(15).vrfIdIs(2).firstPrefixIs(clients()).secondPrefixIs(
            server()),
        NerioTest::resultOf(ruleOf(15)));
    auto packet = toServer();
    packet.aclId.reset();
    packet.vrf = 2;
    auto const row = stageOf(wayOf(packet), "ACL").lookups.at(0).row;
    auto const wayNumber = stageOf(wayOf(packet), "ACL").lookups.at(0).way;
    ASSERT_TRUE(row && wayNumber);
    EXPECT_EQ(
        stageText(textOf(packet), "ACL"),
        fmt::format(
            "ACL              permitted by a rule of priority 15, counter 0; no ACL is named, so that only "
            "rules of the VRF were asked\n"
            "    ingress/processor_acl[0]/table5/pipeline0, way {}, row {}: combination 15, VRF 2, "
            "source 10.30.0.0/16, destination 10.20.0.53/32 -> priority 15, action permit, counter 0\n",
            *wayNumber, *row))
        << "rows of version 6 have no flag of these rules, and it counts as set";
    packet.aclKeyFlag = true;
    EXPECT_THAT(stageOf(wayOf(packet), "ACL").decision, HasSubstr("no rule applies"));
}

TEST_F(AclWayTest, ARuleOfAPortRangeDecidesWhereTheRangeHoldsThePort) {
    auto const key = pairKey(clients(), server()).portIs(0).combinationIs(12).rangeIdIs(5);
    rules(2).entryIs(key, NerioTest::resultOf(ruleOf(1, false, 9, 5)));
    auto const way = wayOf(toServer());
    EXPECT_EQ(stageOf(way, "ACL").decision,
              "no rule applies; rules whose port range does not hold the port are passed over");
    auto const ranges = aclPortRangeTableFactory("ranges", 0);
    nat.framework->tableIs(ranges, cold);
    ranges->entryIs(AclPortRangeKey::fromAclIdAndRow(3, 1), AclPortRangeResult(1).addRange({5, 80, 81}));
    EXPECT_EQ(stageText(textOf(toServer()), "ACL"),
              fmt::format("ACL              denied by a rule of priority 1, counter 9\n"
                          "    ingress/processor_acl[0]/table2/pipeline0, {}: combination 12, ACL 3, "
                          "source 10.30.0.0/16, destination 10.20.0.53/32, protocol 1 -> "
                          "priority 1, action deny, counter 9, port range 5\n"
                          "    ingress/processor_acl[0]/portRanges/pipeline0, row 7: ACL 3, port range 5, "
                          "port 80 -> port is within\n",
                          placeText(rules(2).createHashEntry(key, true)->hwIndex(), 4096)));
    auto packet = toServer();
    packet.bytes = bytesOf(IpProtocol::tcp, {ip(10, 30, 0, 9), 80}, {ip(10, 20, 0, 53), 82});
    EXPECT_EQ(stageOf(wayOf(packet), "ACL").decision,
              "no rule applies; rules whose port range does not hold the port are passed over");
    EXPECT_THAT(textOf(packet), HasSubstr(", port range 5, port 82 -> port is outside\n"));
    packet.bytes = bytesOf(IpProtocol::icmp, {ip(10, 30, 0, 9), 0}, {ip(10, 20, 0, 53), 0});
    EXPECT_THAT(stageOf(wayOf(packet), "ACL").decision, HasSubstr("no rule applies"))
        << "a packet without ports is in no range";
}

TEST_F(AclWayTest, APacketsProtocolIsTheOneOfTheChipUnlessItIsTold) {
    rules(2).entryIs(pairKey(clients(), server()), NerioTest::resultOf(ruleOf(12, false, 143)));
    auto packet = toServer();
    packet.aclProtocol.reset();
    EXPECT_EQ(stageText(textOf(packet), "ACL"),
              "ACL              no rule applies\n"
              "    ingress/processor_acl[0]/protocols/pipeline0, row 6: IP protocol 6 -> protocol 0\n"
              "    ingress/processor_acl[0]/table0/pipeline0: ACL 3, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80, protocol 0 -> no row\n"
              "    ingress/processor_acl[0]/table1/pipeline0: ACL 3, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80, protocol 0 -> no row\n"
              "    ingress/processor_acl[0]/table2/pipeline0: ACL 3, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80, protocol 0 -> no row\n"
              "    ingress/processor_acl[0]/table5/pipeline0: VRF 0, source 10.30.0.9:4000, "
              "destination 10.20.0.53:80 -> no row\n")
        << "nobody gave it a number";
    auto const protocols = protocolRemapTableFactory("protocols", 0);
    nat.framework->tableIs(protocols, cold);
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(1));
    EXPECT_EQ(stageOf(wayOf(packet), "ACL").decision, "denied by a rule of priority 12, counter 143");
    EXPECT_THAT(textOf(packet), HasSubstr("/protocols/pipeline0, row 6: IP protocol 6 -> protocol 1\n"));
    packet.aclProtocol = 2;
    EXPECT_EQ(stageOf(wayOf(packet), "ACL").decision, "no rule applies");
    EXPECT_THAT(textOf(packet), Not(HasSubstr("/protocols/")));
}

/** Rules and packets of few addresses, ports and protocols, so that they meet. */
class RandomRules {
public:
    NerioSwitch::AclHashKey key() {
        NerioSwitch::AclHashKey key;
        U32 const combination = below(18);
        key.combinationIs(combination);
        if (combination >= 7) key.firstPrefixIs(prefix());
        if (combination < 7 || combination >= 11) key.secondPrefixIs(prefix());
        if (combination >= 15) return key.vrfIdIs(below(4)).keyFlagIs(below(2) != 0);
        key.aclIdIs(static_cast<U8>(below(2)));
        if (combination % 4 != 3) key.protocolIs(1 + below(2));
        bool const hasPort = combination % 4 == 1 || combination % 4 == 2;
        if (hasPort) key.portIs(static_cast<U16>(below(3)));
        if (hasPort && key.port() == 0) key.portIsZeroIs(below(2) != 0);
        return key;
    }
    ArrivingPacket packet() {
        auto const end = [&] {
            return End{ip(1 + below(2), below(2), below(2), below(4)), static_cast<U16>(below(3))};
        };
        auto const source = end();
        auto const destination = end();
        return {.vrf = static_cast<U8>(below(4)),
                .aclId = static_cast<U8>(below(2)),
                .aclProtocol = static_cast<U8>(1 + below(2)),
                .aclKeyFlag = below(2) != 0,
                .bytes = bytesOf(IpProtocol::udp, source, destination)};
    }
    /** Whether the packet is one of the rule's. */
    static bool matches(NerioSwitch::AclHashKey const& key, ArrivingPacket const& packet) {
        auto const headers = Chip::headersOf(packet.bytes);
        U32 const combination = key.combination().value();
        bool const addresses =
            covers(key.firstPrefix(), headers.source) && covers(key.secondPrefix(), headers.destination);
        if (combination >= 15)
            return addresses && key.vrfId().value() == packet.vrf && key.keyFlag() == packet.aclKeyFlag;
        bool const protocol = combination % 4 == 3 || key.protocol().value() == packet.aclProtocol;
        bool const anyPort = key.port() == 0 && !key.portIsZero();
        U16 const port =
            combination % 4 == 1 ? headers.transport->destinationPort : headers.transport->sourcePort;
        return addresses && protocol && key.aclId() == *packet.aclId && (anyPort || key.port() == port);
    }

private:
    U32 below(U32 end) { return static_cast<U32>(random_() % end); }
    Lanvo::Prefix prefix() {
        U32 const length = below(5) == 0 ? 0 : 8 + below(25);
        U32 const address = (1 + below(2)) << 24 | below(2) << 16 | below(2) << 8 | below(4);
        auto const bits = static_cast<U8>(length);
        return {Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(bits)), bits};
    }
    static bool covers(Lanvo::Prefix const& prefix, U32 address) {
        return (address & Lanvo::Prefix::mask(prefix.len())) == prefix.address().hostOrder();
    }

    std::mt19937 random_{5};
};

TEST_F(AclWayTest, APacketHitsTheRulesThatItIsOfAndNoOthers) {
    RandomRules random;
    std::set<NerioSwitch::AclHashKey> keys;
    for (int i = 0; i < 1500; ++i) {
        auto const key = random.key();
        U32 const combination = key.combination().value();
        U8 const physTable = combination < 7 ? 0 : combination < 11 ? 1 : combination < 15 ? 2 : 5;
        bool const empty =
            physTable == 5 && key.firstPrefix() == Lanvo::Prefix() && key.secondPrefix() == Lanvo::Prefix();
        if (empty) continue;
        rules(physTable).entryIs(key, NerioTest::resultOf(ruleOf(1, true)));
        keys.insert(key);
    }
    std::size_t hits = 0;
    for (int i = 0; i < 60; ++i) {
        auto const packet = random.packet();
        auto const expected = static_cast<std::size_t>(
            std::ranges::count_if(keys, [&](auto const& key) { return RandomRules::matches(key, packet); }));
        auto const lookups = stageOf(wayOf(packet), "ACL").lookups;
        auto const found = static_cast<std::size_t>(
            std::ranges::count_if(lookups, [](auto const& lookup) { return lookup.result.has_value(); }));
        ASSERT_EQ(found, expected);
        hits += found;
    }
    EXPECT_GT(hits, 600u) << "the rules and packets meet";
}

/** Below version 4 a row has rules of two chains; below version 3 a key tells no lengths. */
TEST(AclChains, BothChainsDecideAndKeysWithoutLengthsAreOfWholeAddresses) {
    for (U16 const version : {U16{2}, U16{3}}) {
        NerioTest::NatSwitch nat({version, 0});
        auto const table = aclHashTableFactory("rules", 0, 0);
        nat.framework->tableIs(table, cold);
        auto const key = NerioSwitch::AclHashKey().aclIdIs(3).combinationIs(3);
        ArrivingPacket const packet{
            .aclId = 3, .aclProtocol = 1, .bytes = bytesOf(IpProtocol::tcp, inside, {ip(10, 20, 0, 3), 1})};
        auto const decision = [&] {
            return Chip::packetWay(*nat.chip, *nat.profile, packet).stages.at(3).decision;
        };
        table->entryIs(NerioSwitch::AclHashKey(key).secondPrefixIs(NerioTest::prefixOf({10, 20, 0, 2}, 31)),
                       NerioTest::resultOf(ruleOf(9, true, 5), ruleOf(3, false)));
        EXPECT_EQ(decision(), version == 2 ? "no rule applies"
                                           : "permitted by a rule of priority 9, counter 5; "
                                             "denied by a rule of priority 3, in the second chain");
        table->entryIs(NerioSwitch::AclHashKey(key).secondPrefixIs(NerioTest::prefixOf({10, 20, 0, 3}, 32)),
                       NerioTest::resultOf(ruleOf(8, true, 6), ruleOf(2, true)));
        EXPECT_EQ(decision(),
                  "permitted by a rule of priority 8, counter 6; "
                  "permitted by a rule of priority 2, in the second chain");
    }
}

/** A group and its sources. */
class MulticastWayTest : public PacketWayTest {
protected:
    static constexpr U32 vlan = 5;

    static MrouteKey route() { return MrouteKey({inside.address, 32}, {ip(239, 1, 1, 1), 32}, vlan); }
    static ArrivingPacket stream() {
        return {.port = 1, .vlan = vlan, .bytes = bytesOf(IpProtocol::udp, inside, {ip(239, 1, 1, 1), 5000})};
    }
    static StarGResult toGroup(U64 mask) { return StarGResult().vlanGroupIdIs(4).portMaskIs(mask); }
    static SGResult toSource(U64 mask) {
        return SGResult().dataIs(SGResult::Multicast().vlanGroupIdIs(3).portMaskIs(mask));
    }
    static std::vector<U32> portsOf(PacketWay const& way) {
        std::vector<U32> ports;
        for (auto const& copy : way.copies)
            ports.push_back(copy.port);
        return ports;
    }
};

TEST_F(MulticastWayTest, ARouteOfTheSourceComesFirstAndThenOneOfTheGroup) {
    groups().entryIs(route(), toGroup(1u << 2 | IngressPortMask::cpu));
    auto const groupRow = groups().hashItem(route())->hwIndex();
    auto const text = textOf(stream());
    EXPECT_EQ(
        stageText(text, "multicast route"),
        fmt::format("multicast route  (*, 239.1.1.1) leads to port 2 and the CPU in VLAN group 4\n"
                    "    ingress/processor_l3[0]/sg: source 10.0.0.5, group 239.1.1.1, VLAN 5 -> no row\n"
                    "    ingress/processor_l3[0]/lpm29, {}: group 239.1.1.1, VLAN 5 -> ports 2 52, "
                    "VLAN group 4\n",
                    placeText(groupRow, 4096)));
    EXPECT_EQ(stageText(text, "VLAN group"),
              "VLAN group       passed over: it is not known where pipes of more than two ports have their "
              "groups\n");
    EXPECT_EQ(stageText(text, "egress port"),
              "egress port      leaves by port 2 and the CPU\n"
              "    egress/port[2]/vlan_cfg: port 2 -> mode trunk\n");
    EXPECT_EQ(portsOf(wayOf(stream())), (std::vector<U32>{2, 52}));
    EXPECT_EQ(wayOf(stream()).fate, PacketFate::forwarded);
    EXPECT_THAT(text, HasSubstr("\n    leaves by port 2: UDP 10.0.0.5:8080 to 239.1.1.1:5000, "));
    EXPECT_THAT(text, HasSubstr("\n    goes to the CPU: UDP 10.0.0.5:8080 to 239.1.1.1:5000, "));

    auto const key = SGKey::multicastKey(route());
    pairs().entryIs(key, toSource(1u << 4 | 1u << 5));
    auto const way = wayOf(stream());
    EXPECT_EQ(portsOf(way), (std::vector<U32>{4, 5}));
    EXPECT_THAT(namesOf(way), ElementsAre("ingress port", "ACL", "NAT match", "multicast route", "VLAN group",
                                          "egress port"));
    EXPECT_EQ(stageText(textOf(stream()), "multicast route"),
              fmt::format("multicast route  (10.0.0.5, 239.1.1.1) leads to ports 4, 5 in VLAN group 3\n"
                          "    ingress/processor_l3[0]/sg, {}: source 10.0.0.5, group 239.1.1.1, VLAN 5 -> "
                          "ports 4 5, VLAN group 3\n",
                          placeText(pairs().hashItem(key)->hwIndex(), 8192)));
    auto other = stream();
    other.bytes = bytesOf(IpProtocol::udp, peer, {ip(239, 1, 1, 1), 5000});
    EXPECT_EQ(portsOf(wayOf(other)), (std::vector<U32>{2, 52})) << "of another source";
    other.vlan = 6;
    EXPECT_EQ(wayOf(other).fate, PacketFate::dropped) << "in another VLAN";
}

TEST_F(MulticastWayTest, ARouteToTheCpuAloneAndOneToNoPort) {
    groups().entryIs(route(), toGroup(IngressPortMask::cpu));
    EXPECT_EQ(wayOf(stream()).fate, PacketFate::toCpu);
    groups().entryIs(route(), toGroup(0));
    auto const way = wayOf(stream());
    EXPECT_EQ(way.fate, PacketFate::dropped);
    EXPECT_EQ(way.stages.back().decision, "(*, 239.1.1.1) leads to no port in VLAN group 4");
}

TEST_F(MulticastWayTest, WithoutARouteThePacketIsFlooded) {
    auto const floods = l3FloodBitmapTableFactory("floods", 8);
    auto const arp = l3FloodArpTableFactory("arp");
    nat.framework->tableIs(floods, cold);
    nat.framework->tableIs(arp, cold);
    floods->entryIs(9, L3FloodBitmapResult().portMaskIs(1u << 2 | 1u << 27));
    arp->entryIs(9, L3FloodArpResult()
                        .ethAddrIs(Lanvo::EthAddr(std::array<U8, 6>{0, 0x1C, 0x73, 0xA1, 0xB2, 0xC3}))
                        .vlanIdIs(12));
    auto packet = stream();
    packet.floodNexthop = 9;
    auto const text = textOf(packet);
    EXPECT_EQ(stageText(text, "multicast route"),
              "multicast route  no route of the group\n"
              "    ingress/processor_l3[0]/sg: source 10.0.0.5, group 239.1.1.1, VLAN 5 -> no row\n"
              "    ingress/processor_l3[0]/lpm29: group 239.1.1.1, VLAN 5 -> no row\n");
    EXPECT_EQ(stageText(text, "flooding"),
              "flooding         next hop 9 floods ports 2, 27\n"
              "    ingress/processor_l3[0]/l3Floods, row 9: next hop 9 -> ports 2 27\n"
              "    egress/processor[0]/lines, way 0, row 146: next hop 9, port 2 -> "
              "address 00:1c:73:a1:b2:c3, VLAN 12\n"
              "    egress/processor[1]/lines, way 1, row 146: next hop 9, port 27 -> "
              "address 00:1c:73:a1:b2:c3, VLAN 12\n");
    EXPECT_THAT(text,
                HasSubstr("\n    leaves by port 27 in VLAN 12 for 00:1c:73:a1:b2:c3: UDP 10.0.0.5:8080 to "));
    auto const copy = jsonOf(packet)["copies"][1];
    EXPECT_EQ(copy["port"], 27);
    EXPECT_EQ(copy["cpu"], false);
    EXPECT_EQ(copy["vlan"], 12);
    EXPECT_EQ(copy["ethAddr"], "00:1c:73:a1:b2:c3");
    packet.floodNexthop = 10;
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped);
    EXPECT_EQ(wayOf(packet).stages.back().decision, "next hop 10 floods no port");
    packet.floodNexthop = 9;
    nat.chip->write(nat.chip->address("ingress/processor_l3[0]/hash_data0"), 1);
    nat.chip->write(nat.chip->address("ingress/processor_l3[0]/hash_data1"), 0);
    nat.chip->write(nat.chip->address("ingress/processor_l3[0]/hash_ctl"), 9u | 1u << 17 | 10u << 18);
    EXPECT_EQ(wayOf(packet).fate, PacketFate::dropped) << "a row of wrong parity";
    EXPECT_THAT(textOf(packet), HasSubstr("    ingress/processor_l3[0]/l3Floods: next hop 9 -> no row\n"));
}

/** A chip with two ports in each egress pipe, whose groups of VLANs are known. */
class VlanGroupWayTest : public testing::Test {
protected:
    VlanGroupWayTest() {
        std::vector<NerioSwitch::PipeRangeInfo> pipes;
        for (U16 pipe = 0; pipe < 26; ++pipe)
            pipes.push_back({pipe, static_cast<U16>(2 * pipe), static_cast<U16>(2 * pipe + 1)});
        profile->egressPipesAre(pipes);
        profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutEgress].processors = 26;
        chip = Chip::simulatedChip(*profile);
        framework.emplace(profile, chip, NerioSwitchApi::memoryShadowStore());
        framework->tableIs(pairs, cold);
        framework->tableIs(vlans, cold);
    }
    static VlanGroupResult vlansOf(U32 first, U8 count) {
        VlanGroupResult result;
        for (U8 i = 0; i < count; ++i)
            result.groupIs(i, first + i);
        return result.numVlansIs(count);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
    std::optional<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<SGTable> pairs = sGTableFactory("pairs");
    Belmo::Ptr<VlanGroupTable> vlans = vlanGroupTableFactory("vlans");
};

TEST_F(VlanGroupWayTest, ACopyLeavesInEachVlanOfTheGroupAndIsTranslatedAsItsMember) {
    auto const key = SGKey::multicastKey(MrouteKey({inside.address, 32}, {ip(239, 1, 1, 1), 32}, 5));
    auto const route = SGResult::Multicast().vlanGroupIdIs(3).portMaskIs(1u << 4 | 1u << 7 | 1u << 9);
    pairs->entryIs(
        key,
        SGResult().dataIs(route).natTypeIs(SGNatType::sgNatTypeSnat).natSessionIdIs(21).natEnabledIs(true));
    vlans->entryIs({4, 3}, vlansOf(100, 3));
    vlans->entryIs({7, 3}, vlansOf(200, 1));
    auto const rewrites = natRewriteTableFactory("rewrites", 2);
    framework->tableIs(rewrites, cold);
    rewrites->entryIs(NatRewriteKey().natSessionIdIs(21).vlanGroupIdIs(3).vlanGroupMemberIdxIs(1),
                      NatRewriteResult()
                          .validIs(true)
                          .newIpIs(outside.address)
                          .newPortIs(outside.port)
                          .checksumCorrectionIs(Agent::checksumCorrection(inside.address, inside.port,
                                                                          outside.address, outside.port)));
    End const group{ip(239, 1, 1, 1), 5000};
    ArrivingPacket const packet{.port = 1, .vlan = 5, .bytes = bytesOf(IpProtocol::udp, inside, group)};
    auto const way = Chip::packetWay(*chip, *profile, packet);
    std::vector<std::pair<U32, U16>> copies;
    for (auto const& copy : way.copies)
        copies.emplace_back(copy.port, copy.vlan.value_or(0));
    EXPECT_EQ(copies, (std::vector<std::pair<U32, U16>>{{4, 100}, {4, 101}, {4, 102}, {7, 200}}));
    for (auto const& copy : way.copies) {
        bool const translated = copy.vlan == 101;
        EXPECT_EQ(copy.bytes, bytesOf(IpProtocol::udp, translated ? outside : inside, group));
        EXPECT_TRUE(checksumsAreRight(copy.bytes));
    }
    auto const text = Nerio::toText({*profile, packet, way, "under test"});
    EXPECT_THAT(
        text, HasSubstr("(10.0.0.5, 239.1.1.1) leads to ports 4, 7, 9 in VLAN group 3, translated by session "
                        "21\n"));
    EXPECT_THAT(
        text, HasSubstr("\nVLAN group       4 copies\n"
                        "    egress/processor[2]/lines, way 0, row 460: VLAN group 3, port 4 -> "
                        "VLANs 100 101 102\n"
                        "    egress/processor[3]/lines, way 1, row 460: VLAN group 3, port 7 -> VLANs 200\n"
                        "    egress/processor[4]/lines, way 1, row 460: VLAN group 3, port 9 -> no VLANs\n"));
    EXPECT_THAT(text, HasSubstr(": session 21, VLAN group 3, member 1 -> address 192.0.2.1, port 80, "));
    EXPECT_THAT(text, HasSubstr("\n    leaves by port 4 in VLAN 101: UDP 192.0.2.1:80 to 239.1.1.1:5000, "));
    vlans->entryDelAll();
    auto const none = Chip::packetWay(*chip, *profile, packet);
    EXPECT_EQ(none.fate, PacketFate::dropped);
    EXPECT_EQ(none.stages.back().decision, "the group has no VLAN at these ports");
}

}  // namespace
