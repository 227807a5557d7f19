#include "CasesOfProfile.h"

#include <algorithm>
#include <set>
#include <utility>

#include "NerioSwitchTable/NerioAclRow.h"
#include "NerioSwitchTable/NerioCoppRegisterMapping.h"
#include "NerioSwitchTable/NerioTableCopp.h"
#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "NerioSwitchTable/NerioTableSG.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "RandomAcl.h"
#include "agent/SGJson.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;
using Agent::toJson;
using NerioSwitch::ProfileHwApi;
using NerioSwitch::ProfileInfo;
using NerioSwitch::TableLayoutEnum;

namespace {

/** Lets a case draw such keys only. */
template <class Holds>
void keysAre(FamilyCase& family, Holds holds) {
    family.randomKey = [drawn = family.randomKey, holds](Random& random, ProfileInfo const& profile) {
        auto key = drawn(random, profile);
        while (!holds(key))
            key = drawn(random, profile);
        return key;
    };
}

/** Lets what comes back from a restart be looked at once more, unless nothing does. */
template <class Change>
void backIs(FamilyCase& family, Change change) {
    family.comesBack = [before = family.comesBack, change](Json const& key, Json const& result) {
        auto back = before(key, result);
        if (!back.is_null()) change(back);
        return back;
    };
}

/** A key without lengths: an address that its row has a place for, but which is absent, reads back with one.
 */
NerioSwitch::AclHashKey withoutLengths(NerioSwitch::AclHashKey key) {
    auto const& layout = aclKeyLayout(key.combination(), false);
    Lanvo::Prefix const absent({}, layout.absentLength);
    if (layout.firstAddress.width > 0 && key.firstPrefix().address().hostOrder() == 0)
        key.firstPrefixIs(absent);
    if (layout.secondAddress.width > 0 && key.secondPrefix().address().hostOrder() == 0)
        key.secondPrefixIs(absent);
    return key;
}

/** Old rows hold no ranges and rules of two chains, and the oldest no lengths of addresses. */
void aclOf(ProfileInfo const& profile, FamilyCase& family) {
    auto const version = profile.hwApi.majorVersion();
    if (version > 3) return;
    auto const table = static_cast<U8>(family.spec.numbers.at("physTableIdx"));
    keysAre(family, [version](Json const& json) {
        auto const key = Agent::fromJson<NerioSwitch::AclHashKey>(json, Agent::Place());
        auto const isWhole = [](Lanvo::Prefix const& prefix) {
            return prefix.address().hostOrder() == 0 || prefix.len() == 32;
        };
        bool const isHeld = version > 2 || (isWhole(key.firstPrefix()) && isWhole(key.secondPrefix()));
        return isHeld && key.rangeId() == NerioSwitch::AclHashKey().rangeId();
    });
    if (version == 2) {
        family.randomKey = [drawn = family.randomKey](Random& random, ProfileInfo const& profileOfKey) {
            auto const key = drawn(random, profileOfKey);
            return toJson(withoutLengths(Agent::fromJson<NerioSwitch::AclHashKey>(key, Agent::Place())));
        };
    }
    family.randomResult = [table, version](Random& random, auto const&) {
        return toJson(randomAclResult(random, table, version));
    };
    family.comesBack = [](auto const&, auto const& result) { return result; };
}

/** Rows tell of ACL and NAT since version 4, and of a NAT profile since version 7. */
void vlanMembershipOf(ProfileInfo const& profile, FamilyCase& family) {
    auto const version = profile.vlanRegVer;
    auto const none = toJson(VlanMembershipResult());
    backIs(family, [version, none](Json& back) {
        if (version < 4) {
            for (auto const* map : {"aclId", "aclEnable", "aclDefaultPermit", "natEnable"})
                back[map] = Json::object();
        }
        if (version < 7) {
            back["natIngressProfileId"] = Json::object();
            if (version > 3 && !back["natEnable"].empty()) back["natId"] = Json{{"0", 0}};
        }
        if (back == none) back = Json();
    });
}

/** A cell's first mask length has bits since API 5.1. */
void lpm11Of(ProfileInfo const& profile, FamilyCase& family) {
    if (Lpm11Row(profile.hwApi).maskLength0.width > 0) return;
    family.randomResult = [drawn = family.randomResult](Random& random, Json const& key) {
        auto result = drawn(random, key);
        result["cellResult"]["maskLength0"] = toJson(EntryCellResult().maskLength0());
        return result;
    };
}

/** Translation by source and destination is a matter of the NAT profile, and its sessions of API 6 as well.
 */
void sgOf(ProfileInfo const& profile, FamilyCase& family) {
    bool const translates = profile.natProfile;
    bool const hasSessions = translates && profile.hwApi.majorVersion() >= 6;
    if (hasSessions) return;
    if (!translates) keysAre(family, [](Json const& key) { return key["data"].contains("multicast"); });
    backIs(family, [translates](Json& back) {
        auto result = Agent::fromJson<SGResult>(back, Agent::Place());
        if (!translates) result.lookupTypeIs(static_cast<SGLookupType>(0));
        back = toJson(result.natTypeIs(static_cast<SGNatType>(0)).natSessionIdIs(0).natEnabledIs(false));
    });
}

/**
 * Before API 6.2 a limiter is one number, and comes back unless it is the default one. So does the number 0,
 * which a deletion writes.
 */
void coppOf(ProfileInfo const& profile, FamilyCase& family) {
    keysAre(family, [version = profile.hwApi](Json const& key) {
        return !coppRegisterMapping(version, {}, {})->getRegister(key.get<U32>())->address(0).empty();
    });
    if (profile.hwApi >= ProfileHwApi(6, 2)) return;
    family.randomResult = [](Random& random, Json const& key) {
        bool const isDefault = below(random, 8) == 0;
        U64 const limit = isDefault ? CoppEntry::defaultValue(key.get<U32>()) : 1 + below(random, 0xFFFFFFFE);
        return toJson(CoppEntry().resultIs(static_cast<U32>(limit)));
    };
    family.deletedComesBack = toJson(CoppEntry().resultIs(0));
    family.comesBack = [](Json const& key, Json const& result) {
        auto const limit = result["result"].get<U32>();
        bool const isDefault = limit == CoppEntry::defaultValue(key.get<U32>());
        return isDefault ? Json() : toJson(CoppEntry().resultIs(limit));
    };
    family.restartWrites = [back = family.comesBack](Json const& key, Json const& result) {
        return back(key, result).is_null() ? U64{0} : U64{3};
    };
}

using StageRows = std::set<std::pair<U8, U32>>;

/** The rows, by way, in which the keys of the stage of routes of 27 to 29 bits may stand. */
StageRows rowsOfLpm29(ProfileInfo const& profile) {
    StageRows rows;
    auto const stage =
        std::ranges::find(familyCases(), "lpm29", [](auto const& each) { return each.spec.family; });
    Random random(29);
    for (int i = 0; i < 200; ++i) {
        auto const key =
            Agent::fromJson<NerioSwitch::LpmKey>(stage->randomKey(random, profile), Agent::Place());
        for (U8 way = 0; way < 2; ++way)
            rows.emplace(way, LpmStageCuckooEntry<29>(key).getHash(way));
    }
    return rows;
}

/** Every other key has a row that a route of 27 to 29 bits may stand in. */
void starGOf(ProfileInfo const& profile, FamilyCase& family) {
    auto const rows = rowsOfLpm29(profile);
    std::vector<Json> keys;
    for (U32 number = 1; keys.size() < 24; ++number) {
        NerioSwitch::MrouteKey const key{
            {{}, 32}, {Lanvo::IpAddr::fromHostOrder(0xE0000000u | (number * 4099 & 0xFFFFFFF)), 32}, 1};
        StarGTableCuckooEntry const item(key);
        if (rows.contains({0, item.getHash(0)}) || rows.contains({1, item.getHash(1)}))
            keys.push_back(toJson(key));
    }
    family.randomKey = [drawn = family.randomKey, keys](Random& random, ProfileInfo const& profileOfKey) {
        return below(random, 2) == 0 ? drawn(random, profileOfKey) : keys[below(random, keys.size())];
    };
}

/** How many pipelines or pairs of them a family's tables are for, and how far apart these are numbered. */
struct Numbering {
    char const* name;
    U64 count;
    U64 step = 1;
};

/** The number of its place that a table takes, if its family takes any. */
Numbering numberingOf(ProfileInfo const& profile, FamilyCase const& family) {
    constexpr auto acl = TableLayoutEnum::tableLayoutAcl;
    auto const& name = family.spec.family;
    if (name == "aclHash" || name == "aclPortRange" || name == "protocolRemap")
        return {"pipeline", profile.numPipelinesOfTable(acl)};
    if (name == "aclIndirectCounterHash") return {"pipelinePair", profile.numProcessors(acl)};
    if (name == "natMatch") return {"pipeline", profile.numPipelines, 2};  // neighbours share its rows
    if (name == "natDynMatch" || name == "natRewrite") return {"pipeline", profile.numPipelines};
    return {nullptr, 1};
}

void generationIs(ProfileInfo const& profile, FamilyCase& family) {
    auto const& name = family.spec.family;
    if (name == "aclHash") aclOf(profile, family);
    if (name == "vlanMembership") vlanMembershipOf(profile, family);
    if (name == "lpm11") lpm11Of(profile, family);
    if (name == "sG") sgOf(profile, family);
    if (name == "copp") coppOf(profile, family);
    if (name == "starG") starGOf(profile, family);
}

}  // namespace

std::vector<FamilyCase> casesOfProfile(ProfileInfo const& profile) {
    std::vector<FamilyCase> cases;
    for (auto family : familyCases()) {
        if (family.spec.family == "aclPortRange" && profile.hwApi.majorVersion() < 4) continue;
        generationIs(profile, family);
        auto const numbering = numberingOf(profile, family);
        for (U64 number = 0; number < numbering.count; number += numbering.step) {
            auto& placed = cases.emplace_back(family);
            if (numbering.name == nullptr) continue;
            placed.spec.numbers[numbering.name] = number;
            placed.spec.name += "Of" + std::to_string(number);
        }
    }
    return cases;
}

}  // namespace NerioTest
