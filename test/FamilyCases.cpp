#include "FamilyCases.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Layer2FamilyCases.h"
#include "MulticastFamilyCases.h"
#include "NatFamilyCases.h"
#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "NerioSwitchTable/NerioTableAclIndirectCounter.h"
#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTableL3Lag.h"
#include "NerioSwitchTable/NerioTableLpm.h"
#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "RandomAcl.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;
using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;
using NerioSwitch::ProfileInfo;

namespace {

NerioSwitch::ChipPortId randomPort(Random& random, ProfileInfo const& profile) {
    return below(random, profile.numPorts);
}

/** A key's rows in the two hash tables of a family, by a number of 16 bits that the key is made of. */
using RowsOfNumber = std::function<std::array<U32, 2>(U16)>;

/**
 * Numbers whose keys crowd in few rows, so that placing one moves others, and some find no place. A number's
 * rows follow from its bits by exclusive or: where some numbers share their row in table 0, and others theirs
 * in table 1, all combinations of them share as few rows.
 */
std::vector<U16> crowdedNumbers(RowsOfNumber const& rows) {
    constexpr std::size_t each = 6;
    std::array<std::vector<U16>, 2> sharing{{{0}, {0}}};
    auto const isFull = [&] { return sharing[0].size() == each && sharing[1].size() == each; };
    for (U32 number = 1; number <= 0xFFFF && !isFull(); ++number) {
        auto const found = rows(static_cast<U16>(number));
        for (std::size_t table = 0; table < 2; ++table) {
            auto& numbers = sharing[table];
            if (numbers.size() < each && found[table] == rows(0)[table])
                numbers.push_back(static_cast<U16>(number));
        }
    }
    std::vector<U16> crowded;
    for (U16 const first : sharing[0]) {
        for (U16 const second : sharing[1])
            crowded.push_back(first ^ second);
    }
    // Some of them, for about as many keys as there are rows.
    Random random(each);
    std::shuffle(crowded.begin(), crowded.end(), random);
    crowded.resize(3 * each);
    return crowded;
}

/** The numbers that a family's keys are drawn from; `item` makes a key's item. */
template <class MakeItem>
std::vector<U16> crowdedNumbersOf(MakeItem const& item) {
    return crowdedNumbers([&](U16 number) {
        auto const made = item(number);
        return std::array{made.getHash(0), made.getHash(1)};
    });
}

/** A result of 0 makes a row an empty one, and is left to the family's own tests. */
FamilyCase hashTestCase() {
    auto const numbers =
        crowdedNumbersOf([](U16 number) { return HashTestTableCuckooEntry(HashTestKey(number)); });
    return {{"hashTest", "hashTest", {}},
            [numbers](Random& random, auto const&) { return Json(numbers[below(random, numbers.size())]); },
            [](Random& random, auto const&) { return Json(1 + below(random, 1000)); },
            [](auto const&, auto const& result) { return result; }};
}

/** The key 0 makes a row an empty one. */
FamilyCase aclCounterCase() {
    auto numbers = crowdedNumbersOf([](U16 number) {
        return AclIndirectCounterHashTableCuckooEntry(NerioSwitch::AclIndirectCounterHashKey(number));
    });
    std::erase(numbers, 0);
    return {{"aclIndirectCounterHash", "aclIndirectCounterHash", {{"pipelinePair", 1}}},
            [numbers](Random& random, auto const&) { return Json(numbers[below(random, numbers.size())]); },
            [](Random& random, auto const&) { return Json(below(random, 0x2000)); },
            [](auto const&, auto const& result) { return Json(result.template get<U32>() & 0xFFF); }};
}

/** Keys of a physical table that differ in the last bits of an address alone; a third of those that can
 * belong to rules with a port range. */
AclHashKey numberedAclKey(U8 physTableIdx, U16 number) {
    Lanvo::Prefix const varying(Lanvo::IpAddr::fromHostOrder(0x0A010000u | number), 32);
    AclHashKey key;
    key.combinationIs(AclCombinations::of(physTableIdx).first + 1);
    physTableIdx == 0 ? key.secondPrefixIs(varying) : key.firstPrefixIs(varying);
    if (physTableIdx == 5) return key.aclIdIs(0).vrfIdIs(2).keyFlagIs(true);
    if (number % 3 == 0) key.rangeIdIs(number % 8);
    return key.aclIdIs(3).protocolIs(1).portIs(443);
}

/** The key carries the range of its rule, and a rule has a priority: these read back as they were. */
Json randomResultOfAclKey(Random& random, Json const& key) {
    AclHashResult result;
    for (auto const chain : {U8{0}, U8{1}}) {
        auto rule = randomValue<NerioSwitch::HwAclRule>(random);
        result.ruleIs(chain, rule.priorityIs(1 + below(random, 63)).rangeIdIs(key["rangeId"].get<U8>()));
    }
    return Agent::toJson(result);
}

/** Version 6 stores the rule of chain 0 alone, and in physical table 5 nothing of it but the priority. */
Json aclResultFromHardware(U8 physTableIdx, Json const& result) {
    auto back = Agent::fromJson<AclHashResult>(result, Agent::Place());
    back.ruleIs(1, NerioSwitch::HwAclRule());
    if (physTableIdx == 5)
        back.ruleIs(0, NerioSwitch::HwAclRule().priorityIs(back.rule(0).priority()).ruleFlagIs(true));
    return Agent::toJson(back);
}

/** Crowded keys, and some that are anything that the default preset's chip can hold. */
FamilyCase aclCase(U8 physTableIdx) {
    auto const numbers = crowdedNumbersOf([physTableIdx](U16 number) {
        return AclHashTableCuckooEntry(numberedAclKey(physTableIdx, number), true, true);
    });
    std::vector<Json> keys;
    keys.reserve(numbers.size());
    for (U16 const number : numbers)
        keys.push_back(Agent::toJson(numberedAclKey(physTableIdx, number)));
    Random choice(physTableIdx);
    for (int i = 0; i < 6; ++i)
        keys.push_back(Agent::toJson(randomAclKey(choice, physTableIdx, 6)));
    return {{"aclHash", "aclHashTable" + std::to_string(physTableIdx), {{"physTableIdx", physTableIdx}}},
            [keys](Random& random, auto const&) { return keys[below(random, keys.size())]; },
            randomResultOfAclKey,
            [physTableIdx](auto const&, auto const& result) {
                return aclResultFromHardware(physTableIdx, result);
            }};
}

/** A row holds mask lengths below 12; this version the first one only. Keys of all VRFs, a few of each. */
FamilyCase lpm11Case() {
    auto const randomKey = [](Random& random, ProfileInfo const& profile) {
        auto const address =
            Lanvo::IpAddr::fromHostOrder(static_cast<U32>(below(random, 4) << 30 | 1u << 21));
        return Agent::toJson(
            NerioSwitch::LpmKey(static_cast<U8>(below(random, profile.numVrfs)), Lanvo::Prefix(address, 11)));
    };
    auto const randomResult = [](Random& random, Json const&) {
        auto const nexthop = below(random, EntryCellResult::maxNexthop + 1);
        auto const cell = EntryCellResult()
                              .nexthopIndexesIs(below(random, 4) == 0 ? EntryCellResult().nexthopIndexes()
                                                                      : NerioSwitch::NexthopIndexes(nexthop))
                              .maskLength0Is(below(random, 2) == 0 ? MaskLength() : below(random, 12))
                              .realPrefixLenIs(static_cast<U8>(below(random, 12)));
        return Agent::toJson(Lpm11Result().cellResultIs(cell).cpuTrapIs(below(random, 2) != 0));
    };
    return {{"lpm11", "lpm11", {}}, randomKey, randomResult, [](auto const&, auto const& result) {
                return result;
            }};
}

NerioSwitch::L3LagIndex randomL3Lag(Random& random, ProfileInfo const&) {
    return below(random, L3LagRow::lastRow + 1);
}

/** Whole routes touch no hardware, so none comes back. */
FamilyCase lpmRouteCase() {
    return {{"lpm", "lpm", {}},
            [](Random& random, auto const&) {
                auto const length = static_cast<U8>(below(random, 33));
                U32 const address = static_cast<U32>(below(random, 8)) << 29 & Lanvo::Prefix::mask(length);
                return Agent::toJson(NerioSwitch::LpmKey(0, {Lanvo::IpAddr::fromHostOrder(address), length}));
            },
            [](Random& random, auto const&) {
                auto const cell = randomValue<EntryCellResult>(random);
                return Agent::toJson(LpmResult().cellResultIs(below(random, 4), cell));
            },
            [](auto const&, auto const&) { return Json(); }};
}

/** A key of a stage by a number; of the shortest keys two of its bits are none. */
NerioSwitch::LpmKey numberedLpmKey(LpmStage const& stage, U16 number) {
    U32 const address = (number >> 2 & 0xFFFu) << 20 | (number & 0xC000u) << 4;
    return {static_cast<U8>(number & 3),
            {Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(stage.prefixBaseLen)),
             stage.prefixBaseLen}};
}

