#include "LagFamilyCases.h"

#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;
using Agent::toJson;
using NerioSwitch::ProfileInfo;

namespace {

template <class Key>
Key randomPortKey(Random& random, ProfileInfo const& profile) {
    return Key(NerioSwitch::ChipPortId(below(random, profile.numPorts)));
}

template <class Key>
Json randomPortJson(Random& random, ProfileInfo const& profile) {
    return toJson(randomPortKey<Key>(random, profile));
}

/** A group of 63 is none; one of 0 is what a deletion leaves. */
FamilyCase lagGroupCase() {
    return {.spec = {"lagGroup", "lagGroup", {}},
            .randomKey = randomPortJson<LagGroupKey>,
            .randomResult =
                [](Random& random, auto const&) {
                    return toJson(LagGroupResult(static_cast<U32>(1 + below(random, 63))));
                },
            .comesBack =
                [](auto const&, auto const& result) {
                    return result == toJson(LagGroupResult(63)) ? Json() : result;
                },
            .deletedComesBack = toJson(LagGroupResult(0))};
}

/** The ports of a LAG are the same for each of its ports; one LAG has none. Ports come back, groups do not.
 */
FamilyCase lagMembershipCase() {
    auto const randomResult = [](Random& random, Json const&) {
        U32 const groups[] = {0, 5, 17, 62, LagMembershipResult::noGroup};
        U32 const group = groups[below(random, std::size(groups))];
        LagMembershipResult result(group);
        for (U32 port = 0; group != 17 && port < 4; ++port)
            result.portIs((group + 13 * port) % 52, true);
        return toJson(result);
    };
    auto const comesBack = [](Json const&, Json const& json) {
        auto const result = Agent::fromJson<LagMembershipResult>(json, Agent::Place());
        LagMembershipResult back;
        if (result.port().empty()) return Json();
        for (U32 port = 0; port < 52; ++port)
            back.portIs(port, result.port(port));
        return toJson(back);
    };
    return {.spec = {"lagMembership", "lagMembership", {}},
            .randomKey = randomPortJson<LagMembershipKey>,
            .randomResult = randomResult,
            .comesBack = comesBack,
            .restartWrites = [](Json const&, Json const& json) {
                auto const result = Agent::fromJson<LagMembershipResult>(json, Agent::Place());
                bool const losesGroup =
                    result.lagGroupId() != LagMembershipResult::noGroup && !result.port().empty();
                return U64{losesGroup ? LagMembershipRow::words : 0};
            }};
}

/** Rows hold six bits of a seed. */
FamilyCase lagHashControlCase() {
    auto hashControl = familyCase<LagHashControlTable>("lagHashControl", randomPortKey<LagHashControlKey>);
    hashControl.comesBack = [](Json const&, Json const& json) {
        auto result = Agent::fromJson<LagHashControlResult>(json, Agent::Place());
        result.hashSeedIs(result.hashSeed() & 63);
        return result == LagHashControlResult() ? Json() : toJson(result);
    };
    return hashControl;
}

}  // namespace

std::vector<FamilyCase> lagFamilyCases() {
    return {lagGroupCase(), lagMembershipCase(),
            familyCase<LagLookUpTable>("lagLookUp", randomPortKey<LagLookUpKey>), lagHashControlCase()};
}

}  // namespace NerioTest
