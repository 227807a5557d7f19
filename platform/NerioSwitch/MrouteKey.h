#pragma once

#include "Belmo/Export.h"
#include "Bridging/VlanId.h"
#include "Lanvo/Address.h"
#include "Sorn/ValueType.h"

namespace NerioSwitch {

/** A multicast route: from a source, to a group, in a VLAN. Without a VLAN it is 0. */
class BELMO_EXPORT MrouteKey {
    SORN_VALUE_TYPE(NerioSwitch, MrouteKey, (Lanvo::Prefix, source, {}), (Lanvo::Prefix, group, {}),
                    (Bridging::VlanIdOrNone, vlanId, {}));

    MrouteKey(Lanvo::Prefix const& source, Lanvo::Prefix const& group, Bridging::VlanIdOrNone vlanId)
        : source_(source), group_(group), vlanId_(vlanId) {}
};

}  // namespace NerioSwitch
