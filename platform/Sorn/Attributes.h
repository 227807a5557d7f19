#pragma once

#include <concepts>
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
    forEachAttribute(object, [&](char const*, auto const& value) { hashInto(mixer, value); });
    return mixer.result();
}

}  // namespace Sorn
