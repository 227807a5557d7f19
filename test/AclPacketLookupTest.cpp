#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "AclFixture.h"
#include "FailureText.h"
#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"
#include "PackedWords.h"
#include "TraceCapture.h"
#include "agent/Verify.h"
#include "chip/AclPacketLookup.h"

namespace {

using namespace NerioSwitchTable;
using Chip::PortRangeBits;
using NerioSwitch::HwAclRange;
using NerioTest::AclChip;
using NerioTest::packed;
using NerioTest::ruleOf;
using NerioTest::StartMode;

/** A chip with rows that are written into it from literal positions. */
class AclConditionRows : public testing::Test {
protected:
    void chipIs(AclChip const& kind, U32 aclRegVer = 2) {
        NerioTest::aclChipIs(*profile, kind);
        profile->aclRegVer = aclRegVer;
        chip = Chip::simulatedChip(*profile);
    }
    void store(U32 processor, std::vector<U32> const& words, U32 control) {
        auto const prefix = "ingress/processor_acl[" + std::to_string(processor) + "]/hash_";
        for (std::size_t i = 0; i < words.size(); ++i)
            chip->write(chip->address(prefix + "data" + std::to_string(i)), words[i]);
        chip->write(chip->address(prefix + "ctl"), control | 1u << 18);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
};

TEST_F(AclConditionRows, RangesHoldPortsUpToTheirEnds) {
    chipIs({6, false});
    // Pipeline 3, ACL 9: 80 to 443 with a flag, and from 0 to 1023; in its second row 7 alone, and from 1024.
    store(1, packed(4, {{0, 16, 80}, {16, 16, 443}, {32, 1, 1}, {66, 17, 1024}, {104, 1, 1}}),
          18u | 6u << 13 | 1u << 16);
    store(1, packed(4, {{33, 16, 7}, {49, 16, 7}, {85, 17, 1024}, {102, 1, 1}, {103, 1, 1}, {104, 1, 1}}),
          19u | 6u << 13 | 1u << 16);
    Chip::PortRangeLookup const lookUp(*chip, *profile);
    auto const holding = [&](U16 port) { return lookUp.rangesOf(9, port, 3).holding; };
    EXPECT_EQ(holding(0), 0b00000100);
    EXPECT_EQ(holding(7), 0b00100100);
    EXPECT_EQ(holding(79), 0b00000100);
    EXPECT_EQ(holding(80), 0b00000101);
    EXPECT_EQ(holding(443), 0b00000101);
    EXPECT_EQ(holding(444), 0b00000100);
    EXPECT_EQ(holding(1023), 0b00000100);
    EXPECT_EQ(holding(1024), 0b10000000);
    EXPECT_EQ(holding(65535), 0b10000000);
    EXPECT_EQ(lookUp.rangesOf(9, 0, 3).flagged, 0b10000001);
    EXPECT_EQ(lookUp.rangesOf(9, 80, 2), PortRangeBits()) << "another pipeline";
    EXPECT_EQ(lookUp.rangesOf(8, 80, 3), PortRangeBits()) << "another ACL";
}

TEST_F(AclConditionRows, ARangeThatIsAllZeroOrOfWrongParityHoldsNoPort) {
    chipIs({6, true});
    Chip::PortRangeLookup const lookUp(*chip, *profile);
    EXPECT_EQ(lookUp.rangesOf(0, 0, 0), PortRangeBits());
    store(0, packed(4, {{83, 1, 1}, {104, 1, 1}}), 0u | 6u << 13);
    EXPECT_EQ(lookUp.rangesOf(0, 0, 0).holding, 4) << "from port 0 up";
    store(0, packed(4, {{83, 1, 1}}), 0u | 6u << 13);
    EXPECT_EQ(lookUp.rangesOf(0, 0, 0), PortRangeBits());
}

TEST_F(AclConditionRows, ProtocolsHaveFourBitsAndEvenParity) {
    for (U32 const version : {1u, 2u}) {
        SCOPED_TRACE(version);
        chipIs({6, false}, version);
        std::size_t const words = version < 2 ? 5 : 4;
        store(1, packed(words, {{0, 4, 7}, {4, 1, 1}}), 6u | 3u << 13 | 1u << 16);
        store(1, packed(words, {{0, 4, 5}, {4, 1, 1}}), 17u | 3u << 13 | 1u << 16);
        Chip::ProtocolLookup const lookUp(*chip, *profile);
        EXPECT_EQ(lookUp.numberOf(6, 3), 7);
        EXPECT_EQ(lookUp.numberOf(6, 2), 0) << "another pipeline";
        EXPECT_EQ(lookUp.numberOf(17, 3), 0) << "wrong parity";
        EXPECT_EQ(lookUp.numberOf(255, 3), 0);
    }
}

TEST_F(AclConditionRows, WhatTheChipLacksIsRefused) {
    chipIs({3, true});
    Chip::PortRangeLookup const ranges(*chip, *profile);
    EXPECT_EQ(ranges.rangesOf(15, 80, 1), PortRangeBits()) << "version 3 has no ranges";
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { static_cast<void>(ranges.rangesOf(16, 0, 0)); }),
              "ACL lookup: ACL number 16 is above 15");
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { static_cast<void>(ranges.rangesOf(0, 0, 2)); }),
              "ACL lookup: there is no pipeline 2");
    Chip::ProtocolLookup const protocols(*chip, *profile);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { static_cast<void>(protocols.numberOf(0, 2)); }),
              "ACL lookup: there is no pipeline 2");
    EXPECT_THROW(static_cast<void>(chip->indirectMemory("ingress/processor_acl[0]/portRanges/pipeline0")),
                 Belmo::RangeException);
}

