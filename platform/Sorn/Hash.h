#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "Belmo/Types.h"

namespace Sorn {

/**
 * Mixes numbers one after the other into a hash (multiply and xor-shift, as in MurmurHash's finalizer). The
 * seed is mixed in like a number, so that no other seed makes up for another number.
 */
class HashMixer {
public:
    constexpr explicit HashMixer(U64 seed) { add(seed); }

    constexpr void add(U64 value) { state_ = mixed(state_ ^ value, 0xFF51AFD7ED558CCDu); }
    constexpr U32 result() const {
        U64 const folded = mixed(state_, 0xC4CEB9FE1A85EC53u);
        return static_cast<U32>(mixed(folded, 0xFF51AFD7ED558CCDu));
    }

private:
    static constexpr U64 mixed(U64 state, U64 factor) {
        U64 const product = state * factor;
        return product ^ product >> 32;
    }

    U64 state_ = 0x9E3779B97F4A7C15u;
};

template <class T>
concept SeededHash = requires(T const& value, U32 seed) {
    { value.hash(seed) } -> std::convertible_to<U32>;
};

/** A number that stands for an integer, an enumerator or a real: equal values have equal numbers. */
template <class T>
constexpr U64 hashNumber(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        return std::bit_cast<U64>(static_cast<double>(value) + 0.0);  // minus zero equals plus zero
    } else {
        return static_cast<U64>(value);
    }
}

/** The hash of a key for a hash map: of a number or an enumerator, or the type's own `hash(seed)`. */
template <class T>
constexpr U32 hashOf(T const& value, U32 seed = 0) {
    if constexpr (SeededHash<T>) {
        return value.hash(seed);
    } else {
        static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>, "give the type a hash(U32 seed)");
        HashMixer mixer(seed);
        mixer.add(hashNumber(value));
        return mixer.result();
    }
}

/** `hashOf` as a function object, for hash maps. */
template <class T>
struct Hasher {
    std::size_t operator()(T const& value) const { return hashOf(value); }
};

}  // namespace Sorn
