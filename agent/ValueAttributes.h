#pragma once

#include <concepts>
#include <fmt/format.h>
#include <limits>
#include <type_traits>
#include <vector>

#include "agent/ValueJson.h"

/* What keys and results are made of, told to people: from the one description of each value type. */
namespace Agent {

/** An attribute, or one of an attribute's own. */
struct ValueAttribute {
    /** "cellResult.realPrefixLen"; empty for a value that is no object. */
    Belmo::String name;
    /** The values that it takes. */
    Belmo::String type;
    /** Its default, as JSON. */
    Belmo::String initial;
};
using ValueAttributes = std::vector<ValueAttribute>;

/** The values that a type takes which has no attributes. */
template <class T>
Belmo::String valuesText() {
    if constexpr (std::same_as<T, NerioSwitch::IngressPortMask>) {
        return "mask: a bit for each chip port, and bit 52 for the CPU";
    } else if constexpr (std::same_as<T, bool>) {
        return "true or false";
    } else if constexpr (Belmo::IsRangedIndex<T>) {
        return fmt::format("{} to {}", U64{T::first}, U64{T::last});
    } else if constexpr (std::same_as<T, Lanvo::Prefix>) {
        return "IPv4 prefix, or null";
    } else if constexpr (std::same_as<T, Lanvo::IpAddr>) {
        return "IPv4 address";
    } else if constexpr (std::same_as<T, Lanvo::EthAddr>) {
        return "MAC address";
    } else if constexpr (std::same_as<T, Belmo::Duration>) {
        return "seconds, or null";
    } else if constexpr (Sorn::DescribedEnum<T>) {
        std::vector<std::string_view> names;
        for (auto const& enumerator : enumerators(T{}))
            names.push_back(enumerator.name);
        return fmt::format("{}", fmt::join(names, ", "));
    } else if constexpr (std::integral<T>) {
        return fmt::format("0 to {}", U64{std::numeric_limits<T>::max()});
    } else if constexpr (std::floating_point<T>) {
        return "number";
    } else {
        return "text";
    }
}

/** Adds what a value with this default is made of, under this name. */
template <class T>
void addAttributes(Belmo::String const& name, T const& initial, ValueAttributes& all) {
    if constexpr (requires { JsonForm<T>::addAttributes(name, initial, all); }) {
        JsonForm<T>::addAttributes(name, initial, all);
    } else if constexpr (Sorn::ValueType<T> && !Sorn::OwnText<T>) {
        Sorn::forEachAttribute(initial, [&](char const* attribute, auto const& value) {
            addAttributes(name.empty() ? attribute : fmt::format("{}.{}", name, attribute), value, all);
        });
    } else if constexpr (Detail::isMap<T>) {
        using Member = typename T::mapped_type;
        if constexpr (Sorn::ValueType<Member>) {
            addAttributes(name + ".N", Member{}, all);
        } else {
            all.push_back({name + ".N", valuesText<Member>(), "none"});
        }
    } else if constexpr (Detail::isArray<T>) {
        addAttributes(fmt::format("{}[{}]", name, initial.size()), typename T::value_type{}, all);
    } else {
        all.push_back({name, valuesText<T>(), toJson(initial).dump()});
    }
}

template <class T>
ValueAttributes attributesOf() {
    ValueAttributes all;
    addAttributes({}, T{}, all);
    return all;
}

}  // namespace Agent
