#include "MulticastFamilyCases.h"

#include "CrowdedKeys.h"
#include "NerioSwitchTable/NerioTableL3FloodArp.h"
#include "NerioSwitchTable/NerioTableL3FloodBitmap.h"
#include "NerioSwitchTable/NerioTableSG.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "NerioSwitchTable/NerioTableVlanGroup.h"
#include "agent/SGJson.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;
using Agent::toJson;
using NerioSwitch::IngressPortMask;
using NerioSwitch::ProfileInfo;

namespace {

U64 constexpr allPorts = (U64{1} << 53) - 1;

/** A key of which the source, the group's low bits and the VLAN's low ones are a number of 56 bits. */
SGKey numberedMulticastKey(U64 number) {
    NerioSwitch::MrouteKey const route(
        {Lanvo::IpAddr::fromHostOrder(static_cast<U32>(number)), 32},
        {Lanvo::IpAddr::fromHostOrder(0xE0000000u | (number >> 32 & 0xFFFF)), 32}, number >> 48 & 0xFF);
    return SGKey::multicastKey(route);
}

SGKey numberedUnicastKey(U64 number) {
    return SGKey::unicastKey(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(number)),
                             Lanvo::IpAddr::fromHostOrder(0x0A000000u | (number >> 32 & 0xFFFFFF)), 5);
}

/** 32 keys of one kind in 12 rows. */
template <class MakeKey>
void addCrowdedSGKeys(MakeKey const& makeKey, std::vector<Json>& keys) {
    auto const rowOf = [&](U64 number, U8 way) { return SGTableCuckooEntry(makeKey(number)).getHash(way); };
    U64 const sameRows = rowKeepers(rowOf, 56, {0, 1, 2}, 1).front();
    for (U64 const number : crowdedNumbers(rowOf, 56, 3)) {
        keys.push_back(toJson(makeKey(number)));
        keys.push_back(toJson(makeKey(number ^ sameRows)));
    }
}

SGResult randomSGResult(Random& random, bool multicast) {
    SGResult result;
    if (multicast) {
        result.dataIs(
            SGResult::Multicast().vlanGroupIdIs(below(random, 18)).portMaskIs(below(random, allPorts + 1)));
    } else {
        result.dataIs(SGResult::Unicast().l3LagIndexIs(below(random, 64)).rewriteIndexIs(below(random, 256)));
    }
    return result.lookupTypeIs(randomValue<SGLookupType>(random))
        .natTypeIs(randomValue<SGNatType>(random))
        .natSessionIdIs(static_cast<U32>(below(random, 0x40000)))
        .natEnabledIs(below(random, 2) != 0);
}

/** Rows hold 4 bits of a group, 6 of a rewrite and 17 of a session. */
Json sgComesBack(Json const& json) {
    auto result = Agent::fromJson<SGResult>(json, Agent::Place());
    if (result.isMulticastResult()) {
        auto multicast = result.data().multicast();
        result.dataIs(multicast.vlanGroupIdIs(multicast.vlanGroupId().value() & 15));
    } else {
        auto unicast = result.data().unicast();
        result.dataIs(unicast.rewriteIndexIs(unicast.rewriteIndex().value() & 63));
    }
    return toJson(result.natSessionIdIs(result.natSessionId() & 0x1FFFF));
}

FamilyCase sgCase() {
    std::vector<Json> keys;
    addCrowdedSGKeys(numberedMulticastKey, keys);
    for (U64 const number : {1u, 2u, 3u, 4u})
        keys.push_back(toJson(numberedUnicastKey(number)));
    return {{"sG", "sG", {}},
            [keys](Random& random, auto const&) { return keys[below(random, keys.size())]; },
            [](Random& random, Json const& key) {
                return toJson(randomSGResult(random, key["data"].contains("multicast")));
            },
            [](auto const&, auto const& result) { return sgComesBack(result); }};
}

/** A key as it comes back: of no source. Groups of all kinds, by the low 28 bits. */
NerioSwitch::MrouteKey numberedStarGKey(U64 number) {
    return {{{}, 32},
            {Lanvo::IpAddr::fromHostOrder(0xE0000000u | static_cast<U32>(number & 0xFFFFFFF)), 32},
            number >> 28 & 0x3FF};
}

