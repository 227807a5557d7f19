#include "AclPlainFamilyCases.h"

#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;
using Agent::toJson;
using NerioSwitch::HwAclRange;

namespace {

U16 randomEnd(Random& random) {
    return static_cast<U16>(1 + below(random, 0xFFFE));
}

/** Ranges with the numbers of their places, in some of the places of a row. */
AclPortRangeResult randomRanges(Random& random, U8 row) {
    AclPortRangeResult result(row);
    for (U8 index = 0; index < 2; ++index) {
        U32 const window = 4u * row + index;
        U32 const anchor = window + 2;
        bool const flag = below(random, 2) != 0;
        if (below(random, 2) != 0) {
            U16 const least = below(random, 4) == 0 ? U16{0} : randomEnd(random);
            result.windowRangeIs(index, HwAclRange(window, least, randomEnd(random), flag));
        }
        if (below(random, 2) == 0) continue;
        bool const upward = below(random, 2) != 0;
        result.anchorRangeIs(index, upward ? HwAclRange(anchor, randomEnd(random), 0xFFFF, flag)
                                           : HwAclRange(anchor, 0, randomEnd(random), flag));
    }
    return result;
}

FamilyCase aclPortRangeCase() {
    return {{"aclPortRange", "aclPortRange", {{"pipeline", 1}}},
            [](Random& random, auto const&) { return toJson(AclPortRangeKey(below(random, 32))); },
            [](Random& random, Json const& key) {
                return toJson(randomRanges(random, key["value"].get<U8>() & 1));
            },
            [](auto const&, Json const& json) {
                bool const isEmpty = json["windowRange"].empty() && json["anchorRange"].empty();
                return isEmpty ? Json() : json;
            }};
}

/** Rows hold four bits, and what comes back has their parity above them. */
FamilyCase protocolRemapCase() {
    return {{"protocolRemap", "protocolRemap", {{"pipeline", 1}}},
            [](Random& random, auto const&) {
                return toJson(ProtocolRemapKey(static_cast<U8>(11 * below(random, 24))));
            },
            [](Random& random, auto const&) { return toJson(randomValue<ProtocolRemapResult>(random)); },
            [](auto const&, Json const& json) {
                auto const number = json["remappedProtocol"].get<U32>() & 15;
                auto const parity = static_cast<U32>(__builtin_parity(number));
                return number == 0 ? Json()
                                   : toJson(ProtocolRemapResult(static_cast<U8>(number | parity << 4)));
            }};
}

FamilyCase rxPortMirrorCase() {
    return familyCase<RxPortMirrorTable>("rxPortMirror", [](Random& random, auto const& profile) {
        return RxPortMirrorKey(below(random, profile.numPorts));
    });
}

}  // namespace

std::vector<FamilyCase> aclPlainFamilyCases() {
    return {aclPortRangeCase(), protocolRemapCase(), rxPortMirrorCase()};
}

}  // namespace NerioTest
