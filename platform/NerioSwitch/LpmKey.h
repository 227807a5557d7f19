#pragma once

#include <array>

#include "Belmo/Export.h"
#include "Lanvo/Address.h"
#include "Sorn/ValueType.h"

namespace NerioSwitch {

/** A route, or what a route table stage looks up: a VRF and an IPv4 prefix in it. */
class BELMO_EXPORT LpmKey {
    SORN_VALUE_TYPE(NerioSwitch, LpmKey, (U8, vrf, 0), (Lanvo::Prefix, prefix, {}));

    LpmKey(U8 vrf, Lanvo::Prefix const& prefix) : vrf_(vrf), prefix_(prefix) {}

    /** All attributes in one number, to hash a key by. */
    std::array<U64, 1> hashNumbers() const {
        return {U64{vrf_} << 40 | U64{prefix_.address().hostOrder()} << 8 | prefix_.len()};
    }
};
static_assert(sizeof(LpmKey) == 6, "route tables hold many keys");

}  // namespace NerioSwitch
