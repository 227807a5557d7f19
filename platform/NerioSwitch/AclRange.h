#pragma once

#include "Belmo/Export.h"
#include "NerioSwitch/AclHash.h"
#include "Sorn/ValueType.h"

namespace NerioSwitch {

/** A range of L4 ports, both ends inclusive, that rules of an ACL name by its number. */
class BELMO_EXPORT HwAclRange {
    SORN_VALUE_TYPE(NerioSwitch, HwAclRange, (U16, min, 0), (U16, max, 0), (HwAclRangeId, id, {}),
                    (bool, flag, false));

    HwAclRange(HwAclRangeId id, U16 min, U16 max, bool flag = false)
        : min_(min), max_(max), id_(id), flag_(flag) {}

    /** One of its ends is above port 0. */
    bool isSet() const { return min_ != 0 || max_ != 0; }
};

}  // namespace NerioSwitch
