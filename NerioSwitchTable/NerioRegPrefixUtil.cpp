#include "NerioSwitchTable/NerioRegPrefixUtil.h"

#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioPortGeometry.h"

namespace NerioSwitchTable {

Belmo::String vlanRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy) {
    bool const ownBlock = profile.vlanRegVer > 2;
    if (isCpuPipeline(profile, copy, numVlanTableCopies(profile))) {
        return ownBlock ? "cpu_pipeline[0]/vlan/" : "cpu_pipeline[0]/processor/";
    }
    return ownBlock ? Sorn::_fmt("ingress/vlan[%u]/", copy) : Sorn::_fmt("pipeline[%u]/processor/", copy);
}

Belmo::String l2RegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy) {
    return profile.noMuxInRegName ? Sorn::_fmt("ingress/processor_l2[%u]/", copy)
                                  : Sorn::_fmt("pipeline[%u]/processor/", copy);
}

}  // namespace NerioSwitchTable
