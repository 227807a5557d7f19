#include "NerioSwitchTable/NerioRegPrefixUtil.h"

#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioPortGeometry.h"

namespace NerioSwitchTable {

namespace {

/** Where a copy of the VLAN family's geometry lies: in a block of its own, or in its pipeline's processor. */
Belmo::String vlanCopyPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy, bool ownBlock) {
    if (isCpuPipeline(profile, copy, numVlanTableCopies(profile))) {
        return ownBlock ? "cpu_pipeline[0]/vlan/" : "cpu_pipeline[0]/processor/";
    }
    return ownBlock ? Sorn::_fmt("ingress/vlan[%u]/", copy) : Sorn::_fmt("pipeline[%u]/processor/", copy);
}

}  // namespace

Belmo::String vlanRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy) {
    return vlanCopyPrefix(profile, copy, profile.vlanRegVer > 2);
}

Belmo::String floodSetRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy) {
    return vlanCopyPrefix(profile, copy, profile.hwApi >= NerioSwitch::ProfileHwApi(5, 0));
}

Belmo::String l2RegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy) {
    return profile.noMuxInRegName ? Sorn::_fmt("ingress/processor_l2[%u]/", copy)
                                  : Sorn::_fmt("pipeline[%u]/processor/", copy);
}

Belmo::String macVlanRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy) {
    if (copy < profile.numTables(NerioSwitch::TableLayoutEnum::tableLayoutL2))
        return l2RegPrefix(profile, copy);
    return profile.noMuxInRegName ? "cpu_pipeline[0]/processor_l2/" : "cpu_pipeline[0]/processor/";
}

}  // namespace NerioSwitchTable