/** A result of lengths that the stage serves. */
LpmResult randomLpmResult(LpmStage const& stage, Random& random) {
    auto const length = [&] { return stage.prefixBaseLen + below(random, 3); };
    auto const maskLength = [&] { return below(random, 4) == 0 ? MaskLength() : MaskLength(length()); };
    LpmResult result;
    for (U8 i = 0; i < 4; ++i) {
        EntryCellResult cell;
        if (below(random, 4) != 0) cell.nexthopIndexesIs(below(random, EntryCellResult::maxNexthop + 1));
        cell.maskLength0Is(maskLength())
            .maskLength1Is(maskLength())
            .realPrefixLenIs(static_cast<U8>(length()));
        result.cellResultIs(i, cell);
    }
    return result.cpuTrapIs(below(random, 2) != 0);
}

template <U8 number>
FamilyCase lpmStageCase() {
    constexpr auto const& stage = lpmStage(number);
    auto const name = "lpm" + std::to_string(number);
    std::vector<Json> keys;
    for (U16 const each : crowdedNumbersOf(
             [](U16 any) { return LpmStageCuckooEntry<number>(numberedLpmKey(lpmStage(number), any)); }))
        keys.push_back(Agent::toJson(numberedLpmKey(stage, each)));
    return {
        {name, name, {}},
        [keys](Random& random, auto const&) { return keys[below(random, keys.size())]; },
        [](Random& random, auto const&) { return Agent::toJson(randomLpmResult(lpmStage(number), random)); },
        [](auto const&, auto const& result) { return result; }};
}

