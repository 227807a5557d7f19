// The layer 2 and policing side of a switch as one value: in a file, in entries, and in tables.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <ostream>

#include "NerioSwitchApi/TableFramework.h"

#include "FailureText.h"
#include "agent/StateFile.h"
#include "agent/SwitchEntries.h"
#include "agent/Verify.h"
#include "chip/LagLookup.h"
#include "chip/Layer2Lookup.h"
#include "chip/MirrorLookup.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using Agent::Json;
using Agent::Ports;
using Agent::Rate;
using Agent::StateFileException;
using Agent::SwitchEntries;
using Agent::SwitchState;
using NerioSwitch::ChipPortId;
using NerioSwitchApi::StartMode;
using namespace NerioSwitchTable;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char const* whole = R"({
  "tables": [],
  "vlans": {
    "10": {"ports": "0-3,40-43", "untagged": "0-3"},
    "20": {"ports": "4,40", "untagged": "4", "floodUnicast": "40", "floodMulticast": "", "learn": false, "vrf": 1,
           "unicastRoute": true, "joinsToPorts": false, "acl": 3, "aclDefaultPermit": false,
           "addresses": {"00:1c:73:00:00:01": {"row": 5, "ports": "4"},
                         "00:1c:73:00:00:02": {"row": 6, "toCpu": true, "ipRoute": true, "mcastFlags": 2}}}
  },
  "ports": {
    "40-43": {"mode": "trunk", "hashAddresses": true, "hashSeed": 7},
    "44": {"mode": "qinq", "txDisabled": true, "mlagPeer": true, "learnOnly": true}
  },
  "portChannels": {"1": "40-41", "62": "42-43,45"},
  "mirrors": {"0-1": {"ports": "51"}, "2": {"ports": "50-51", "cpu": true}},
  "stormLimits": {"0-3": {"broadcast": "20 kpps", "multicast": "10 Mbps"}, "4": {"unicast": "300 kpps"}},
  "cpuLimits": {"igmp": "2 kpps", "macLearn": "10 kpps"}
})";

}  // namespace

namespace Agent {

/** What tests print of a state. */
static void PrintTo(SwitchState const& state, std::ostream* stream) {
    Json json;
    switchStateToJson(state, json);
    *stream << json.dump();
}

}  // namespace Agent

