#include "FamilyCases.h"

#include <algorithm>
#include <array>

#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "NerioSwitchTable/NerioTableAclIndirectCounter.h"
#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTableL3Lag.h"
#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"

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
    for (U32 number = 1; number <= 0xFFFF; ++number) {
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

/** What distinguishes the keys of a physical table of the ACL. */
struct AclTable {
    U8 index;
    U8 firstCombination;
    U8 combinations;
    bool firstPrefix;
    bool secondPrefix;
    bool vrf = false;
};
constexpr std::array aclTables{AclTable{0, 0, 7, false, true}, AclTable{1, 7, 4, true, false},
                               AclTable{2, 11, 4, true, true}, AclTable{5, 15, 3, true, true, true}};

/** Keys that differ in the last bits of an address alone; a third of them belong to rules with a port range.
 */
AclHashKey numberedAclKey(AclTable const& table, U16 number) {
    Lanvo::Prefix const varying(Lanvo::IpAddr::fromHostOrder(0x0A010000u | number), 32);
    AclHashKey key;
    key.combinationIs(table.firstCombination + 1).aclIdIs(table.vrf ? 0 : 3);
    table.firstPrefix ? key.firstPrefixIs(varying) : key.secondPrefixIs(varying);
    if (table.vrf) return key.vrfIdIs(2).keyFlagIs(true);
    if (number % 3 == 0) key.rangeIdIs(number % 8);
    return key.protocolIs(1).portIs(443);
}

Lanvo::Prefix randomPrefix(Random& random) {
    auto const length = static_cast<U8>(1 + below(random, 32));
    U32 const address = static_cast<U32>(random()) | 0x80000000u;
    return {Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(length)), length};
}

/** Any key that the table can hold, with what its combination does not look at at its default. */
AclHashKey randomAclKey(Random& random, AclTable const& table) {
    AclHashKey key;
    key.combinationIs(table.firstCombination + below(random, table.combinations));
    if (table.firstPrefix) key.firstPrefixIs(randomPrefix(random));
    if (table.secondPrefix && (!table.firstPrefix || below(random, 2) != 0))
        key.secondPrefixIs(randomPrefix(random));
    if (table.vrf) return key.aclIdIs(0).vrfIdIs(below(random, 8)).keyFlagIs(below(random, 2) != 0);
    key.aclIdIs(static_cast<U8>(below(random, 16))).portIs(static_cast<U16>(below(random, 0xFFFF)));
    auto const combination = key.combination().value();
    auto const kind = combination & 0xF3;
    if (below(random, 3) == 0) key.portIs(0).portIsZeroIs((kind == 1 || kind == 2) && below(random, 2) != 0);
    bool const anyProtocol = combination == 3 || combination == 7 || combination == 11;
    if (!anyProtocol) key.protocolIs(1 + below(random, 15));
    return key;
}

/** The key carries the range of its rule, and a rule has a priority: these read back as they were. */
Json randomAclResult(Random& random, Json const& key) {
    AclHashResult result;
    for (auto const chain : {U8{0}, U8{1}}) {
        auto rule = randomValue<NerioSwitch::HwAclRule>(random);
        result.ruleIs(chain, rule.priorityIs(1 + below(random, 63)).rangeIdIs(key["rangeId"].get<U8>()));
    }
    return Agent::toJson(result);
}

/** Version 6 stores the rule of chain 0 alone, and in physical table 5 nothing of it but the priority. */
Json aclResultFromHardware(AclTable const& table, Json const& result) {
    auto back = Agent::fromJson<AclHashResult>(result, Agent::Place());
    back.ruleIs(1, NerioSwitch::HwAclRule());
    if (table.vrf)
        back.ruleIs(0, NerioSwitch::HwAclRule().priorityIs(back.rule(0).priority()).ruleFlagIs(true));
    return Agent::toJson(back);
}

FamilyCase aclCase(AclTable const& table) {
    std::vector<Json> keys;
    for (U16 const number : crowdedNumbersOf(
             [&](U16 each) { return AclHashTableCuckooEntry(numberedAclKey(table, each), true, true); }))
        keys.push_back(Agent::toJson(numberedAclKey(table, number)));
    Random choice(table.index);
    for (int i = 0; i < 6; ++i)
        keys.push_back(Agent::toJson(randomAclKey(choice, table)));
    return {{"aclHash", "aclHashTable" + std::to_string(table.index), {{"physTableIdx", table.index}}},
            [keys](Random& random, auto const&) { return keys[below(random, keys.size())]; },
            randomAclResult,
            [table](auto const&, auto const& result) { return aclResultFromHardware(table, result); }};
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

std::vector<FamilyCase> allCases() {
    std::vector<FamilyCase> cases = {
        familyCase<PortConfigTable>(
            "portConfig",
            [](auto& random, auto const& profile) { return PortConfigKey(randomPort(random, profile)); }),
        familyCase<L3LagTable>("l3Lag", randomL3Lag),
        lpm11Case(),
        hashTestCase(),
        aclCounterCase(),
    };
    for (auto const& table : aclTables)
        cases.push_back(aclCase(table));
    return cases;
}

}  // namespace

std::vector<FamilyCase> const& familyCases() {
    static std::vector<FamilyCase> const cases = allCases();
    return cases;
}

}  // namespace NerioTest
