#include "Layer2FamilyCases.h"

#include <utility>

#include "NerioSwitchTable/NerioTableFloodSet.h"
#include "NerioSwitchTable/NerioTableL2Control.h"
#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "NerioSwitchTable/NerioTableNativeVlan.h"
#include "NerioSwitchTable/NerioTableVlanMembership.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;

namespace {

NerioSwitch::ChipPortId randomPort(Random& random, NerioSwitch::ProfileInfo const& profile) {
    return below(random, profile.numPorts);
}

/** A case whose results are drawn by `randomResult`, and come back unless they are the default one. */
template <class RandomKey, class RandomResult>
FamilyCase drawnCase(Belmo::String const& family, RandomKey randomKey, RandomResult randomResult) {
    using Result = decltype(randomResult(std::declval<Random&>()));
    return {
        {family, family, {}},
        [randomKey](Random& random, auto const& profile) {
            return Agent::toJson(randomKey(random, profile));
        },
        [randomResult](Random& random, auto const&) {
            return Agent::toJson(below(random, 8) == 0 ? Result() : randomResult(random));
        },
        [](auto const&, auto const& result) { return result == Agent::toJson(Result()) ? Json() : result; }};
}

/** Few VLANs, and among them the first and the last. */
Bridging::VlanId randomVlan(Random& random) {
    return below(random, 8) == 0 ? 4094 : 1 + below(random, 40);
}

/** The ports that rows of the default preset's chip have a place for. */
constexpr U64 chipPorts = (U64{1} << 52) - 1;

NativeVlanResult randomTag(Random& random) {
    return NativeVlanResult()
        .nativeVlanIdIs(below(random, 4095))
        .deiIs(static_cast<U8>(below(random, 2)))
        .pcpIs(static_cast<U8>(below(random, 8)));
}

/** ACL fields of either pipe, each with all it has: rows say nothing of an ACL that is not enabled. NAT of
 * pipe 0, where it is read back to as well. */
VlanMembershipResult randomMembership(Random& random) {
    auto const flag = [&] { return below(random, 2) != 0; };
    VlanMembershipResult result;
    for (U8 pipe = 0; pipe < 2; ++pipe) {
        if (flag()) continue;
        result.aclEnableIs(pipe, static_cast<U8>(1 + below(random, 3)))
            .aclIdIs(pipe, below(random, 16))
            .aclDefaultPermitIs(pipe, flag());
    }
    if (flag()) result.natEnableIs(0, 1).natIngressProfileIdIs(0, below(random, 64));
    return result.permitMaskIs(random() & (chipPorts | U64{1} << 52))
        .learnToCpuIs(flag())
        .unknownMulticastToCpuIs(flag())
        .multicastJoinToCpuIs(flag())
        .broadcastToCpuIs(flag())
        .unknownDaToCpuIs(flag())
        .multicastJoinToEgressIs(flag())
        .vrfBitsIs(static_cast<U8>(below(random, 4)))
        .unicastRouteIs(flag())
        .multicastRouteIs(flag());
}

/** Masks of more ports than the chip has; time is not kept in hardware. */
FamilyCase floodSetCase() {
    return {
        {"floodSet", "floodSet", {}},
        [](Random& random, auto const&) { return Agent::toJson(randomVlan(random)); },
        [](Random& random, Json const& key) {
            auto const result =
                below(random, 4) == 0 ? FloodSetResult() : randomValue<FloodSetResult>(random);
            return Agent::toJson(FloodSetEntry(key.get<U16>(), result)
                                     .lastUpdateIs(Belmo::Duration(static_cast<double>(below(random, 9)))));
        },
        [](Json const& key, Json const& entry) {
            auto const result = Agent::fromJson<FloodSetEntry>(entry, Agent::Place()).result();
            auto const back = FloodSetResult()
                                  .uucPortMaskIs(result.uucPortMask() & chipPorts)
                                  .umcPortMaskIs(result.umcPortMask() & chipPorts);
            return back == FloodSetResult() ? Json() : Agent::toJson(FloodSetEntry(key.get<U16>(), back));
        }};
}

MacVlanKey randomRow(Random& random) {
    return MacVlanKey(below(random, 8) == 0 ? 1023 : static_cast<U32>(below(random, 40)));
}

MacVlanResult randomAddress(Random& random) {
    std::array<U8, 6> bytes{};
    for (U8& byte : bytes)
        byte = static_cast<U8>(random());
    return MacVlanResult()
        .macVlanIs({below(random, 4095), Lanvo::EthAddr(bytes)})
        .ingressPortMaskIs(below(random, NerioSwitch::IngressPortMask::invalid))
        .mcastFlagsIs(below(random, 8))
        .ipRouteIs(below(random, 2) != 0);
}

}  // namespace

std::vector<FamilyCase> layer2FamilyCases() {
    return {
        drawnCase(
            "nativeVlan",
            [](auto& random, auto const& profile) { return NativeVlanKey(randomPort(random, profile)); },
            randomTag),
        drawnCase(
            "vlanMembership", [](auto& random, auto const&) { return VlanMembershipKey(randomVlan(random)); },
            randomMembership),
        floodSetCase(),
        drawnCase(
            "macVlan", [](auto& random, auto const&) { return randomRow(random); }, randomAddress),
        familyCase<L2ControlTable>(
            "l2Control",
            [](auto& random, auto const& profile) { return L2ControlKey(randomPort(random, profile)); }),
    };
}

}  // namespace NerioTest