namespace {

SwitchState stateOf(std::string const& text) {
    return Agent::parseState(text, "f").switchState;
}

/** Every table of a state over a chip that outlives them, with the writes that they make. */
class SwitchStateTest : public testing::Test {
protected:
    void start(StartMode mode = StartMode::cold) {
        tables.clear();
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, bus, shadows);
        for (auto const& [spec, part] : Agent::tablesOf(stateOf(whole))) {
            tables.push_back(Agent::makeTable(spec));
            framework->tableIs(tables.back()->table(), mode);
        }
        bus->take();
    }
    void apply(SwitchState const& state) {
        auto const entries = SwitchEntries::of(state, *profile);
        for (auto const& table : tables)
            entries.applyTo(*table->table());
    }
    SwitchState readBack() const {
        SwitchEntries entries;
        for (auto const& table : tables)
            entries.readFrom(*table->table());
        return entries.state(*profile);
    }
    /** The names of tables that are called at all for a state, with the number of entries. */
    std::map<std::string, std::size_t> callsFor(SwitchState const& state) {
        std::map<std::string, std::size_t> calls;
        std::vector<Belmo::Subscription> observed;
        for (auto const& table : tables) {
            observed.push_back(table->observe(
                [&calls, name = table->table()->name()](std::string_view, Json const&) { ++calls[name]; }));
        }
        apply(state);
        return calls;
    }
    void expectAgreement() const {
        for (auto const& table : tables) {
            auto const differences = Agent::verify(*table->table(), [this](auto registers, auto words) {
                                         chip->readRow(registers, words);
                                     }).differences;
            EXPECT_TRUE(differences.empty())
                << differences.front().hwTable << ": " << differences.front().text;
        }
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Belmo::Ptr<Chip::RecordingBus> bus = Belmo::make<Chip::RecordingBus>(chip);
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    std::vector<std::unique_ptr<Agent::JsonTable>> tables;
};

TEST_F(SwitchStateTest, IsReadInTheWordsOfAnOperator) {
    auto const state = stateOf(whole);
    ASSERT_EQ(state.vlans.size(), 2u);
    auto const& vlan = state.vlans.at(20);
    EXPECT_EQ(vlan.ports().text(), "4,40");
    EXPECT_EQ(vlan.floodUnicast().text(), "40");
    EXPECT_EQ(vlan.floodMulticast().text(), "");
    EXPECT_EQ(vlan.vrf(), 1);
    EXPECT_EQ(vlan.addresses().size(), 2u);
    EXPECT_EQ(state.vlans.at(10).floodMulticast().text(), "0-3,40-43") << "a VLAN floods to all its ports";
    EXPECT_EQ(state.ports.size(), 5u);
    EXPECT_EQ(state.portChannels.at(62).text(), "42-43,45");
    EXPECT_TRUE(state.mirrors.at(2).cpu());
    EXPECT_EQ(state.stormLimits.at(3).multicast, Rate(10000000, Rate::Unit::bits));
    EXPECT_EQ(state.cpuLimits.at(CoppClass::igmp), Rate(2000));
}

TEST_F(SwitchStateTest, ComesBackFromItsOwnText) {
    auto const file = Agent::parseState(whole, "f");
    auto json = Agent::stateToJson(file);
    EXPECT_EQ(Agent::parseState(json.dump(), "g").switchState, file.switchState);
    auto expected = Json::parse(whole);
    expected["vlans"]["20"]["addresses"]["00:1c:73:00:00:02"]["mcastFlags"] = 2;
    json.erase("profile");
    EXPECT_EQ(nlohmann::json(json), nlohmann::json(expected)) << "what is at its default is left out";
}

TEST_F(SwitchStateTest, PortsAreLists) {
    auto const ports = [](char const* text) {
        Sorn::CharRange range(text);
        auto const value = Ports::fromText(range);
        range.expectEnd();
        return value.text();
    };
    EXPECT_EQ(ports(""), "");
    EXPECT_EQ(ports("52"), "52");
    EXPECT_EQ(ports("0-52"), "0-52");
    EXPECT_EQ(ports("5, 3-4,1"), "1,3-5");
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { ports("53"); }), "Agent::Ports::port > 52 not allowed");
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { ports("5-4"); }), "5-4: ports the wrong way round");
    EXPECT_THROW(ports("1,"), Belmo::DeserializationException);
    EXPECT_THROW(ports("1 2"), Belmo::DeserializationException);
}

TEST_F(SwitchStateTest, EntriesSayTheWholeState) {
    auto const state = stateOf(whole);
    auto const entries = SwitchEntries::of(state, *profile);
    EXPECT_EQ(entries.state(*profile), state);
    EXPECT_EQ(entries.vlanMembership.at(VlanMembershipKey(10)).permitMask(), 0xF000000000Full);
    EXPECT_FALSE(entries.vlanMembership.at(VlanMembershipKey(20)).learnToCpu());
    EXPECT_EQ(entries.vlanMembership.at(VlanMembershipKey(20)).vrfBits(), 1);
    EXPECT_EQ(entries.nativeVlan.at(NativeVlanKey(4u)).nativeVlanId(), 20);
    EXPECT_EQ(entries.floodSet.at(20).result().uucPortMask(), U64{1} << 40);
    EXPECT_EQ(entries.floodSet.at(20).result().umcPortMask(), 0u);
    EXPECT_TRUE(entries.macVlan.at(MacVlanKey(6)).ingressPortMask().hasCpu());
    EXPECT_EQ(entries.macVlan.at(MacVlanKey(6)).macVlan().vlanId(), 20);
    EXPECT_EQ(entries.portConfig.at(PortConfigKey(44u)).portMode(), PortConfigMode::qinq);
    EXPECT_EQ(entries.l2Control.size(), 1u) << "defaults go without saying";
    EXPECT_EQ(entries.lagHashControl.at(LagHashControlKey(40u)).hashSeed(), 7);
    EXPECT_EQ(entries.lagMembership.at(LagMembershipKey(45u)).lagGroupId(), 62u);
    EXPECT_EQ(entries.lagMembership.at(LagMembershipKey(45u)).port().size(), 3u);
    U32 buckets = 0;
    for (U32 const port : {42u, 43u, 45u}) {
        auto const taken = entries.lagLookUp.at(LagLookUpKey(port)).buckets();
        EXPECT_EQ(buckets & taken, 0u);
        buckets |= taken;
    }
    EXPECT_EQ(buckets, ~U32{0}) << "each bucket has one member";
    EXPECT_EQ(entries.copp.size(), Agent::policedClasses(*profile).size() + 1);
}

