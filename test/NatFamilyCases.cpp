#include "NatFamilyCases.h"

#include "CrowdedKeys.h"
#include "NatFixture.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;
using NerioSwitch::NatType;

namespace {

/** A case of crowded keys and of results that say no more than rows hold. */
template <class Key, class RandomResult>
FamilyCase natCase(Belmo::String const& name, U8 pipeline, std::vector<Key> const& keys,
                   RandomResult const& randomResult) {
    return {{name, name, {{"pipeline", pipeline}}},
            [keys](Random& random, auto const&) { return Agent::toJson(keys[below(random, keys.size())]); },
            [randomResult](Random& random, auto const&) { return Agent::toJson(randomResult(random)); },
            [](auto const&, auto const& result) { return result; }};
}

template <class Result>
Result randomSession(Random& random) {
    return Result()
        .validIs(true)
        .protoIs(below(random, 4))
        .natSessionIdIs(below(random, 0x20000))
        .trapToCpuIs(below(random, 2) != 0)
        .l3LagIndexIs(below(random, 64))
        .rewriteIndexIs(below(random, 64));
}

/** Rows of the default preset's version tell a filter's length by its address alone. */
NatMatchKey numberedMatch(U64 number) {
    return NatMatchKey()
        .natTypeIs(NatType::destinationPort)
        .dipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(number)))
        .dportIs(static_cast<U16>(number >> 32))
        .filterPfxIs({ip(10, 128, 0, 0), 9})
        .ingressProfileIdIs(5);
}

FamilyCase natMatchCase() {
    std::vector<NatMatchKey> keys;
    auto const rowOf = [](U64 number, U8 table) {
        return NatMatchTableCuckooEntry(numberedMatch(number), false).getHash(table);
    };
    for (U64 const number : crowdedNumbers(rowOf, 48, 3))
        keys.push_back(numberedMatch(number));
    keys.push_back(NatMatchKey().sipIs(ip(10, 0, 0, 1)));
    keys.push_back(NatMatchKey().natTypeIs(NatType::sourcePort).sipIs(ip(10, 0, 0, 1)).sportIs(80));
    keys.push_back(NatMatchKey().natTypeIs(NatType::destinationAddress).filterPfxIs({}));
    return natCase("natMatch", 0, keys, [](Random& random) {
        return randomSession<NatMatchResult>(random).useAclIs(below(random, 2) != 0);
    });
}

NatMatchKey numberedFlow(U64 number, U8 type) {
    return NatMatchKey()
        .natTypeIs(type)
        .sipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(number)))
        .sportIs(static_cast<U16>(number >> 32))
        .dipIs(ip(192, 0, 2, 1))
        .dportIs(443)
        .ingressProfileIdIs(3);
}

/** Types are not hashed, so keys that differ in them share all their rows. */
FamilyCase natDynMatchCase() {
    std::vector<NatMatchKey> keys;
    auto const rowOf = [](U64 number, U8 table) {
        return NatDynMatchTableCuckooEntry(numberedFlow(number, 6)).getHash(table);
    };
    U8 type = 6;
    for (U64 const number : crowdedNumbers(rowOf, 48, 4)) {
        keys.push_back(numberedFlow(number, type));
        type = type == 8 ? U8{6} : static_cast<U8>(type + 1);
        if (keys.size() % 3 != 0) keys.push_back(numberedFlow(number, type));
    }
    return natCase("natDynMatch", 1, keys,
                   [](Random& random) { return randomSession<NatDynMatchResult>(random); });
}

NatRewriteKey numberedRewrite(U64 number, bool isUnicast) {
    NatRewriteKey key;
    key.isUnicastIs(isUnicast).natSessionIdIs(number & 0x1FFFF).oddPortIs((number >> 24 & 1) != 0);
    if (isUnicast) return key.natProfileIdIs(number >> 17 & 0x3F).secondTnatIs((number >> 23 & 1) != 0);
    return key.vlanGroupIdIs(number >> 17 & 0xF).vlanGroupMemberIdxIs(number >> 21 & 7);
}

/** Unicast and multicast keys of the same bits share all their rows. */
FamilyCase natRewriteCase() {
    std::vector<NatRewriteKey> keys;
    auto const rowOf = [](U64 number, U8 table) {
        return NatRewriteTableCuckooEntry(numberedRewrite(number, true)).getHash(table);
    };
    for (U64 const number : crowdedNumbers(rowOf, 25, 4)) {
        keys.push_back(numberedRewrite(number, true));
        if (keys.size() % 3 != 0) keys.push_back(numberedRewrite(number, false));
    }
    return natCase("natRewrite", 1, keys, [](Random& random) {
        return NatRewriteResult()
            .validIs(true)
            .newIpIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random())))
            .newPortIs(static_cast<U16>(random()))
            .checksumCorrectionIs(static_cast<U16>(random()));
    });
}

}  // namespace

std::vector<FamilyCase> natFamilyCases() {
    return {natMatchCase(), natDynMatchCase(), natRewriteCase()};
}

}  // namespace NerioTest
