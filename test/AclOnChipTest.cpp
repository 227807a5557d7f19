#include <gtest/gtest.h>
#include <map>
#include <random>

#include "Sorn/Text.h"

#include "AclFixture.h"
#include "AclPackets.h"

namespace {

using namespace NerioSwitch;
using NerioTest::packetOf;
using NerioTest::resultOf;
using NerioTest::ruleOf;

constexpr auto programmed = NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;

/** Keys of one physical table, no two of which the chip takes for one, and results. */
class RandomRules {
public:
    RandomRules(U8 table, U16 version) : table_(table), version_(version) {}

    AclHashKey key() {
        constexpr U32 ends[] = {7, 11, 15, 15, 15, 18};
        constexpr U32 begins[] = {0, 7, 11, 0, 0, 15};
        U32 const combination = between(begins[table_], ends[table_] - 1);
        AclHashKey key;
        key.combinationIs(combination);
        if (table_ != 0) key.firstPrefixIs(prefix(table_ == 1));
        if (table_ != 1) key.secondPrefixIs(prefix(table_ == 0 || key.firstPrefix() == Lanvo::Prefix()));
        if (table_ == 5) {
            key.vrfIdIs(between(0, 7)).keyFlagIs(between(0, 1) != 0);
            return key;
        }
        key.aclIdIs(static_cast<U8>(between(0, 15)));
        if (combination != 3 && combination != 7 && combination != 11) key.protocolIs(between(1, 15));
        key.portIs(static_cast<U16>(between(0, 3)));
        U32 const kind = combination & 0xF3;
        if (key.port() == 0 && (kind == 1 || kind == 2)) key.portIsZeroIs(between(0, 1) != 0);
        return key;
    }
    AclHashResult result() {
        bool const chains = version_ < 4 && table_ != 5;
        auto const first = ruleOf(between(1, 63), between(0, 1) != 0, between(0, chains ? 0x7FF : 0xFFF),
                                  version_ < 4 || table_ == 5 ? 8 : between(0, 8));
        return resultOf(first, chains ? ruleOf(between(1, 15), between(0, 1) != 0) : HwAclRule());
    }

private:
    U32 between(U32 least, U32 most) { return std::uniform_int_distribution<U32>(least, most)(random_); }
    Lanvo::Prefix prefix(bool present) {
        if (!present && between(0, 3) == 0) return {};
        U32 const length = version_ == 2 ? 32 : between(1, 32);
        // Not all ones, which would be an absent address.
        U32 const address = (between(1, 0xFFFFFFFE) | 1u << 31) & ~(1u << 30);
        return {Lanvo::IpAddr::fromHostOrder(address >> (32 - length) << (32 - length)),
                static_cast<U8>(length)};
    }

    std::mt19937_64 random_{20264};
    U8 table_;
    U16 version_;
};

/** What the chip makes of a rule. */
Chip::AclRule chipRule(HwAclRule const& rule, U8 table, U16 version) {
    Chip::AclRule expected{
        .priority = rule.priority().value(), .flag = rule.ruleFlag(), .counter = rule.counter().value()};
    if (table == 5) {
        expected.counter = 0;
        if (version > 2) expected.flag = true;
    }
    if (rule.rangeId() != HwAclRangeId()) expected.range = rule.rangeId().value();
    return expected;
}

class AclOnChip : public NerioTest::AclChipTest {
protected:
    /** Whether the chip finds each key that was placed, with its rules, and no other. */
    void chipAgrees(U8 physTable, std::map<AclHashKey, AclHashResult> const& wanted, U32 pipeline) {
        Chip::AclLookup const lookUp(chip(), profile());
        for (auto const& [key, result] : wanted) {
            auto const hit = lookUp.find(packetOf(key), key.combination().value(), pipeline);
            bool const placed =
                table().entryHas(key) && table().tableStatus()->entryStatus(key).status() == programmed;
            ASSERT_EQ(hit.has_value(), placed) << Sorn::text(key);
            if (!hit) continue;
            auto const item = table().cachedItem(key);
            EXPECT_EQ(item->getHash(hit->place.way), hit->place.row);
            EXPECT_EQ(hit->rule, chipRule(result.rule(0), physTable, version())) << Sorn::text(key);
            ASSERT_EQ(hit->secondRule.has_value(), physTable != 5 && version() < 4);
            if (hit->secondRule) {
                EXPECT_EQ(*hit->secondRule, chipRule(result.rule(1), physTable, version()));
            }
            EXPECT_EQ(lookUp.find(packetOf(key), key.combination().value(), pipeline ^ 1u), std::nullopt);
        }
    }
};

TEST_P(AclOnChip, TheChipFindsWhatWasPlacedAndNothingElse) {
    for (U8 const physTable : {U8{0}, U8{1}, U8{2}, U8{5}}) {
        SCOPED_TRACE(int{physTable});
        U8 const pipeline = 1;
        startTable(physTable, pipeline);
        RandomRules random(physTable, version());
        std::map<AclHashKey, AclHashResult> wanted;
        for (int i = 0; i < 1200; ++i) {
            auto const key = random.key();
            auto const [entry, isNew] = wanted.emplace(key, random.result());
            if (isNew && i % 4 != 0) table().entryIs(key, entry->second);
        }
        chipAgrees(physTable, wanted, pipeline);
        U32 deleted = 0;
        for (auto const& [key, result] : wanted) {
            if (++deleted % 3 == 0) table().entryDel(key);
        }
        chipAgrees(physTable, wanted, pipeline);
    }
}

INSTANTIATE_TEST_SUITE_P(Chips, AclOnChip, ::testing::ValuesIn(NerioTest::aclChips()),
                         NerioTest::aclChipName);

}  // namespace
