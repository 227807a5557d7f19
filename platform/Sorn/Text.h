#pragma once

#include <concepts>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <string_view>
#include <type_traits>

#include "Belmo/Duration.h"
#include "Belmo/Exceptions.h"
#include "Belmo/Types.h"
#include "Sorn/Attributes.h"
#include "Sorn/CharRange.h"
#include "Sorn/Enum.h"

/*
 * The text form of every value, and its parsing:
 *   a number            5            (hexadecimal is read too)
 *   a flag              true
 *   a string            "as it stands" (without quotes inside)
 *   an enumerator       access       (its number where it has no name)
 *   a value type        NerioSwitchTable::PortConfigKey(portId=5)
 *   a map               {0:3,1:4}
 *   an array            [5,6]
 */
namespace Sorn {

namespace Detail {

template <class T>
inline constexpr bool isMap = false;
template <class Key, class Value>
inline constexpr bool isMap<std::map<Key, Value>> = true;

}  // namespace Detail

/** A type with a text form of its own: `text()` and a static `fromText(CharRange&)`. */
template <class T>
concept OwnText = requires(T const& value, CharRange& range) {
    { value.text() } -> std::convertible_to<Belmo::String>;
    { T::fromText(range) } -> std::convertible_to<T>;
};

template <class T>
Belmo::String text(T const& value) {
    if constexpr (OwnText<T>) {
        return value.text();
    } else if constexpr (ValueType<T>) {
        Belmo::String result = T::typeName();
        char const* separator = "(";
        forEachAttribute(value, [&](char const* name, auto const& attribute) {
            result.append(separator).append(name).append("=").append(text(attribute));
            separator = ",";
        });
        return result + ")";
    } else if constexpr (Detail::isMap<T>) {
        Belmo::String result = "{";
        for (auto const& [key, member] : value) {
            if (result.size() > 1) result += ",";
            result.append(text(key)).append(":").append(text(member));
        }
        return result + "}";
    } else if constexpr (Detail::isArray<T>) {
        Belmo::String result = "[";
        for (auto const& element : value) {
            if (result.size() > 1) result += ",";
            result += text(element);
        }
        return result + "]";
    } else if constexpr (DescribedEnum<T>) {
        auto const name = enumName(value);
        return name.empty() ? fmt::format("{}", static_cast<U64>(value)) : Belmo::String(name);
    } else if constexpr (std::same_as<T, Belmo::Duration>) {
        return fmt::format("{}", value.seconds());
    } else if constexpr (std::same_as<T, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::same_as<T, Belmo::String>) {
        return '"' + value + '"';
    } else {
        return fmt::format("{}", value);
    }
}

template <class T>
T parse(CharRange& range);

/** Reads the attributes of a value type, in order; a failure is rethrown with the attribute's name. */
template <class Object>
void parseAttributes(CharRange& range, Object& object) {
    range.expect(Object::typeName());
    char const* separator = "(";
    forEachAttribute(object, [&](char const* name, auto& value) {
        range.expect(separator);
        range.expect(name);
        range.expect("=");
        separator = ",";
        try {
            value = parse<std::remove_reference_t<decltype(value)>>(range);
        } catch (Belmo::Exception const& failure) {
            throw Belmo::DeserializationException(
                fmt::format("{}::{}: {}", Object::typeName(), name, failure.what()));
        }
    });
    range.expect(")");
}

template <std::unsigned_integral T>
T parseNumber(CharRange& range) {
    auto const value = range.takeNumber();
    if (value > std::numeric_limits<T>::max()) {
        throw Belmo::RangeException(fmt::format("{} > {} not allowed", value, std::numeric_limits<T>::max()));
    }
    return static_cast<T>(value);
}

template <DescribedEnum T>
T parseEnum(CharRange& range) {
    auto ahead = range;
    // The whole word must be the name: "access" is not the start of "accessory".
    auto const word = ahead.takeUntil(",:(){} ");
    for (auto const& enumerator : enumerators(T{})) {
        if (enumerator.name == word) {
            range = ahead;
            return enumerator.value;
        }
    }
    return static_cast<T>(parseNumber<std::underlying_type_t<T>>(range));
}

template <class Array>
Array parseArray(CharRange& range) {
    Array result{};
    char const* separator = "[";
    for (auto& element : result) {
        range.expect(separator);
        separator = ",";
        element = parse<typename Array::value_type>(range);
    }
    range.expect("]");
    return result;
}

/** Reads a value in its text form; throws `Belmo::DeserializationException` or `Belmo::RangeException`. */
template <class T>
T parse(CharRange& range) {
    if constexpr (OwnText<T>) {
        return T::fromText(range);
    } else if constexpr (ValueType<T>) {
        return T(range);
    } else if constexpr (Detail::isMap<T>) {
        T result;
        range.expect("{");
        while (!range.take("}")) {
            if (!result.empty()) range.expect(",");
            auto const key = parse<typename T::key_type>(range);
            range.expect(":");
            result[key] = parse<typename T::mapped_type>(range);
        }
        return result;
    } else if constexpr (Detail::isArray<T>) {
        return parseArray<T>(range);
    } else if constexpr (DescribedEnum<T>) {
        return parseEnum<T>(range);
    } else if constexpr (std::same_as<T, Belmo::Duration>) {
        return Belmo::Duration(range.takeReal<double>());
    } else if constexpr (std::same_as<T, bool>) {
        if (range.take("true")) return true;
        range.expect("false");
        return false;
    } else if constexpr (std::same_as<T, Belmo::String>) {
        range.expect("\"");
        auto const value = range.takeUntil("\"");
        range.expect("\"");
        return T(value);
    } else if constexpr (std::floating_point<T>) {
        return range.takeReal<T>();
    } else {
        return parseNumber<T>(range);
    }
}

}  // namespace Sorn
