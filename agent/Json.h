#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "Belmo/Exceptions.h"
#include "Belmo/Types.h"

namespace Agent {

/** JSON as the tools read and write it: members keep their order. */
using Json = nlohmann::ordered_json;

/** Where in a JSON text a value stands; printed as "/tables/0/entries/3/key". Lives on the stack. */
class Place {
public:
    Place() = default;
    Place member(std::string_view name) const { return Place(this, Belmo::String(name)); }
    Place element(std::size_t index) const { return Place(this, std::to_string(index)); }

    /** The value's own name; empty for the whole text. */
    Belmo::String const& name() const { return name_; }
    /** The way there as a JSON pointer of RFC 6901; empty for the whole text. */
    Belmo::String text() const;

private:
    Place(Place const* parent, Belmo::String name) : parent_(parent), name_(std::move(name)) {}

    Place const* parent_ = nullptr;
    Belmo::String name_;
};

/**
 * A JSON value that cannot be taken. Its text and type name are those of the failure behind it, such as a
 * type's range failure, or "ScriptError" for a value that makes no sense; its place says where it stands.
 */
class JsonException : public Belmo::Exception {
public:
    JsonException(Place const& place, Belmo::String const& text) : Exception(text), place_(place.text()) {}
    JsonException(Place const& place, Belmo::Exception const& cause)
        : Exception(cause.what()), place_(place.text()), typeName_(cause.typeName()) {}

    char const* typeName() const noexcept override { return typeName_; }
    /** JSON pointer of the value, as in RFC 6901; empty for the whole text. */
    Belmo::String const& place() const { return place_; }

private:
    Belmo::String place_;
    char const* typeName_ = "ScriptError";
};

/**
 * Reads a JSON text whose first line has that number. A text that is none throws `JsonException`, whose text
 * says "line 3, column 5: not JSON: ...", with lines and columns from 1.
 */
Json parseJson(std::string_view text, std::size_t firstLine = 1);

/** A value as messages show it: a short text or number as it stands, anything longer by what it is. */
Belmo::String shown(Json const& json);
/** Throws "NAME: expected WHAT, found ...". */
[[noreturn]] void refuseKind(Json const& json, char const* expected, Place const& place);

/** The member of an object; throws if `object` is none or lacks it. */
Json const& requiredMember(Json const& object, std::string_view name, Place const& place);
/** The member of an object, or null if it is left out. */
Json const* optionalMember(Json const& object, std::string_view name);
/** Throws for a value that is no object, or has a member that is none of `known`. */
void membersAre(Json const& object, std::initializer_list<std::string_view> known, Place const& place);
Belmo::String const& requiredString(Json const& object, std::string_view name, Place const& place);

/** An unsigned number of at most `max`: an integer, or a text "0x...". */
U64 numberFromJson(Json const& json, U64 max, Place const& place);

}  // namespace Agent