/** The ACL of a pipeline: rules of physical table 0, ranges and protocols, all by their tables. */
class AclOfPipeline : public testing::TestWithParam<AclChip> {
protected:
    static constexpr U8 pipeline = 1;

    AclOfPipeline() {
        NerioTest::aclChipIs(*profile, GetParam());
        profile->aclRegVer = GetParam().verMajor < 4 ? 1 : 2;
    }

    void start(StartMode mode) {
        framework.reset();
        rules = aclHashTableFactory("rules", pipeline, 0);
        ranges = aclPortRangeTableFactory("ranges", pipeline);
        protocols = protocolRemapTableFactory("protocols", pipeline);
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, chip(), shadows);
        for (auto const& table : tables())
            framework->tableIs(table, mode);
    }
    std::vector<Belmo::Ptr<NerioSwitchApi::SwTable>> tables() const { return {rules, ranges, protocols}; }
    Belmo::Ptr<Chip::SimulatedChip> const& chip() {
        if (!chip_) chip_ = Chip::simulatedChip(*profile);
        return chip_;
    }
    /** A rule of ACL 3 for packets of a protocol number to 192.0.2.1. */
    void ruleIs(U8 protocol, U16 port, NerioSwitch::HwAclRule const& rule) {
        rules->entryIs(NerioSwitch::AclHashKey()
                           .aclIdIs(3)
                           .combinationIs(port == 0 ? 0 : 1)
                           .secondPrefixIs(NerioTest::prefixOf({192, 0, 2, 1}, 32))
                           .protocolIs(protocol)
                           .portIs(port),
                       NerioTest::resultOf(rule));
    }
    /** The priority of the rule for a packet to that port of 192.0.2.1; 0 for none. */
    U32 priorityFor(U8 ipProtocol, U16 port, U8 aclId = 3) {
        return priorityFor({.destination = 0xC0000201, .protocol = ipProtocol, .transport = {{9, port, 0}}},
                           aclId);
    }
    U32 priorityFor(Chip::Ipv4Headers const& packet, U8 aclId = 3) {
        Chip::AclPacketLookup const lookup(*chip(), *profile);
        auto const deciding = Chip::decidingRules(lookup.rulesOf(packet, {.aclId = aclId}, pipeline));
        return deciding.empty() ? 0 : deciding.front().rule.priority;
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<AclHashTable> rules;
    Belmo::Ptr<AclPortRangeTable> ranges;
    Belmo::Ptr<ProtocolRemapTable> protocols;

private:
    NerioTest::TraceCapture const quiet_{"NerioTableAclPortRange", 0};  // chips without ranges say so
    Belmo::Ptr<Chip::SimulatedChip> chip_;
};

