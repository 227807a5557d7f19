#include <gtest/gtest.h>

#include "agent/ProfileJson.h"

namespace {

using Agent::Json;
using Agent::Place;
using NerioSwitch::ProfileInfo;
using Layout = NerioSwitch::TableLayoutEnum;

Belmo::Ptr<ProfileInfo> profile(char const* text) {
    return Agent::profileFromJson(Json::parse(text), Place());
}

/** The preset as documented, every attribute written out. */
constexpr char const* defaultProfile =
    R"({"name":["demo","demo"],"numPorts":52,"hwApi":"6.2","vlanRegVer":7,"aclRegVer":2,
 "numVrfs":4,"numPipelines":2,"hasCpuPipeline":true,"cpuPortId":52,"noMuxInRegName":true,
 "floodSetParity":true,"natProfile":true,"aclPipeModeCapable":true,
 "ingressPipes":[{"pipeId":0,"firstPort":0,"lastPort":25},{"pipeId":1,"firstPort":26,"lastPort":51}],
 "egressPipes":[{"pipeId":0,"firstPort":0,"lastPort":25},{"pipeId":1,"firstPort":26,"lastPort":51}],
 "layouts":{
  "acl":{"tables":2,"pipelines":2,"processors":2,"size":4096,"pipeToTable":[0,1],"pipeToProcessor":[0,1]},
  "l2":{"tables":2,"pipelines":2,"processors":2,"size":0,"pipeToTable":[0,1],"pipeToProcessor":[0,1]},
  "egress":{"tables":2,"pipelines":2,"processors":2,"size":0,"pipeToTable":[0,1],"pipeToProcessor":[0,1]},
  "l3":{"tables":2,"pipelines":2,"processors":2,"size":0,"pipeToTable":[0,1],"pipeToProcessor":[0,1]},
  "vlan":{"tables":2,"pipelines":2,"processors":2,"size":0,"pipeToTable":[0,1],"pipeToProcessor":[0,1]}},
 "macVlanRows":[64,16],"supportedEntries":{"floodSet":128}})";

/** The same with another value for every single attribute. */
constexpr char const* otherProfile =
    R"({"name":["edge","spare"],"numPorts":8,"hwApi":"5.11","vlanRegVer":1,"aclRegVer":3,
 "numVrfs":16,"numPipelines":1,"hasCpuPipeline":false,"cpuPortId":8,"noMuxInRegName":false,
 "floodSetParity":false,"natProfile":false,"aclPipeModeCapable":false,
 "ingressPipes":[{"pipeId":3,"firstPort":2,"lastPort":7}],
 "egressPipes":[{"pipeId":0,"firstPort":0,"lastPort":3},{"pipeId":2,"firstPort":4,"lastPort":7}],
 "layouts":{
  "acl":{"tables":1,"pipelines":3,"processors":4,"size":5,"pipeToTable":[6,7,8],"pipeToProcessor":[9]},
  "l2":null,"egress":null,"l3":null,"vlan":null},
 "macVlanRows":[32,8],"supportedEntries":{"floodSet":64,"lag":2}})";

TEST(ProfileJsonTest, TheDefaultPresetIsAsDocumented) {
    EXPECT_EQ(Agent::profileToJson(*profile("{}")), Json::parse(defaultProfile));
    EXPECT_EQ(Agent::profileToJson(*profile(R"({"preset":"default"})")), Json::parse(defaultProfile));
    EXPECT_EQ(Agent::profileToJson(*profile(defaultProfile)), Json::parse(defaultProfile));
}

TEST(ProfileJsonTest, EveryAttributeIsReadAndWritten) {
    auto const other = Json::parse(otherProfile);
    EXPECT_EQ(Agent::profileToJson(*profile(otherProfile)), other);
    for (auto const& [name, value] : other.items()) {
        // One attribute alone leaves all others as the preset has them.
        if (name == "layouts") continue;
        auto expected = Json::parse(defaultProfile);
        EXPECT_NE(expected[name], value) << name;
        expected[name] = value;
        auto const read = Agent::profileFromJson(Json{{name, value}}, Place());
        EXPECT_EQ(Agent::profileToJson(*read), expected) << name;
    }
}