/** Every attribute has its counterpart in a row: none is lost on the way there and back. */
TEST_F(SwitchStateTest, NoAttributeIsLostInEntries) {
    auto const expectKept = [&](char const* part, char const* member, std::string const& base) {
        auto json = Json::parse(base);
        Json const defaults = json;
        auto const before = stateOf(defaults.dump());
        auto const attributes = Json::parse(member);
        for (auto const& [name, value] : attributes.items()) {
            json = defaults;
            auto& object = json[part].begin().value();
            object[name] = value;
            auto const state = stateOf(json.dump());
            EXPECT_NE(state, before) << name;
            EXPECT_EQ(SwitchEntries::of(state, *profile).state(*profile), state) << part << " " << name;
        }
    };
    expectKept(
        "vlans",
        R"({"ports":"1-2,5","untagged":"1","floodUnicast":"2","floodMulticast":"1","learn":false,"vrf":3,
                   "unicastRoute":true,"multicastRoute":true,"unknownUnicastToCpu":true,
                   "unknownMulticastToCpu":true,"broadcastToCpu":true,"joinsToCpu":true,"joinsToPorts":false,"acl":0,
                   "addresses":{"00:00:00:00:00:07":{"row":3,"ports":"9","toCpu":true,"ipRoute":true,
                                                     "mcastFlags":5}}})",
        R"({"tables":[],"vlans":{"7":{"ports":"1-2"}}})");
    expectKept("vlans", R"({"aclDefaultPermit":false})",
               R"({"tables":[],"vlans":{"7":{"ports":"1-2","acl":15}}})");
    expectKept(
        "ports",
        R"({"mode":"qinq","txDisabled":true,"l2ForwardingDisabled":true,"mlagPeer":true,"learnOnly":true,
                   "learnDisabled":true,"hashVlan":true,"hashProtocol":true,"hashAddresses":true,
                   "hashPorts":true,"hashSeed":63})",
        R"({"tables":[],"ports":{"3-4":{}}})");
}

TEST_F(SwitchStateTest, TheChipDoesWhatItSays) {
    start();
    apply(stateOf(whole));
    expectAgreement();
    Chip::Layer2Lookup const layer2(*chip, *profile);
    EXPECT_EQ(layer2.vlan(4, 20)->acl, (Chip::VlanAcl{.id = 3, .enable = 3, .defaultPermit = false}));
    EXPECT_EQ(layer2.vlan(40, 20)->acl, layer2.vlan(4, 20)->acl) << "in the other pipe";
    EXPECT_EQ(layer2.vlan(1, 10)->acl->enable, 0);
    Chip::LagLookup const lags(*chip, *profile);
    EXPECT_EQ(lags.group(45), 62u);
    EXPECT_EQ(lags.members(40), U64{3} << 40);
    EXPECT_EQ(lags.cpuMembers(62), Ports(U64{0xB} << 42).mask());
    auto const copies = Chip::MirrorLookup(*chip, *profile).copiesOf(2);
    EXPECT_THAT(copies.ports, ElementsAre(50, 51));
    EXPECT_TRUE(copies.cpu);
}

