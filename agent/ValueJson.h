#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <type_traits>
#include <utility>
#include <vector>

#include "Belmo/Duration.h"
#include "Belmo/RangedIndex.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/IngressPortMask.h"
#include "Sorn/Attributes.h"
#include "Sorn/Enum.h"
#include "Sorn/Text.h"

#include "agent/Json.h"

/*
 * The JSON form of every value type, from its one description: an object by attribute name, a number or the
 * name of an enumerator, an address or prefix as text, a duration in seconds with null for never, a map as
 * an object with the number as text. A type whose form differs specialises `JsonForm`.
 */
namespace Agent {

/** Specialise with static `toJson(value)` and `fromJson(json, place)` for a form of its own. */
template <class T>
struct JsonForm;

template <class T>
concept HasJsonForm = requires(T const& value) {
    JsonForm<T>::toJson(value);
};

namespace Detail {

template <class T>
constexpr bool isMap = false;
template <class Key, class Value>
constexpr bool isMap<std::map<Key, Value>> = true;
template <class T>
constexpr bool isArray = false;
template <class T, std::size_t size>
constexpr bool isArray<std::array<T, size>> = true;
template <class T>
constexpr bool isVector = false;
template <class T>
constexpr bool isVector<std::vector<T>> = true;

/** Runs `take` and gives a failure of the type its place in the JSON text. */
template <class Take>
auto placed(Place const& place, Take&& take) {
    try {
        return take();
    } catch (JsonException const&) {
        throw;
    } catch (Belmo::RangeException const& failure) {
        throw JsonException(place, failure);
    } catch (Belmo::Exception const& failure) {
        throw JsonException(place, fmt::format("{}: {}", place.name(), failure.what()));
    }
}

}  // namespace Detail

/** The key of a map as the name of a member. */
template <class Key>
Belmo::String memberName(Key const& key) {
    if constexpr (std::same_as<Key, Belmo::String>) {
        return key;
    } else {
        return Sorn::text(key);
    }
}

template <class T>
Json toJson(T const& value) {
    if constexpr (HasJsonForm<T>) {
        return JsonForm<T>::toJson(value);
    } else if constexpr (Belmo::IsRangedIndex<T> || std::same_as<T, NerioSwitch::IngressPortMask>) {
        return value.value();
    } else if constexpr (std::same_as<T, Lanvo::Prefix>) {
        return value.isNull() ? Json() : Json(value.text());
    } else if constexpr (std::same_as<T, Belmo::Duration>) {
        return value.isNever() ? Json() : Json(value.seconds());
    } else if constexpr (Sorn::OwnText<T>) {
        return value.text();
    } else if constexpr (Sorn::ValueType<T>) {
        Json object = Json::object();
        Sorn::forEachAttribute(
            value, [&](char const* name, auto const& attribute) { object[name] = toJson(attribute); });
        return object;
    } else if constexpr (Sorn::DescribedEnum<T>) {
        auto const name = Sorn::enumName(value);
        return name.empty() ? Json(static_cast<std::underlying_type_t<T>>(value)) : Json(name);
    } else if constexpr (Detail::isMap<T>) {
        Json object = Json::object();
        for (auto const& [key, member] : value)
            object[memberName(key)] = toJson(member);
        return object;
    } else if constexpr (Detail::isArray<T> || Detail::isVector<T>) {
        Json array = Json::array();
        for (auto const& element : value)
            array.push_back(toJson(element));
        return array;
    } else {
        return value;
    }
}

template <class T>
T fromJson(Json const& json, Place const& place);

/** A value that reads itself from a text, such as an address. */
template <class T>
T textFromJson(Json const& json, Place const& place) {
    if (!json.is_string()) refuseKind(json, "a text", place);
    return Detail::placed(place, [&] {
        Sorn::CharRange range(json.get_ref<Belmo::String const&>());
        auto value = Sorn::parse<T>(range);
        range.expectEnd();
        return value;
    });
}

/** A number with a range of its own, which refuses what lies outside in its own words. */
template <class T>
T rangedFromJson(Json const& json, Place const& place) {
    if (json.is_number_integer() && !json.is_number_unsigned() && json.get<std::int64_t>() < 0) {
        throw JsonException(place, Belmo::RangeException(T::rangeText));
    }
    return Detail::placed(place,
                          [&] { return T(numberFromJson(json, std::numeric_limits<U64>::max(), place)); });
}

template <class T>
T objectFromJson(Json const& json, Place const& place) {
    if (!json.is_object()) refuseKind(json, "an object", place);
    T value;
    for (auto const& [name, member] : json.items()) {
        bool known = false;
        Sorn::forEachAttribute(value, [&, &name = name, &member = member](char const* attributeName,
                                                                          auto& attribute) {
            if (name != attributeName) return;
            attribute = fromJson<std::remove_reference_t<decltype(attribute)>>(member, place.member(name));
            known = true;
        });
        if (!known) {
            throw JsonException(place.member(name),
                                fmt::format("unknown attribute {} of {}", shown(name), T::typeName()));
        }
    }
    return value;
}

template <Sorn::DescribedEnum T>
T enumFromJson(Json const& json, Place const& place) {
    if (json.is_string()) {
        auto const& text = json.get_ref<Belmo::String const&>();
        for (auto const& enumerator : enumerators(T{})) {
            if (text == enumerator.name) return enumerator.value;
        }
        if (!text.starts_with("0x")) {
            throw JsonException(place, fmt::format("{}: unknown enumerator {}", place.name(), shown(json)));
        }
    }
    using Number = std::underlying_type_t<T>;
    return static_cast<T>(numberFromJson(json, std::numeric_limits<Number>::max(), place));
}

template <class Map>
Map mapFromJson(Json const& json, Place const& place) {
    using Key = typename Map::key_type;
    if (!json.is_object()) refuseKind(json, "an object", place);
    Map map;
    for (auto const& [name, member] : json.items()) {
        auto const at = place.member(name);
        auto value = fromJson<typename Map::mapped_type>(member, at);
        if constexpr (std::same_as<Key, Belmo::String>) {
            map[name] = std::move(value);
        } else {
            map[textFromJson<Key>(Json(name), at)] = std::move(value);
        }
    }
    return map;
}

/** An array of fixed length takes fewer elements, too: the rest keep their defaults. */
template <class Array>
Array arrayFromJson(Json const& json, Place const& place) {
    if (!json.is_array()) refuseKind(json, "an array", place);
    Array array{};
    if constexpr (Detail::isVector<Array>) {
        array.resize(json.size());
    } else if (json.size() > array.size()) {
        throw JsonException(place, fmt::format("{}: more than {} elements", place.name(), array.size()));
    }
    for (std::size_t i = 0; i < json.size(); ++i) {
        array[i] = fromJson<typename Array::value_type>(json[i], place.element(i));
    }
    return array;
}

template <class T>
T scalarFromJson(Json const& json, Place const& place) {
    if constexpr (std::same_as<T, bool>) {
        if (!json.is_boolean()) refuseKind(json, "true or false", place);
        return json.get<bool>();
    } else if constexpr (std::floating_point<T>) {
        if (!json.is_number()) refuseKind(json, "a number", place);
        return json.get<T>();
    } else if constexpr (std::same_as<T, Belmo::String>) {
        if (!json.is_string()) refuseKind(json, "a text", place);
        return json.get<Belmo::String>();
    } else {
        return static_cast<T>(numberFromJson(json, std::numeric_limits<T>::max(), place));
    }
}

/** The value that a JSON text stands for; throws `JsonException`. */
template <class T>
T fromJson(Json const& json, Place const& place) {
    if constexpr (HasJsonForm<T>) {
        return JsonForm<T>::fromJson(json, place);
    } else if constexpr (Belmo::IsRangedIndex<T> || std::same_as<T, NerioSwitch::IngressPortMask>) {
        return rangedFromJson<T>(json, place);
    } else if constexpr (std::same_as<T, Lanvo::Prefix>) {
        return json.is_null() ? Lanvo::Prefix::null() : textFromJson<T>(json, place);
    } else if constexpr (std::same_as<T, Belmo::Duration>) {
        return json.is_null() ? Belmo::Duration::never() : Belmo::Duration(fromJson<double>(json, place));
    } else if constexpr (Sorn::OwnText<T>) {
        return textFromJson<T>(json, place);
    } else if constexpr (Sorn::ValueType<T>) {
        return objectFromJson<T>(json, place);
    } else if constexpr (Sorn::DescribedEnum<T>) {
        return enumFromJson<T>(json, place);
    } else if constexpr (Detail::isMap<T>) {
        return mapFromJson<T>(json, place);
    } else if constexpr (Detail::isArray<T> || Detail::isVector<T>) {
        return arrayFromJson<T>(json, place);
    } else {
        return scalarFromJson<T>(json, place);
    }
}

}  // namespace Agent