FamilyCase starGCase() {
    auto const rowOf = [](U64 number, U8 way) {
        return StarGTableCuckooEntry(numberedStarGKey(number)).getHash(way);
    };
    auto keepers = rowKeepers(rowOf, 38, {0}, 2);
    for (U64 const number : rowKeepers(rowOf, 38, {1}, 2))
        keepers.push_back(number);
    std::vector<Json> keys;
    for (U64 const number : spanOf(keepers))
        keys.push_back(toJson(numberedStarGKey(number)));
    return {{"starG", "starG", {}},
            [keys](Random& random, auto const&) { return keys[below(random, keys.size())]; },
            [](Random& random, auto const&) {
                return toJson(
                    StarGResult().vlanGroupIdIs(below(random, 18)).portMaskIs(below(random, allPorts + 1)));
            },
            [](auto const&, auto const& json) {
                auto result = Agent::fromJson<StarGResult>(json, Agent::Place());
                return toJson(result.vlanGroupIdIs(result.vlanGroupId().value() & 15));
            }};
}

NerioSwitch::L3FloodId randomNexthop(Random& random, ProfileInfo const&) {
    return below(random, 128);
}

FamilyCase l3FloodArpCase() {
    return {{"l3FloodArp", "l3FloodArp", {}},
            [](Random& random, auto const& profile) { return toJson(randomNexthop(random, profile)); },
            [](Random& random, auto const&) {
                std::array<U8, 6> bytes{};
                for (auto& byte : bytes)
                    byte = static_cast<U8>(below(random, 2) * below(random, 256));
                bool const empty = below(random, 8) == 0;
                return toJson(
                    empty
                        ? L3FloodArpResult()
                        : L3FloodArpResult().ethAddrIs(Lanvo::EthAddr(bytes)).vlanIdIs(below(random, 4095)));
            },
            [](auto const&, auto const& result) {
                return result == toJson(L3FloodArpResult()) ? Json() : result;
            }};
}

/** Rows have no bit for the CPU. */
FamilyCase l3FloodBitmapCase() {
    return {{"l3FloodBitmap", "l3FloodBitmap", {{"numFloodsForEcmp", 8}}},
            [](Random& random, auto const& profile) { return toJson(randomNexthop(random, profile)); },
            [](Random& random, auto const&) {
                U64 const ports = below(random, 4) == 0 ? 0 : below(random, IngressPortMask::cpu);
                U64 const cpu = below(random, 2) == 0 ? 0 : IngressPortMask::cpu;
                return toJson(L3FloodBitmapResult().portMaskIs(ports | cpu));
            },
            [](auto const&, auto const& json) {
                auto const mask = Agent::fromJson<L3FloodBitmapResult>(json, Agent::Place()).portMask();
                U64 const ports = mask.value() & (IngressPortMask::cpu - 1);
                return ports == 0 ? Json() : toJson(L3FloodBitmapResult().portMaskIs(ports));
            }};
}

/** Of a row come back the VLANs in use alone. */
FamilyCase vlanGroupCase() {
    return {{"vlanGroup", "vlanGroup", {}},
            [](Random& random, ProfileInfo const& profile) {
                return toJson(NerioSwitch::VlanGroupKey(below(random, profile.numPorts), below(random, 16)));
            },
            [](Random& random, auto const&) {
                VlanGroupResult result;
                for (U8 i = 0; i < VlanGroupResult::places; ++i)
                    result.groupIs(i, 1 + below(random, 4094));
                return toJson(result.numVlansIs(static_cast<U8>(below(random, 9))));
            },
            [](auto const&, auto const& json) {
                auto result = Agent::fromJson<VlanGroupResult>(json, Agent::Place());
                for (U8 i = result.numVlans(); i < VlanGroupResult::places; ++i)
                    result.groupDel(i);
                return result == VlanGroupResult() ? Json() : toJson(result);
            }};
}

}  // namespace

std::vector<FamilyCase> multicastFamilyCases() {
    return {sgCase(), starGCase(), l3FloodArpCase(), l3FloodBitmapCase(), vlanGroupCase()};
}

}  // namespace NerioTest