TEST_F(SwitchStateTest, ASecondApplicationCallsAndWritesNothing) {
    start();
    auto const state = stateOf(whole);
    apply(state);
    EXPECT_FALSE(bus->take().empty());
    EXPECT_THAT(callsFor(state), IsEmpty());
    EXPECT_THAT(bus->take(), IsEmpty());
    EXPECT_EQ(readBack(), state);
}

TEST_F(SwitchStateTest, OnlyWhatChangedIsCalled) {
    start();
    auto state = stateOf(whole);
    apply(state);
    using Calls = std::map<std::string, std::size_t>;
    state.vlans[10].learnIs(false);
    EXPECT_EQ(callsFor(state), (Calls{{"vlanMembership", 1}}));
    state.vlans[10].untaggedIs(Ports(7));
    EXPECT_EQ(callsFor(state), (Calls{{"nativeVlan", 1}})) << "port 3 has no native VLAN any more";
    state.ports[44].learnOnlyIs(false).hashVlanIs(true);
    EXPECT_EQ(callsFor(state), (Calls{{"l2Control", 1}, {"lagHashControl", 1}}));
    state.portChannels.erase(1);
    EXPECT_EQ(callsFor(state), (Calls{{"lagGroup", 2}, {"lagMembership", 2}, {"lagLookUp", 2}}));
    state.mirrors[2].cpuIs(false);
    EXPECT_EQ(callsFor(state), (Calls{{"rxPortMirror", 1}}));
    state.stormLimits[4].unicast.reset();
    EXPECT_EQ(callsFor(state).size(), 1u);
    state.stormLimits.erase(4);
    EXPECT_THAT(callsFor(state), IsEmpty());
    state.cpuLimits[CoppClass::igmp] = Rate(3000);
    EXPECT_EQ(callsFor(state), (Calls{{"copp", 1}}));
    state.vlans.erase(20);
    EXPECT_EQ(callsFor(state),
              (Calls{{"vlanMembership", 1}, {"nativeVlan", 1}, {"floodSet", 1}, {"macVlan", 2}}));
    EXPECT_EQ(readBack(), state);
    expectAgreement();
    apply(SwitchState());
    EXPECT_EQ(readBack(), SwitchState());
    expectAgreement();
}

TEST_F(SwitchStateTest, IsReadBackFromHardware) {
    start();
    auto const state = stateOf(whole);
    apply(state);
    start(StartMode::warm);
    EXPECT_EQ(readBack(), state);
    apply(state);
    expectAgreement();
    EXPECT_THAT(callsFor(state), IsEmpty()) << "what came back in disorder is in order by now";
}

TEST_F(SwitchStateTest, NeedsTheTablesOfItsPartsAlone) {
    std::vector<std::string> names;
    for (auto const& table : Agent::tablesOf(stateOf(R"({"tables":[],"portChannels":{"3":"1-2"}})"))) {
        EXPECT_EQ(table.part, "portChannels");
        EXPECT_EQ(table.spec.name, table.spec.family);
        names.push_back(table.spec.name);
    }
    EXPECT_THAT(names, UnorderedElementsAre("lagGroup", "lagMembership", "lagLookUp"));
    EXPECT_THAT(Agent::tablesOf(SwitchState()), IsEmpty());
}