std::vector<FamilyCase> allCases() {
    std::vector<FamilyCase> cases = {
        familyCase<PortConfigTable>(
            "portConfig",
            [](auto& random, auto const& profile) { return PortConfigKey(randomPort(random, profile)); }),
        familyCase<L3LagTable>("l3Lag", randomL3Lag),
        lpm11Case(),
        hashTestCase(),
        aclCounterCase(),
        lpmRouteCase(),
        lpmStageCase<14>(),
        lpmStageCase<17>(),
        lpmStageCase<20>(),
        lpmStageCase<23>(),
        lpmStageCase<26>(),
        lpmStageCase<29>(),
        lpmStageCase<32>(),
    };
    for (auto const physTableIdx : {U8{0}, U8{1}, U8{2}, U8{5}})
        cases.push_back(aclCase(physTableIdx));
    for (auto&& natCase : natFamilyCases())
        cases.push_back(std::move(natCase));
    for (auto&& multicastCase : multicastFamilyCases())
        cases.push_back(std::move(multicastCase));
    for (auto&& layer2Case : layer2FamilyCases())
        cases.push_back(std::move(layer2Case));
    return cases;
}

}  // namespace

std::vector<FamilyCase> const& familyCases() {
    static std::vector<FamilyCase> const cases = allCases();
    return cases;
}

}  // namespace NerioTest