/** From hardware API version 4 on. */
class AclWithRanges : public AclOfPipeline {};

TEST_P(AclOfPipeline, KeysHaveTheNumberOfAPacketsProtocol) {
    start(StartMode::cold);
    ruleIs(1, 0, ruleOf(20));
    ruleIs(2, 0, ruleOf(30));
    EXPECT_EQ(priorityFor(6, 80), 0u) << "no protocol has a number";
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(1));
    protocols->entryIs(ProtocolRemapKey(17), ProtocolRemapResult(2));
    EXPECT_EQ(priorityFor(6, 80), 20u);
    EXPECT_EQ(priorityFor(17, 80), 30u);
    EXPECT_EQ(priorityFor(1, 80), 0u);
    start(StartMode::warm);
    EXPECT_EQ(priorityFor(6, 80), 20u);
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(2));
    EXPECT_EQ(priorityFor(6, 80), 30u);
    protocols->entryDel(ProtocolRemapKey(6));
    EXPECT_EQ(priorityFor(6, 80), 0u);
}

TEST_P(AclOfPipeline, ARuleForThePortAndOneForAnyPortAreHeldAgainstEachOther) {
    start(StartMode::cold);
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(1));
    ruleIs(1, 0, ruleOf(20));
    ruleIs(1, 80, ruleOf(30));
    ruleIs(1, 443, ruleOf(10));
    EXPECT_EQ(priorityFor(6, 80), 20u);
    EXPECT_EQ(priorityFor(6, 443), 10u);
    EXPECT_EQ(priorityFor(6, 22), 20u);
    rules->entryDelAll();
    EXPECT_EQ(priorityFor(6, 80), 0u);
}

TEST_P(AclWithRanges, ARuleWithARangeHoldsForItsPortsAlone) {
    start(StartMode::cold);
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(1));
    struct Range {
        HwAclRange range;
        U16 in;
        U16 out;
    };
    for (auto const& [range, in, out] :
         {Range{{0, 80, 443}, 443, 444}, Range{{1, 8080, 8090}, 8080, 8079}, Range{{2, 0, 1023}, 1023, 1024},
          Range{{3, 1024, 65535}, 1024, 1023}, Range{{4, 80, 443}, 80, 79}, Range{{5, 7, 7}, 7, 8},
          Range{{6, 0, 1023}, 0, 1024}, Range{{7, 1024, 65535}, 65535, 0}}) {
        U8 const id = range.id().value();
        SCOPED_TRACE(int{id});
        auto const key = AclPortRangeKey::fromAclIdAndRow(3, id / 4);
        ruleIs(1, 0, ruleOf(20, true, 5, id));
        ranges->entryDelAll();
        EXPECT_EQ(priorityFor(6, in), 0u) << "there is no such range";
        ranges->entryIs(key, AclPortRangeResult(id / 4).addRange(range));
        EXPECT_EQ(priorityFor(6, in), 20u);
        EXPECT_EQ(priorityFor(6, out), 0u);
        EXPECT_EQ(priorityFor(6, in, 4), 0u) << "another ACL";
        EXPECT_EQ(priorityFor({.destination = 0xC0000201, .protocol = 6}), 0u) << "a packet without ports";
        ruleIs(1, out, ruleOf(40));
        EXPECT_EQ(priorityFor(6, out), 40u) << "a rule of the port itself has no range";
        rules->entryDelAll();
    }
}

