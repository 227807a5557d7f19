#include <gtest/gtest.h>
#include <set>

#include "AclFixture.h"
#include "FailureText.h"
#include "agent/ValueJson.h"

namespace {

using namespace NerioSwitch;
using NerioTest::prefixOf;
using NerioTest::resultOf;
using NerioTest::ruleOf;

template <class Index>
std::string rangeFailure(U32 number) {
    return failureOf<Belmo::RangeException>([&] { Index{number}; });
}

template <class T>
T fromText(std::string const& text) {
    Sorn::CharRange range(text);
    auto value = Sorn::parse<T>(range);
    range.expectEnd();
    return value;
}

template <class T>
T fromJson(char const* text) {
    return Agent::fromJson<T>(Agent::Json::parse(text), Agent::Place());
}

TEST(AclValueTest, IndexesKeepTheirRangesAndSayWhatIsNotAllowed) {
    EXPECT_EQ(HwAclCombinationId(18), HwAclCombinationId());
    EXPECT_EQ(rangeFailure<HwAclCombinationId>(19),
              "NerioSwitch::HwAclCombinationId::value < NerioSwitch::HwAclCombinationId::min or > "
              "NerioSwitch::HwAclCombinationId::invalid not allowed");
    EXPECT_EQ(HwProtocol(15).value(), 15);
    EXPECT_EQ(HwProtocol(), HwProtocol::invalid);
    EXPECT_EQ(rangeFailure<HwProtocol>(16),
              "NerioSwitch::HwProtocol::value < NerioSwitch::HwProtocol::invalid or > "
              "NerioSwitch::HwProtocol::max not allowed");
    EXPECT_EQ(HwAclRangeId(8), HwAclRangeId());
    EXPECT_EQ(rangeFailure<HwAclRangeId>(9),
              "NerioSwitch::HwAclRangeId::value < NerioSwitch::HwAclRangeId::min or > "
              "NerioSwitch::HwAclRangeId::invalid not allowed");
    EXPECT_EQ(AclVrfId(128), AclVrfId());
    EXPECT_EQ(rangeFailure<AclVrfId>(129),
              "NerioSwitch::AclVrfId::value < NerioSwitch::AclVrfId::min or > NerioSwitch::AclVrfId::null "
              "not allowed");
    EXPECT_EQ(HwAclPriority(63).value(), 63);
    EXPECT_EQ(HwAclPriority(), HwAclPriority::invalid);
    EXPECT_EQ(rangeFailure<HwAclPriority>(64),
              "NerioSwitch::HwAclPriority::value < NerioSwitch::HwAclPriority::invalid or > "
              "NerioSwitch::HwAclPriority::max not allowed");
    EXPECT_EQ(HwCounterIndex(0xFFF).value(), 0xFFF);
    EXPECT_EQ(HwCounterIndex(), HwCounterIndex::invalid);
    EXPECT_EQ(rangeFailure<HwCounterIndex>(0x1000),
              "NerioSwitch::HwCounterIndex::value < NerioSwitch::HwCounterIndex::invalid or > "
              "NerioSwitch::HwCounterIndex::max not allowed");
    EXPECT_EQ(HwAclChainId(1).value(), 1);
    EXPECT_EQ(rangeFailure<HwAclChainId>(2),
              "NerioSwitch::HwAclChainId::value < NerioSwitch::HwAclChainId::min or > "
              "NerioSwitch::HwAclChainId::max not allowed");
    EXPECT_EQ(AclIndirectCounterHashKey(0xFFFF).value(), 0xFFFF);
    EXPECT_EQ(rangeFailure<AclIndirectCounterHashKey>(0x10000),
              "NerioSwitch::AclIndirectCounterHashKey::value > 0xFFFF not allowed");
    EXPECT_EQ(AclIndirectCounterHashResult(), 0);
    EXPECT_EQ(rangeFailure<AclIndirectCounterHashResult>(0x10000),
              "NerioSwitch::AclIndirectCounterHashResult::value > 0xFFFF not allowed");
}

TEST(AclValueTest, AKeyStartsWithItsDefaults) {
    EXPECT_EQ(Sorn::text(AclHashKey()),
              "NerioSwitch::AclHashKey(port=0,firstPrefix=0.0.0.0/0,secondPrefix=0.0.0.0/0,aclId=16,"
              "combination=18,protocol=0,portIsZero=false,rangeId=8,vrfId=128,keyFlag=false)");
}

TEST(AclValueTest, ARuleAndAResultStartWithTheirDefaults) {
    EXPECT_EQ(Sorn::text(AclHashResult()),
              "NerioSwitch::AclHashResult(rules=["
              "NerioSwitch::HwAclRule(priority=0,ruleFlag=false,counter=0,rangeId=8),"
              "NerioSwitch::HwAclRule(priority=0,ruleFlag=false,counter=0,rangeId=8)])");
}

TEST(AclValueTest, EachChainHasARule) {
    auto const result = resultOf(ruleOf(1, true, 2, 3), ruleOf(4, false, 5, 6));
    EXPECT_EQ(result.rule(0), ruleOf(1, true, 2, 3));
    EXPECT_EQ(result.rule(1), ruleOf(4, false, 5, 6));
    EXPECT_NE(result, resultOf(ruleOf(1, true, 2, 3)));
    EXPECT_THROW(AclHashResult().ruleIs(2, HwAclRule()), Belmo::RangeException);
}

AclHashKey someKey() {
    return AclHashKey()
        .portIs(80)
        .firstPrefixIs(prefixOf({10, 0, 0, 0}, 8))
        .secondPrefixIs(prefixOf({192, 168, 1, 1}, 32))
        .aclIdIs(3)
        .combinationIs(13)
        .protocolIs(6);
}

/** The key with one attribute changed, for each attribute. */
std::vector<AclHashKey> neighboursOf(AclHashKey const& key) {
    return {
        AclHashKey(key).portIs(81),
        AclHashKey(key).firstPrefixIs(prefixOf({10, 0, 0, 0}, 9)),
        AclHashKey(key).firstPrefixIs(prefixOf({11, 0, 0, 0}, 8)),
        AclHashKey(key).secondPrefixIs(prefixOf({192, 168, 1, 0}, 32)),
        AclHashKey(key).secondPrefixIs(prefixOf({192, 168, 1, 0}, 31)),
        AclHashKey(key).aclIdIs(4),
        AclHashKey(key).combinationIs(14),
        AclHashKey(key).protocolIs(7),
        AclHashKey(key).portIsZeroIs(true),
        AclHashKey(key).rangeIdIs(7),
        AclHashKey(key).vrfIdIs(127),
        AclHashKey(key).keyFlagIs(true),
    };
}

TEST(AclValueTest, EveryAttributeTellsKeysApart) {
    std::set<AclHashKey> keys{someKey()};
    std::set<U32> hashes{someKey().hash(0)};
    std::set<std::array<U64, 2>> numbers{someKey().hashNumbers()};
    for (auto const& other : neighboursOf(someKey())) {
        EXPECT_FALSE(someKey().isEq(other)) << Sorn::text(other);
        EXPECT_TRUE(AclHashKey(other).isEq(other));
        keys.insert(other);
        hashes.insert(other.hash(0));
        numbers.insert(other.hashNumbers());
    }
    EXPECT_EQ(keys.size(), neighboursOf(someKey()).size() + 1);
    EXPECT_EQ(hashes.size(), keys.size());
    EXPECT_EQ(numbers.size(), keys.size());
    EXPECT_NE(someKey().hash(0), someKey().hash(1));
}

TEST(AclValueTest, TheWidestAttributesDoNotRunIntoEachOtherInTheHash) {
    AclHashKey const none = AclHashKey().aclIdIs(0).combinationIs(0).rangeIdIs(0).vrfIdIs(0);
    ASSERT_EQ(none.hashNumbers(), (std::array<U64, 2>{0, 0}));
    std::vector<AclHashKey> const widest{
        AclHashKey(none).portIs(0xFFFF),
        AclHashKey(none).firstPrefixIs(Lanvo::Prefix::null()),
        AclHashKey(none).secondPrefixIs(Lanvo::Prefix::null()),
        AclHashKey(none).aclIdIs(0xFF),
        AclHashKey(none).combinationIs(18),
        AclHashKey(none).protocolIs(15),
        AclHashKey(none).rangeIdIs(8),
        AclHashKey(none).vrfIdIs(128),
        AclHashKey(none).portIsZeroIs(true),
        AclHashKey(none).keyFlagIs(true),
    };
    U64 seen = 0;
    for (auto const& key : widest) {
        U64 const bits = key.hashNumbers()[1];
        EXPECT_NE(bits, 0u) << Sorn::text(key);
        EXPECT_EQ(seen & bits, 0u) << Sorn::text(key);
        seen |= bits;
    }
}

TEST(AclValueTest, AttributesDecideTheOrderInTheirOrder) {
    EXPECT_LT(AclHashKey().portIs(1).aclIdIs(9), AclHashKey().portIs(2).aclIdIs(1));
    EXPECT_LT(AclHashKey().aclIdIs(1).combinationIs(9), AclHashKey().aclIdIs(2).combinationIs(1));
    EXPECT_LT(AclHashKey().vrfIdIs(1).keyFlagIs(true), AclHashKey().vrfIdIs(2));
}

TEST(AclValueTest, TextsReadBack) {
    auto const result = resultOf(ruleOf(1, true, 2, 3), ruleOf(4, false, 5, 6));
    EXPECT_EQ(fromText<AclHashKey>(Sorn::text(someKey())), someKey());
    EXPECT_EQ(fromText<AclHashResult>(Sorn::text(result)), result);
    EXPECT_EQ(
        fromText<AclHashResult>("NerioSwitch::AclHashResult(rules=["
                                "NerioSwitch::HwAclRule(priority=1,ruleFlag=true,counter=2,rangeId=3),"
                                "NerioSwitch::HwAclRule(priority=4,ruleFlag=false,counter=5,rangeId=6)])"),
        result);
    EXPECT_THROW(fromText<AclHashResult>("NerioSwitch::AclHashResult(rules=[])"),
                 Belmo::DeserializationException);
}

TEST(AclValueTest, AResultIsItsRulesInJson) {
    auto const result = resultOf(ruleOf(1, true, 2, 3), ruleOf(4));
    EXPECT_EQ(Agent::toJson(result).dump(),
              R"({"rules":[{"priority":1,"ruleFlag":true,"counter":2,"rangeId":3},)"
              R"({"priority":4,"ruleFlag":false,"counter":0,"rangeId":8}]})");
    EXPECT_EQ(fromJson<AclHashResult>(Agent::toJson(result).dump().c_str()), result);
    EXPECT_EQ(fromJson<AclHashResult>(R"({"rules":[{"priority":7}]})"), resultOf(ruleOf(7)))
        << "what is left out keeps its default";
    EXPECT_EQ(fromJson<AclHashResult>("{}"), AclHashResult());
    EXPECT_THROW(fromJson<AclHashResult>(R"({"rules":[{},{},{}]})"), Agent::JsonException);
}

TEST(AclValueTest, AKeyIsAnObjectInJson) {
    EXPECT_EQ(Agent::toJson(someKey()).dump(),
              R"({"port":80,"firstPrefix":"10.0.0.0/8","secondPrefix":"192.168.1.1/32","aclId":3,)"
              R"("combination":13,"protocol":6,"portIsZero":false,"rangeId":8,"vrfId":128,"keyFlag":false})");
    EXPECT_EQ(fromJson<AclHashKey>(Agent::toJson(someKey()).dump().c_str()), someKey());
    EXPECT_EQ(fromJson<AclHashKey>("{}"), AclHashKey());
    EXPECT_EQ(failureOf<Agent::JsonException>([] { fromJson<AclHashKey>(R"({"combination":19})"); }),
              HwAclCombinationId::rangeText);
}

TEST(AclValueTest, IndirectCountersAreBareNumbersInJson) {
    EXPECT_EQ(Agent::toJson(AclIndirectCounterHashKey(0x8001)).dump(), "32769");
    EXPECT_EQ(fromJson<AclIndirectCounterHashKey>("32769"), 0x8001);
    EXPECT_EQ(fromJson<AclIndirectCounterHashResult>(R"("0xFFF")"), 0xFFF);
    EXPECT_EQ(failureOf<Agent::JsonException>([] { fromJson<AclIndirectCounterHashKey>("65536"); }),
              AclIndirectCounterHashKey::rangeText);
}

}  // namespace
