#include "agent/Json.h"

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

#include "Sorn/CharRange.h"

#include "agent/JsonMembers.h"

namespace Agent {

namespace {

/** What the parser found, without its own names for where it was: "unexpected ']'; expected ..." */
Belmo::String syntaxReason(std::string_view message) {
    if (auto const begin = message.find(" - "); begin != std::string_view::npos)
        message.remove_prefix(begin + 3);
    // What the parser read last can be as long as the text.
    return Belmo::String(message.substr(0, message.find("; last read: '")));
}

Belmo::String shortened(Belmo::String const& text) {
    constexpr std::size_t longest = 40;
    if (text.size() <= longest) return text;
    auto end = longest;
    while ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;  // not in the middle of a character
    return text.substr(0, end) + "...";
}

/** What `parse` makes of the text; what it throws for one that is no JSON says where. */
template <class Parse>
auto syntaxChecked(std::string_view text, std::size_t firstLine, Parse const& parse) {
    try {
        return parse();
    } catch (Json::parse_error const& error) {
        auto const end = std::min(error.byte == 0 ? 0 : error.byte - 1, text.size());
        auto const before = text.substr(0, end);
        auto const line = firstLine + static_cast<std::size_t>(std::ranges::count(before, '\n'));
        auto const column = before.size() - (before.rfind('\n') + 1) + 1;
        throw JsonException(Place(), fmt::format("line {}, column {}: not JSON: {}", line, column,
                                                 syntaxReason(error.what())));
    } catch (Json::out_of_range const& error) {
        // A number that no double holds; the parser keeps its place to itself, but quotes it.
        std::string_view number = error.what();
        number = number.substr(std::min(number.find('\''), number.size()));
        throw JsonException(Place(),
                            fmt::format("line {}: not JSON: number too large: {}", firstLine, number));
    }
}

}  // namespace

Belmo::String Place::text() const {
    if (parent_ == nullptr) return {};
    auto text = parent_->text() + "/";
    for (char const character : name_) {
        if (character == '~') {
            text += "~0";
        } else if (character == '/') {
            text += "~1";
        } else {
            text += character;
        }
    }
    return text;
}

Json parseJson(std::string_view text, std::size_t firstLine) {
    return syntaxChecked(text, firstLine, [&] { return Json::parse(text); });
}

void forEachMember(std::string_view text,
                   std::function<void(Belmo::String const& name, Json const& value)> const& take) {
    // Members are in a map while they are read: in a vector, finding doubles would take quadratic time.
    using Members = nlohmann::json;
    using Event = Members::parse_event_t;
    Belmo::String name;
    auto const read = [&](int depth, Event event, Members const& parsed) {
        if (depth != 1) return true;
        if (event == Event::key) name = parsed.get_ref<Belmo::String const&>();
        bool const isWhole = event == Event::value || event == Event::array_end || event == Event::object_end;
        if (isWhole) take(name, Json(parsed));
        return !isWhole;
    };
    syntaxChecked(text, 1, [&] { return Members::parse(text, read); });
}

Belmo::String shown(Json const& json) {
    if (json.is_object()) return "an object";
    if (json.is_array()) return "an array";
    if (json.is_string()) return Json(shortened(json.get_ref<Belmo::String const&>())).dump();
    return json.dump();
}

void refuseKind(Json const& json, char const* expected, Place const& place) {
    auto const* separator = place.name().empty() ? "" : ": ";
    throw JsonException(
        place, fmt::format("{}{}expected {}, found {}", place.name(), separator, expected, shown(json)));
}

Json const* optionalMember(Json const& object, std::string_view name) {
    auto const found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

Json const& requiredMember(Json const& object, std::string_view name, Place const& place) {
    if (!object.is_object()) refuseKind(object, "an object", place);
    auto const* member = optionalMember(object, name);
    if (member == nullptr) throw JsonException(place, fmt::format("\"{}\" is missing", name));
    return *member;
}

void membersAre(Json const& object, std::initializer_list<std::string_view> known, Place const& place) {
    if (!object.is_object()) refuseKind(object, "an object", place);
    for (auto const& [name, value] : object.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw JsonException(place.member(name), fmt::format("unknown member {}", shown(name)));
        }
    }
}

Belmo::String const& requiredString(Json const& object, std::string_view name, Place const& place) {
    auto const& member = requiredMember(object, name, place);
    if (!member.is_string()) refuseKind(member, "a text", place.member(name));
    return member.get_ref<Belmo::String const&>();
}

U64 numberFromJson(Json const& json, U64 max, Place const& place) {
    U64 value = 0;
    if (json.is_number_integer() && (json.is_number_unsigned() || json.get<std::int64_t>() >= 0)) {
        value = json.get<U64>();
    } else if (json.is_number_integer()) {
        throw JsonException(
            place, Belmo::RangeException(fmt::format("{} {} < 0 not allowed", place.name(), json.dump())));
    } else if (json.is_string() && json.get_ref<Belmo::String const&>().starts_with("0x")) {
        Sorn::CharRange range(json.get_ref<Belmo::String const&>());
        try {
            value = range.takeNumber();
            range.expectEnd();
        } catch (Belmo::DeserializationException const&) {
            refuseKind(json, "an integer of at most 64 bits", place);
        }
    } else {
        refuseKind(json, "an integer of at most 64 bits", place);
    }
    if (value > max) {
        throw JsonException(
            place, Belmo::RangeException(fmt::format("{} {} > {} not allowed", place.name(), value, max)));
    }
    return value;
}

}  // namespace Agent
