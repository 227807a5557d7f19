#pragma once

#include <gtest/gtest.h>

#include "AclFixture.h"
#include "Ipv4Packet.h"
#include "LpmFixture.h"
#include "NatSwitch.h"
#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "NerioSwitchTable/NerioTableL3FloodArp.h"
#include "NerioSwitchTable/NerioTableL3FloodBitmap.h"
#include "NerioSwitchTable/NerioTableL3Lag.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"
#include "NerioSwitchTable/NerioTableSG.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "NerioSwitchTable/NerioTableVlanGroup.h"
#include "agent/RouteAgent.h"
#include "chip/PacketWay.h"
#include "nerio/PacketReport.h"

namespace NerioTest {

inline constexpr auto cold = NerioSwitchApi::StartMode::cold;

inline Ipv4Packet::End const inside{ip(10, 0, 0, 5), 8080};
inline Ipv4Packet::End const outside{ip(192, 0, 2, 1), 80};
inline Ipv4Packet::End const peer{ip(198, 51, 100, 7), 40000};

inline std::vector<U8> bytesOf(U8 protocol, Ipv4Packet::End const& source,
                               Ipv4Packet::End const& destination) {
    Chip::Ipv4Headers headers{.source = source.address.hostOrder(),
                              .destination = destination.address.hostOrder(),
                              .protocol = protocol};
    if (protocol != Chip::IpProtocol::icmp) headers.transport = {source.port, destination.port, 0};
    return Chip::ipv4Packet(headers);
}

inline bool checksumsAreRight(std::vector<U8> const& bytes) {
    Ipv4Packet packet(bytes.at(9), {}, {}, {});
    packet.bytes = bytes;
    return packet.checksumsAreRight();
}

/** "way 1, row 5" */
inline std::string placeText(U32 number, U32 rowsPerWay) {
    return fmt::format("way {}, row {}", number / rowsPerWay, number % rowsPerWay);
}

/** A table that comes up when it is asked for. */
template <class Table>
class Lazy {
public:
    template <class Make>
    Table& in(NatSwitch& target, Make const& make) {
        if (!table_) {
            table_ = make();
            target.framework->tableIs(table_, cold);
        }
        return *table_;
    }

private:
    Belmo::Ptr<Table> table_;
};

/** A switch of 52 ports, 26 in each of two pipelines, and tables over its chip. */
class PacketWayTest : public testing::Test {
protected:
    Chip::PacketWay wayOf(Chip::ArrivingPacket const& packet) {
        return Chip::packetWay(*nat.chip, *nat.profile, packet);
    }
    std::string textOf(Chip::ArrivingPacket const& packet) {
        auto const way = wayOf(packet);
        return Nerio::toText({*nat.profile, packet, way, "under test"});
    }
    Agent::Json jsonOf(Chip::ArrivingPacket const& packet) {
        auto const way = wayOf(packet);
        return Nerio::toJson({*nat.profile, packet, way, "under test"});
    }
    /** The lines of a stage in a text. */
    static std::string stageText(std::string const& text, std::string const& stage) {
        auto const begin = text.find(fmt::format("\n{:<16} ", stage));
        if (begin == std::string::npos) return {};
        auto end = text.find('\n', begin + 1);
        while (text.compare(end, 5, "\n    ") == 0)
            end = text.find('\n', end + 1);
        return text.substr(begin + 1, end - begin);
    }
    /** A stage that the packet came through. */
    static Chip::PacketStage const& stageOf(Chip::PacketWay const& way, std::string const& name) {
        auto const stage = std::ranges::find(way.stages, name, &Chip::PacketStage::name);
        if (stage == way.stages.end()) throw std::out_of_range("no stage " + name);
        return *stage;
    }
    /** Their names, without those of a chip that nobody told of VLANs. */
    static std::vector<std::string> namesOf(Chip::PacketWay const& way) {
        std::vector<std::string> names;
        for (auto const& stage : way.stages) {
            bool const passedOver = stage.decision.starts_with("passed over: ");
            if (passedOver && stage.name.ends_with("VLAN")) continue;
            names.push_back(stage.name);
        }
        return names;
    }

