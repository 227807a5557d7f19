#pragma once

#include <initializer_list>
#include <vector>

#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "PackedWords.h"
#include "SwitchFixture.h"

namespace NerioTest {

/** VLANs of a chip whose two copies serve 8 ports each, and a third the CPU's port, 52. */
class VlanFixture : public TableFixture<NerioSwitchTable::VlanMembershipTable> {
protected:
    using Key = NerioSwitchTable::VlanMembershipKey;
    using Result = NerioSwitchTable::VlanMembershipResult;

    VlanFixture() : TableFixture([] { return NerioSwitchTable::vlanMembershipTableFactory("vlans"); }) {
        profile().numPorts = 16;
        profile().ingressPipesAre({{0, 0, 7}, {1, 8, 15}});
    }

    /** A version of the VLAN registers, and whether an ACL processor serves a single pipe. */
    void chipIs(U32 vlanRegVer, bool singleAclPipe) {
        profile().vlanRegVer = vlanRegVer;
        U16 const pipelines = singleAclPipe ? 2 : 4;
        profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl] = {2,    pipelines, 2,
                                                                           4096, {0, 1},    {0, 1}};
    }

    static Key vlan(U32 vid) { return Key(Bridging::VlanId(vid)); }

    /** A row of these fields, with its parity at that bit and its control word. */
    static std::vector<U32> row(U32 vid, std::size_t words, std::size_t parityBit,
                                std::vector<PackedBits> fields) {
        U32 ones = 0;
        for (U32 const word : packed(words - 1, fields))
            ones += static_cast<U32>(__builtin_popcount(word));
        fields.push_back({parityBit, 1, ones & 1});
        fields.push_back({32 * (words - 1), 12, vid});
        fields.push_back({32 * (words - 1) + 15, 1, 1});
        return packed(words, fields);
    }

    /** A result in which every attribute differs from the default, and each pipe has values of its own. */
    static Result full() {
        Result result;
        result.permitMaskIs(0x1000000000A5C3)
            .learnToCpuIs(false)
            .unknownMulticastToCpuIs(true)
            .multicastJoinToCpuIs(true)
            .broadcastToCpuIs(true)
            .unknownDaToCpuIs(true)
            .multicastJoinToEgressIs(false)
            .vrfBitsIs(6)
            .unicastRouteIs(true)
            .multicastRouteIs(true);
        for (U8 pipe = 0; pipe < 4; ++pipe) {
            result.aclIdIs(pipe, 9 + pipe)
                .aclEnableIs(pipe, static_cast<U8>(5 + pipe))
                .aclDefaultPermitIs(pipe, pipe % 2 == 1)
                .natIdIs(pipe, static_cast<U8>(5 + pipe))
                .natIngressProfileIdIs(pipe, 33 + pipe)
                .natEnableIs(pipe, 1);
        }
        return result;
    }
};

}  // namespace NerioTest
