#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Belmo/Types.h"
#include "Sorn/Hash.h"

namespace Sorn {

/** One attribute of a value type: its name and where it is stored. */
template <class Object, class Value>
struct Attribute {
    char const* name;
    Value Object::*member;
};

/** A type declared with SORN_VALUE_TYPE. */
template <class T>
concept ValueType = requires {
    T::attributes();
    { T::typeName() } -> std::convertible_to<char const*>;
};

/** How a reader hands an attribute out: small ones by value, others by reference. */
template <class T>
using ReadType = std::conditional_t<std::is_trivially_copyable_v<T> && sizeof(T) <= 16, T, T const&>;

/** Calls `visit(name, value)` for each attribute of `object`, in declared order. */
template <class Object, class Visit>
constexpr void forEachAttribute(Object& object, Visit&& visit) {
    std::apply([&](auto const&... attribute) { (visit(attribute.name, object.*(attribute.member)), ...); },
               std::remove_const_t<Object>::attributes());
}

namespace Detail {

template <class T>
inline constexpr bool isArray = false;
template <class T, std::size_t size>
inline constexpr bool isArray<std::array<T, size>> = true;

}  // namespace Detail

/** A value type that says all its attributes in a few numbers, so that it is hashed in less time. */
template <class T>
concept HashedByNumbers = requires(T const& value) {
    { *value.hashNumbers().begin() } -> std::convertible_to<U64>;
};

/** Adds a value of any attribute type to a hash; texts and maps with their size, so that none runs on. */
template <class T>
constexpr void hashInto(HashMixer& mixer, T const& value) {
    if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
        mixer.add(hashNumber(value));
    } else if constexpr (SeededHash<T>) {
        mixer.add(value.hash(0));
    } else if constexpr (std::convertible_to<T, std::string_view>) {
        mixer.add(value.size());
        for (char const c : value)
            mixer.add(static_cast<U8>(c));
    } else if constexpr (Detail::isArray<T>) {
        for (auto const& element : value)
            hashInto(mixer, element);
    } else {
        mixer.add(value.size());
        for (auto const& [key, member] : value) {
            hashInto(mixer, key);
            hashInto(mixer, member);
        }
    }
}

/** The hash of all attributes, in declared order. */
template <class Object>
U32 hashAttributes(Object const& object, U32 seed) {
    HashMixer mixer(seed);
    if constexpr (HashedByNumbers<Object>) {
        for (U64 const number : object.hashNumbers())
            mixer.add(number);
    } else {
        forEachAttribute(object, [&](char const*, auto const& value) { hashInto(mixer, value); });
    }
    return mixer.result();
}

}  // namespace Sorn