    NerioSwitchTable::PortConfigTable& ports() {
        return ports_.in(nat, [] { return NerioSwitchTable::portConfigTableFactory("ports"); });
    }
    NerioSwitchTable::L3LagTable& lags() {
        return lags_.in(nat, [] { return NerioSwitchTable::l3LagTableFactory("lags"); });
    }
    NerioSwitchTable::SGTable& pairs() {
        return pairs_.in(nat, [] { return NerioSwitchTable::sGTableFactory("pairs"); });
    }
    NerioSwitchTable::StarGTable& groups() {
        return groups_.in(nat, [] { return NerioSwitchTable::starGTableFactory("groups"); });
    }
    NerioSwitchTable::AclHashTable& rules(U8 physTableIdx) {
        return rules_[physTableIdx].in(nat, [&] {
            return NerioSwitchTable::aclHashTableFactory("rules" + std::to_string(physTableIdx), 0,
                                                         physTableIdx);
        });
    }
    NerioSwitchTable::Lpm26Table& routes26() {
        return static_cast<NerioSwitchTable::Lpm26Table&>(*stages_.hashed[4]);
    }

    void routeIs(U8 vrf, U32 address, U8 length, U32 nexthop) {
        if (!routes_) {
            stages_ = Agent::RouteStages::made();
            for (auto const& table : stages_.tables())
                nat.framework->tableIs(table, cold);
            routes_ = std::make_unique<Agent::RouteAgent>(stages_);
        }
        routes_->routeIs(routeKey(vrf, address, length), nexthop);
    }
    void lagIs(U32 number, U64 mask) {
        lags().entryIs(number, NerioSwitchTable::L3LagResult().portMaskIs(mask));
    }
    void translationIs() {
        auto const refusal = nat.agent->translationIs(Agent::NatTranslation()
                                                          .insideIs(inside.address)
                                                          .insidePortIs(inside.port)
                                                          .outsideIs(outside.address)
                                                          .outsidePortIs(outside.port)
                                                          .protoIs(NerioSwitch::NatL4Proto::tcp)
                                                          .profileIs(3));
        ASSERT_FALSE(refusal);
    }
    /** Inside are 10.0.0.0/8 and port 1, outside are 198.51.100.0/24 and port 30. */
    void routerIs() {
        ports().entryIs(NerioSwitchTable::PortConfigKey(30), NerioSwitchTable::PortConfigResult().portModeIs(
                                                                 NerioSwitchTable::PortConfigMode::trunk));
        routeIs(0, 0x0A000000, 8, 4);
        routeIs(0, 0xC0000200, 24, 4);
        routeIs(0, 0xC6336400, 24, 9);
        lagIs(4, 1u << 1);
        lagIs(9, U64{1} << 30);
        translationIs();
    }
    static Chip::ArrivingPacket outbound() {
        return {.port = 1,
                .natProfile = 3,
                .egressNatProfile = 3,
                .bytes = bytesOf(Chip::IpProtocol::tcp, inside, peer)};
    }
    static Chip::ArrivingPacket inbound() {
        return {.port = 30,
                .natProfile = 3,
                .egressNatProfile = 3,
                .bytes = bytesOf(Chip::IpProtocol::tcp, peer, outside)};
    }

    NatSwitch nat;

private:
    Lazy<NerioSwitchTable::PortConfigTable> ports_;
    Lazy<NerioSwitchTable::L3LagTable> lags_;
    Lazy<NerioSwitchTable::SGTable> pairs_;
    Lazy<NerioSwitchTable::StarGTable> groups_;
    std::map<U8, Lazy<NerioSwitchTable::AclHashTable>> rules_;
    Agent::RouteStages stages_;
    std::unique_ptr<Agent::RouteAgent> routes_;
};

}  // namespace NerioTest
