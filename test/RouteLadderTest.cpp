// The chip's lookups, after random routes have come and gone, against a trie of the routes that are placed.
#include <gtest/gtest.h>
#include <tuple>

#include "RouteChurn.h"
#include "RouteFixture.h"

namespace {

using namespace NerioTest;

struct Mix {
    char const* name;
    RouteLengths const& lengths;
    std::size_t routes;
};

/** Few routes, which all find a row, and so many that most stages are full. */
Mix const mixes[] = {{"FewLikely", internetLengths, 1000},
                     {"ManyLikely", internetLengths, 20000},
                     {"ManyOfEvenLengths", evenLengths, 20000}};

class RouteLadderTest : public testing::TestWithParam<std::tuple<U32, Mix>> {
protected:
    Mix const& mix() const { return std::get<1>(GetParam()); }
    void expectAgreement() {
        auto const targets = targetsOf(churn);
        std::vector<std::optional<Chip::LpmHit>> hits;
        hits.reserve(targets.size());
        Chip::LpmLookup const lookup(ladder.chip(), ladder.profile(), processor++ % 2);
        for (auto const& [vrf, address] : targets)
            hits.push_back(lookup.find(vrf, address));
        Agreement agreement;
        compare(churn, ladder.agent(), targets, hits, agreement);
        EXPECT_EQ(agreement.differences, 0u) << agreement.difference;
        EXPECT_EQ(agreement.lookups, 4 * churn.routes().size());
        found += agreement.found;
    }

    Ladder ladder{std::get<0>(GetParam())};
    RouteChurn churn{ladder.agent(), std::get<0>(GetParam()), static_cast<U8>(std::get<0>(GetParam())),
                     mix().lengths};
    U32 processor = 0;
    U64 found = 0;
};

TEST_P(RouteLadderTest, TheChipAgreesWithATrieOfThePlacedRoutes) {
    churn.addMany(mix().routes);
    expectAgreement();
    bool const isCrowded = mix().routes > 10000;
    EXPECT_EQ(ladder.agent().counts().waitingRoutes > 0, isCrowded);
    for (int batch = 0; batch < 2; ++batch) {
        churn.change(mix().routes / 4);
        expectAgreement();
    }
    EXPECT_GT(found, mix().routes) << "answers are compared, and not only their absence";
    churn.withdrawAll();
    EXPECT_EQ(ladder.agent().routes(), 0u);
    Chip::LpmLookup const lookup(ladder.chip(), ladder.profile());
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(lookup.find(churn.randomVrf(), churn.randomAddress()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Routes, RouteLadderTest,
                         testing::Combine(testing::Values(4u, 8u, 32u), testing::ValuesIn(mixes)),
                         [](auto const& given) {
                             return std::string(std::get<1>(given.param).name) + "In" +
                                    std::to_string(std::get<0>(given.param)) + "Vrfs";
                         });

TEST(RouteLadder, ARowThatTheChipLostIsADifference) {
    Ladder ladder;
    RouteChurn churn(ladder.agent(), 1, 4, internetLengths);
    churn.addMany(1000);
    auto const targets = targetsOf(churn);
    Chip::LpmLookup const lookup(ladder.chip(), ladder.profile());
    auto const differences = [&] {
        std::vector<std::optional<Chip::LpmHit>> hits;
        for (auto const& [vrf, address] : targets)
            hits.push_back(lookup.find(vrf, address));
        Agreement agreement;
        compare(churn, ladder.agent(), targets, hits, agreement);
        return agreement.differences;
    };
    EXPECT_EQ(differences(), 0u);
    auto const& [vrf, address] = targets.front();
    auto const hit = lookup.find(vrf, address).value();
    ASSERT_NE(hit.stage, 11);
    auto& chip = ladder.chip();
    for (auto const* data : {"hash_data0", "hash_data1", "hash_data2", "hash_data3"})
        chip.write(chip.address(std::string("ingress/processor_l3[0]/") + data), 0);
    U32 const number = (32u - hit.stage) / 3;
    chip.write(chip.address("ingress/processor_l3[0]/hash_ctl"),
               hit.place.row | U32{hit.place.way} << 14 | 1u << 17 | number << 18);
    EXPECT_GE(differences(), 1u);
}

TEST(RouteTrie, FindsTheLongestRouteOfTheVrf) {
    RouteTrie trie;
    EXPECT_FALSE(trie.match(1, 0x0A010203).has_value());
    trie.add(route(0x0A000000, 8, 1), 5);
    trie.add(route(0x0A010200, 24, 1), 6);
    trie.add(route(0x0A010203, 32, 1), 7);
    trie.add(route(0, 0, 2), 8);
    EXPECT_EQ(trie.match(1, 0x0A010203)->nexthop, 7u);
    EXPECT_EQ(trie.match(1, 0x0A010204)->length, 24u);
    EXPECT_EQ(trie.match(1, 0x0AFFFFFF)->nexthop, 5u);
    EXPECT_FALSE(trie.match(1, 0x0B000000).has_value());
    EXPECT_EQ(trie.match(2, 0x0B000000)->nexthop, 8u);
}

}  // namespace
