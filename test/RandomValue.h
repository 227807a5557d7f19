#pragma once

#include <map>
#include <random>
#include <type_traits>

#include "Belmo/RangedIndex.h"
#include "NerioSwitch/IngressPortMask.h"
#include "Sorn/Attributes.h"
#include "Sorn/Enum.h"

namespace NerioTest {

using Random = std::mt19937_64;

inline U64 below(Random& random, U64 bound) {
    return std::uniform_int_distribution<U64>(0, bound - 1)(random);
}

/** A value of any described type: each attribute by its own range, enumerations by their names. */
template <class T>
T randomValue(Random& random) {
    if constexpr (std::is_same_v<T, bool>) {
        return below(random, 2) != 0;
    } else if constexpr (Sorn::DescribedEnum<T>) {
        auto const all = enumerators(T{});
        return all[below(random, all.size())].value;
    } else if constexpr (Belmo::IsRangedIndex<T>) {
        return T(U64{T::first} + below(random, U64{T::last} - T::first + 1));
    } else if constexpr (std::is_same_v<T, NerioSwitch::IngressPortMask>) {
        return T(below(random, T::invalid));
    } else if constexpr (Sorn::ValueType<T>) {
        T value;
        Sorn::forEachAttribute(value, [&](char const*, auto& attribute) {
            attribute = randomValue<std::remove_reference_t<decltype(attribute)>>(random);
        });
        return value;
    } else {
        static_assert(std::is_unsigned_v<T>, "say how to draw a value of this type");
        return static_cast<T>(random());
    }
}

}  // namespace NerioTest
