#pragma once

#include "Belmo/Export.h"
#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/VlanGroup.h"
#include "Sorn/ValueType.h"

namespace NerioSwitch {

/** A group of VLANs at an egress port. */
class BELMO_EXPORT VlanGroupKey {
    SORN_VALUE_TYPE(NerioSwitch, VlanGroupKey, (ChipPortId, portId, {}), (VlanGroupId, vlanGroupId, {}));

    VlanGroupKey(ChipPortId portId, VlanGroupId vlanGroupId) : portId_(portId), vlanGroupId_(vlanGroupId) {}
};

}  // namespace NerioSwitch