TEST(ProfileJsonTest, AttributesReachTheProfile) {
    auto const other = profile(otherProfile);
    EXPECT_EQ(other->profileName(), "edge");
    EXPECT_EQ(other->name[1], "spare");
    EXPECT_EQ(other->numPorts, 8);
    EXPECT_EQ(other->hwApi, NerioSwitch::ProfileHwApi(5, 11));
    EXPECT_EQ(other->vlanRegVer, 1u);
    EXPECT_EQ(other->aclRegVer, 3u);
    EXPECT_EQ(other->numVrfs, 16u);
    EXPECT_EQ(other->numPipelines, 1);
    EXPECT_FALSE(other->hasCpuPipeline);
    EXPECT_EQ(other->cpuPortId(), 8);
    EXPECT_FALSE(other->noMuxInRegName);
    EXPECT_FALSE(other->floodSetParity);
    EXPECT_FALSE(other->natProfile);
    EXPECT_FALSE(other->aclPipeModeCapable);
    EXPECT_EQ(other->macVlanRows, (std::array<U32, 2>{32, 8}));
    EXPECT_EQ(other->supportedEntries.at("lag"), 2u);
    EXPECT_EQ(other->pipeToTableId(2, Layout::tableLayoutAcl), 8);
    EXPECT_EQ(other->getHardwareTableLayout(Layout::tableLayoutL2), nullptr);
}

TEST(ProfileJsonTest, PipesSayWhereTheirPortsSit) {
    auto const other = profile(otherProfile);
    EXPECT_EQ(other->ingressPipeRangeInfos(), 1u);
    NerioSwitch::PipeInfoMap const ingress{{2, {2, 3, 0}}, {3, {3, 3, 1}}, {4, {4, 3, 2}},
                                           {5, {5, 3, 3}}, {6, {6, 3, 4}}, {7, {7, 3, 5}}};
    EXPECT_EQ(other->portIdToIngressPipe, ingress);
    NerioSwitch::PipeInfoMap const egress{{0, {0, 0, 0}}, {1, {1, 0, 1}}, {2, {2, 0, 2}}, {3, {3, 0, 3}},
                                          {4, {4, 2, 0}}, {5, {5, 2, 1}}, {6, {6, 2, 2}}, {7, {7, 2, 3}}};
    EXPECT_EQ(other->portIdToEgressPipe, egress);
}

TEST(ProfileJsonTest, APartialLayoutIsMergedIntoThePreset) {
    auto expected = Json::parse(defaultProfile);
    expected["layouts"]["acl"]["size"] = 2048;
    expected["layouts"]["l3"]["pipeToTable"] = {1, 0};
    EXPECT_EQ(
        Agent::profileToJson(*profile(R"({"layouts":{"acl":{"size":2048},"l3":{"pipeToTable":[1,0]}}})")),
        expected);
}

TEST(ProfileJsonTest, FailuresHaveTheirPlace) {
    std::pair<char const*, char const*> const cases[] = {
        {"[]", ""},
        {R"({"preset":"x"})", "/preset"},
        {R"({"preset":1})", "/preset"},
        {R"({"numports":1})", "/numports"},
        {R"({"numPorts":0})", "/numPorts"},
        {R"({"hwApi":"6"})", "/hwApi"},
        {R"({"hwApi":"6.2.1"})", "/hwApi"},
        {R"({"name":["a",2]})", "/name/1"},
        {R"({"ingressPipes":{}})", "/ingressPipes"},
        {R"({"ingressPipes":[{},7]})", "/ingressPipes/1"},
        {R"({"ingressPipes":[{"lastPort":65536}]})", "/ingressPipes/0/lastPort"},
        {R"({"layouts":{"acl":{"pipeToTable":[0,-1]}}})", "/layouts/acl/pipeToTable/1"},
        {R"({"macVlanRows":[1,"x"]})", "/macVlanRows/1"},
        {R"({"supportedEntries":{"a/b~c":"x"}})", "/supportedEntries/a~1b~0c"},
    };
    for (auto const& [text, place] : cases) {
        try {
            profile(text);
            ADD_FAILURE() << text << " was taken";
        } catch (Agent::JsonException const& failure) {
            EXPECT_EQ(failure.place(), place) << text << ": " << failure.what();
        }
    }
}

}  // namespace