TEST_P(AclWithRanges, TheRangeIsOfThePortThatTheRuleLooksAt) {
    start(StartMode::cold);
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(1));
    ranges->entryIs(AclPortRangeKey::fromAclIdAndRow(3, 0), AclPortRangeResult(0).addRange({1, 80, 443}));
    auto const priority = [&](U8 combination, U16 source, U16 destination) {
        rules->entryDelAll();
        rules->entryIs(NerioSwitch::AclHashKey()
                           .aclIdIs(3)
                           .combinationIs(combination)
                           .secondPrefixIs(NerioTest::prefixOf({192, 0, 2, 1}, 32))
                           .protocolIs(1),
                       NerioTest::resultOf(ruleOf(20, true, 5, 1)));
        return priorityFor(
            {.destination = 0xC0000201, .protocol = 6, .transport = {{source, destination, 0}}});
    };
    for (U8 const combination : {U8{0}, U8{1}, U8{3}}) {
        SCOPED_TRACE(int{combination});
        EXPECT_EQ(priority(combination, 9, 80), 20u);
        EXPECT_EQ(priority(combination, 80, 9), 0u);
    }
    EXPECT_EQ(priority(2, 9, 80), 0u);
    EXPECT_EQ(priority(2, 80, 9), 20u);
}

TEST_P(AclWithRanges, TheChipHoldsPortsAgainstRandomRangesAsTheyWereMeant) {
    start(StartMode::cold);
    std::mt19937 random(20268);
    auto const port = [&] { return static_cast<U16>(random() % 3 == 0 ? random() % 4 : random()); };
    std::map<U32, HwAclRange> wanted;  // by ACL and number of the range
    auto const holds = [&](U32 aclId, U32 id, U32 number) {
        auto const found = wanted.find(aclId * 8 + id);
        if (found == wanted.end()) return false;
        auto const& range = found->second;
        return range.isSet() ? range.min() <= number && number <= range.max() : (id & 2) != 0 && number == 0;
    };
    for (int step = 0; step < 600; ++step) {
        U8 const row = random() % 32;
        AclPortRangeResult result(row % 2);
        for (U8 i = 0; i < 4; ++i) {
            U8 const id = static_cast<U8>(row % 2 * 4 + i);
            wanted.erase(row / 2 * 8u + id);
            if (random() % 3 == 0) continue;
            auto const end = port();
            HwAclRange range(id, end, port());
            if ((i & 2) != 0)
                range = random() % 2 == 0 ? HwAclRange(id, 0, end) : HwAclRange(id, end, 0xFFFF);
            result.addRange(range);
            wanted[row / 2 * 8u + id] = range;
        }
        ranges->entryIs(AclPortRangeKey(row), result);
        if (step % 200 == 100) start(StartMode::warm);
        Chip::PortRangeLookup const lookUp(*chip(), *profile);
        for (int i = 0; i < 20; ++i) {
            U8 const aclId = random() % 16;
            U16 const number = port();
            U32 expected = 0;
            for (U32 id = 0; id < 8; ++id)
                expected |= holds(aclId, id, number) ? 1u << id : 0;
            ASSERT_EQ(lookUp.rangesOf(aclId, number, pipeline).holding, expected)
                << int{aclId} << " " << number;
            ASSERT_EQ(lookUp.rangesOf(aclId, number, 0), PortRangeBits()) << "of another pipeline";
        }
    }
}

TEST_P(AclOfPipeline, TablesBehindOneControlRegisterKeepTheirRows) {
    start(StartMode::cold);
    protocols->entryIs(ProtocolRemapKey(6), ProtocolRemapResult(1));
    ruleIs(1, 80, ruleOf(20));
    ranges->entryIs(AclPortRangeKey(6), AclPortRangeResult().windowRangeIs(0, HwAclRange(0, 1, 2)));
    for (auto const mode : {StartMode::warm, StartMode::warm}) {
        for (auto const& table : tables()) {
            auto const verification = Agent::verify(
                *table, [this](auto registers, auto words) { chip()->readRow(registers, words); });
            ASSERT_TRUE(verification.differences.empty())
                << verification.differences.front().hwTable << " " << verification.differences.front().text;
        }
        start(mode);
    }
}

INSTANTIATE_TEST_SUITE_P(Chips, AclOfPipeline,
                         testing::Values(AclChip{2, true}, AclChip{3, false}, AclChip{4, true},
                                         AclChip{4, false}, AclChip{6, true}, AclChip{6, false}),
                         NerioTest::aclChipName);

INSTANTIATE_TEST_SUITE_P(Chips, AclWithRanges, testing::ValuesIn(NerioTest::aclChips(4, 6)),
                         NerioTest::aclChipName);

}  // namespace
