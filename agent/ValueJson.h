#pragma once

#include <array>
#include <concepts>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <type_traits>
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

template <class T>
T textFromJson(Json const& json, Place const& place) {
    if (!json.is_string()) {
        throw JsonException(place, fmt::format("{}: expected a text, found {}", place.name(), json.dump()));
    }
    return Detail::placed(place, [&] {
        Sorn::CharRange range(json.get_ref<Belmo::String const&>());
        auto value = Sorn::parse<T>(range);
        range.expectEnd();
        return value;
    });
}

template <class Key>
Key keyFromMemberName(Belmo::String const& name, Place const& place) {
    if constexpr (std::same_as<Key, Belmo::String>) {
        return name;
    } else {
        return textFromJson<Key>(Json(name), place);
    }
}

template <class T>
T objectFromJson(Json const& json, Place const& place) {
    if (!json.is_object()) {
        throw JsonException(place,
                            fmt::format("{}: expected an object, found {}", place.name(), json.dump()));
    }
    T value;
    std::size_t taken = 0;
    Sorn::forEachAttribute(value, [&](char const* name, auto& attribute) {
        if (auto const* member = optionalMember(json, name)) {
            attribute = fromJson<std::remove_reference_t<decltype(attribute)>>(*member, place.member(name));
            ++taken;
        }
    });
    if (taken == json.size()) return value;
    for (auto const& [name, member] : json.items()) {
        bool known = false;
        Sorn::forEachAttribute(
            value, [&](char const* attribute, auto const&) { known = known || name == attribute; });
        if (!known) {
            throw JsonException(place.member(name),
                                fmt::format("unknown attribute \"{}\" of {}", name, T::typeName()));
        }
    }
    return value;
}

template <Sorn::DescribedEnum T>
T enumFromJson(Json const& json, Place const& place) {
    if (json.is_string()) {
        for (auto const& enumerator : enumerators(T{})) {
            if (json == enumerator.name) return enumerator.value;
        }
        if (!json.get_ref<Belmo::String const&>().starts_with("0x")) {
            throw JsonException(place, fmt::format("{}: unknown enumerator {}", place.name(), json.dump()));
        }
    }
    using Number = std::underlying_type_t<T>;
    return static_cast<T>(numberFromJson(json, std::numeric_limits<Number>::max(), place));
}

/** The value that a JSON text stands for; throws `JsonException`. */
template <class T>
T fromJson(Json const& json, Place const& place) {
    constexpr U64 anyNumber = std::numeric_limits<U64>::max();
    if constexpr (HasJsonForm<T>) {
        return JsonForm<T>::fromJson(json, place);
    } else if constexpr (Belmo::IsRangedIndex<T> || std::same_as<T, NerioSwitch::IngressPortMask>) {
        if (json.is_number_integer() && !json.is_number_unsigned()) {
            // Below every range, and refused in the type's own words.
            return Detail::placed(place, [&]() -> T { throw Belmo::RangeException(T::rangeText); });
        }
        return Detail::placed(place, [&] { return T(numberFromJson(json, anyNumber, place)); });
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
        T map;
        if (!json.is_object()) {
            throw JsonException(place,
                                fmt::format("{}: expected an object, found {}", place.name(), json.dump()));
        }
        for (auto const& [name, member] : json.items()) {
            auto const at = place.member(name);
            map[keyFromMemberName<typename T::key_type>(name, at)] =
                fromJson<typename T::mapped_type>(member, at);
        }
        return map;
    } else if constexpr (Detail::isArray<T> || Detail::isVector<T>) {
        T array{};
        if (!json.is_array()) {
            throw JsonException(place,
                                fmt::format("{}: expected an array, found {}", place.name(), json.dump()));
        }
        if constexpr (Detail::isVector<T>) {
            array.resize(json.size());
        } else if (json.size() > array.size()) {
            throw JsonException(place, fmt::format("{}: more than {} elements", place.name(), array.size()));
        }
        for (std::size_t i = 0; i < json.size(); ++i) {
            array[i] = fromJson<typename T::value_type>(json[i], place.element(i));
        }
        return array;
    } else if constexpr (std::same_as<T, bool>) {
        if (!json.is_boolean()) {
            throw JsonException(
                place, fmt::format("{}: expected true or false, found {}", place.name(), json.dump()));
        }
        return json.get<bool>();
    } else if constexpr (std::floating_point<T>) {
        if (!json.is_number()) {
            throw JsonException(place,
                                fmt::format("{}: expected a number, found {}", place.name(), json.dump()));
        }
        return json.get<T>();
    } else if constexpr (std::same_as<T, Belmo::String>) {
        if (!json.is_string()) {
            throw JsonException(place,
                                fmt::format("{}: expected a text, found {}", place.name(), json.dump()));
        }
        return json.get<Belmo::String>();
    } else {
        return static_cast<T>(numberFromJson(json, std::numeric_limits<T>::max(), place));
    }
}

}  // namespace Agent