TEST_F(SwitchStateTest, WhatMakesNoSenseIsNamedByItsPlace) {
    auto const failure = [](std::string const& members, std::string const& table = "") {
        auto const text = R"({"profile":{"numPorts":48},"tables":[)" + table + "]," + members + "}";
        return failureOf<StateFileException>([&] { Agent::parseState(text, "f"); });
    };
    auto const vlan = [&](std::string const& attributes) {
        return failure(R"("vlans":{"7":{"ports":"1-2",)" + attributes +
                       R"(},"8":{"ports":"1","untagged":"1"}})");
    };
    EXPECT_EQ(failure(R"("vlans":[])"), "f: /vlans: vlans: expected an object, found an array");
    EXPECT_EQ(failure(R"("vlans":{"0":{}})"),
              "f: /vlans/0: Bridging::VlanId::value < 1 or > 4094 not allowed");
    EXPECT_EQ(failure(R"("vlans":{"7":{"ports":"53"}})"),
              "f: /vlans/7/ports: Agent::Ports::port > 52 not allowed");
    EXPECT_EQ(failure(R"("vlans":{"7":{"ports":"46-48"}})"),
              "f: /vlans/7/ports: ports: port 48 is not among the chip's 48");
    EXPECT_EQ(vlan(R"("member":1)"), "f: /vlans/7/member: unknown attribute \"member\" of Agent::Vlan");
    EXPECT_EQ(vlan(R"("untagged":"2-3")"), "f: /vlans/7/untagged: untagged: 3 not among the VLAN's ports");
    EXPECT_EQ(vlan(R"("floodUnicast":"5-6")"),
              "f: /vlans/7/floodUnicast: floodUnicast: 5-6 not among the VLAN's ports");
    EXPECT_EQ(vlan(R"("untagged":"1")"),
              "f: /vlans/8/untagged: untagged: port 1 is untagged in another VLAN already");
    EXPECT_EQ(vlan(R"("acl":17)"),
              "f: /vlans/7/acl: NerioSwitch::HwAclId::value < NerioSwitch::HwAclId::min or > "
              "NerioSwitch::HwAclId::invalid not allowed");
    EXPECT_EQ(vlan(R"("aclDefaultPermit":false)"),
              "f: /vlans/7/aclDefaultPermit: aclDefaultPermit: the VLAN has no ACL");
    EXPECT_EQ(failureOf<StateFileException>([] {
                  Agent::parseState(
                      R"({"profile":{"vlanRegVer":3},"tables":[],"vlans":{"7":{"ports":"1","acl":1}}})", "f");
              }),
              "f: /vlans/7/acl: acl: the rows of this chip's VLANs have no ACL");
    EXPECT_EQ(vlan(R"("addresses":{"00:00:00:00:00:01":{},"00:00:00:00:00:02":{"row":0}})"),
              "f: /vlans/7/addresses/00:00:00:00:00:02/row: row: row 0 is taken");
    EXPECT_EQ(failure(R"("ports":{"1-3":{"mode":"trunk"},"3-4":{}})"),
              "f: /ports/3-4: 3-4: port 3 is in another list");
    EXPECT_EQ(failure(R"("ports":{"48":{"mode":"trunk"}})"),
              "f: /ports: ports: port 48 is not among the chip's 48");
    EXPECT_EQ(failure(R"("portChannels":{"0":"1"})"),
              "f: /portChannels/0: Agent::PortChannelNumber::value < 1 or > 62 not allowed");
    EXPECT_EQ(failure(R"("portChannels":{"63":"1"})"),
              "f: /portChannels/63: Agent::PortChannelNumber::value < 1 or > 62 not allowed");
    EXPECT_EQ(failure(R"("portChannels":{"1":"1-2","2":"2"})"),
              "f: /portChannels/2: 2: port 2 is in another port channel already");
    EXPECT_EQ(failure(R"("mirrors":{"1":{"ports":"50"}})"),
              "f: /mirrors: mirrors: port 50 is not among the chip's 48");
    EXPECT_EQ(failure(R"("stormLimits":{"1":{"broadcast":"0 pps"}})"),
              "f: /stormLimits/1: a limit of 0 pps is none that storm control has");
    EXPECT_EQ(failure(R"("stormLimits":{"1":{"flood":"1 pps"}})"),
              "f: /stormLimits/1/flood: unknown member \"flood\"");
    EXPECT_EQ(failure(R"("cpuLimits":{"x":"1 kpps"})"), "f: /cpuLimits/x: x: unknown enumerator \"x\"");
    EXPECT_EQ(failure(R"("cpuLimits":{"interval":"1 kpps"})").substr(0, 14), "f: /cpuLimits:");
    EXPECT_EQ(failure(R"("portChannels":{"1":"1"})", R"({"family":"lagLookUp","name":"mine"})"),
              "f: /portChannels: portChannels: the table \"mine\" belongs to them");
    EXPECT_EQ(failure(R"("portChannels":{"1":"1"})", R"({"family":"lagHashControl","name":"mine"})"), "");
}

}  // namespace
