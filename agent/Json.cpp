#include "agent/Json.h"

#include <algorithm>
#include <fmt/format.h>

#include "Sorn/CharRange.h"

namespace Agent {

namespace {

void expectObject(Json const& json, Place const& place) {
    if (!json.is_object()) {
        throw JsonException(place,
                            fmt::format("{}: expected an object, found {}", place.name(), json.dump()));
    }
}

}  // namespace

Json const* optionalMember(Json const& object, std::string_view name) {
    auto const found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

Json const& requiredMember(Json const& object, std::string_view name, Place const& place) {
    expectObject(object, place);
    auto const* member = optionalMember(object, name);
    if (member == nullptr) throw JsonException(place, fmt::format("\"{}\" is missing", name));
    return *member;
}

void membersAre(Json const& object, std::initializer_list<std::string_view> known, Place const& place) {
    expectObject(object, place);
    for (auto const& [name, value] : object.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw JsonException(place.member(name), fmt::format("unknown member \"{}\"", name));
        }
    }
}

Belmo::String const& requiredString(Json const& object, std::string_view name, Place const& place) {
    auto const& member = requiredMember(object, name, place);
    if (!member.is_string()) {
        throw JsonException(place.member(name),
                            fmt::format("{}: expected a text, found {}", name, member.dump()));
    }
    return member.get_ref<Belmo::String const&>();
}

U64 numberFromJson(Json const& json, U64 max, Place const& place) {
    U64 value = 0;
    if (json.is_number_unsigned()) {
        value = json.get<U64>();
    } else if (json.is_number_integer()) {
        throw JsonException(
            place, Belmo::RangeException(fmt::format("{} {} < 0 not allowed", place.name(), json.dump())));
    } else if (json.is_string()) {
        Sorn::CharRange range(json.get_ref<Belmo::String const&>());
        try {
            value = range.takeNumber();
            range.expectEnd();
        } catch (Belmo::DeserializationException const&) {
            throw JsonException(place, fmt::format("{}: {} is no number", place.name(), json.dump()));
        }
    } else {
        throw JsonException(place, fmt::format("{}: expected a number, found {}", place.name(), json.dump()));
    }
    if (value > max) {
        throw JsonException(
            place, Belmo::RangeException(fmt::format("{} {} > {} not allowed", place.name(), value, max)));
    }
    return value;
}

}  // namespace Agent
