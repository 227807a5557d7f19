#include "agent/RouteFile.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <iterator>
#include <optional>
#include <unordered_map>
#include <utility>

#include "Belmo/Assert.h"
#include "Sorn/HashMap.h"

#include "NerioSwitchTable/EntryCellResult.h"
#include "agent/JsonMembers.h"
#include "agent/TextFile.h"

namespace Agent {

using Lanvo::Prefix;
using NerioSwitch::LpmKey;
using NerioSwitch::NexthopIndexes;

namespace {

constexpr U32 maxNexthop = NerioSwitchTable::EntryCellResult::maxNexthop;

/** A line or an entry is no route. Only a reader sees it. */
struct NoRoute {
    Belmo::String text;
};

[[noreturn]] void refuse(Belmo::String text) {
    throw NoRoute{std::move(text)};
}

/** A text as messages quote it; it may hold anything. */
Belmo::String inQuotes(std::string_view text) {
    constexpr std::size_t most = 40;
    Belmo::String part(text.substr(0, most));
    if (text.size() > most) part += "...";
    return Json(part).dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool readNumber(std::string_view digits, U64& number) {
    auto const* const last = digits.data() + digits.size();
    auto const [end, error] = std::from_chars(digits.data(), last, number);
    return error == std::errc() && end == last;
}

bool isIpv6(std::string_view text) {
    return text.find(':') != std::string_view::npos;
}

/** "10.0.0.0/8", "10.0.0.1" for all 32 bits, or "default". */
Prefix prefixOf(std::string_view text) {
    if (text == "default") return {};
    auto const slash = std::min(text.find('/'), text.size());
    U64 length = 32;
    bool valid = slash == text.size() || readNumber(text.substr(slash + 1), length);
    Lanvo::IpAddr address;
    try {
        Sorn::CharRange range(text.substr(0, slash));
        address = Lanvo::IpAddr::fromText(range);
        range.expectEnd();
    } catch (Belmo::Exception const&) {
        valid = false;
    }
    if (!valid || length > 32) refuse(fmt::format("{} is no IPv4 prefix", inQuotes(text)));
    auto const bits = static_cast<U8>(length);
    if (!Prefix::validAsPrefix(address, bits))
        refuse(fmt::format("{} has bits set beyond its length", inQuotes(text)));
    return {address, bits};
}

/** Which next hop a route has, before those that are named have numbers. */
struct Nexthop {
    bool isNamed;
    /** The number, or the position of the name. */
    U32 value;

    friend bool operator==(Nexthop, Nexthop) = default;
};

/** The next hops of a file: the numbers that it gives, and the names in order of appearance. */
class Nexthops {
public:
    Nexthop numbered(U64 number) {
        if (number == NexthopIndexes::null) refuse(fmt::format("next hop {} stands for none", number));
        if (number > maxNexthop) refuse(fmt::format("next hop {} is above {}", number, maxNexthop));
        given_[number] = true;
        return {false, static_cast<U32>(number)};
    }
    Nexthop named(std::string_view name) {
        auto found = positions_.find(name);
        if (found == positions_.end()) {
            found = positions_.emplace(name, static_cast<U32>(names_.size())).first;
            names_.push_back(&found->first);
        }
        return {true, found->second};
    }
    /** Names with numbers that the file does not give itself, as far as there are any. */
    std::vector<FileNexthop> assigned() const {
        std::vector<FileNexthop> all;
        U32 next = 0;
        for (auto const* name : names_) {
            while (next <= maxNexthop && (given_[next] || next == NexthopIndexes::null))
                ++next;
            if (next > maxNexthop) break;
            all.push_back({*name, next++});
        }
        return all;
    }
    Belmo::String const& name(Nexthop nexthop) const { return *names_[nexthop.value]; }

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    std::unordered_map<Belmo::String, U32, Hash, std::equal_to<>> positions_;
    std::vector<Belmo::String const*> names_;
    std::array<bool, maxNexthop + 1> given_{};
};

/** What a file's routes come to. */
class Routes {
public:
    Routes(RouteFormat format, U32 vrfs) : vrfs_(vrfs) { file_.format = format; }

    Nexthops& nexthops() { return nexthops_; }
    U8 vrf(U64 number) const {
        if (number >= vrfs_) refuse(fmt::format("VRF {} is above {}", number, vrfs_ - 1));
        return static_cast<U8>(number);
    }
    void reserve(std::size_t count) {
        routes_.reserve(count);
        positions_.reserve(count);
    }
    void passedOver(std::size_t count = 1) { file_.passedOver += count; }

    /**
     * Adds a route. If there is one of its key already, the one with the lower metric counts; with equal
     * ones the first, and if `isUnique`, another next hop is refused.
     */
    void add(LpmKey const& key, Nexthop nexthop, U32 number, U64 metric = 0, bool isUnique = false) {
        auto const [known, isNew] = positions_.try_emplace(key, static_cast<U32>(routes_.size()));
        if (isNew) {
            routes_.push_back({key, nexthop, number, metric});
            return;
        }
        auto& first = routes_[known->second];
        if (isUnique && first.nexthop != nexthop) {
            refuse(fmt::format("{} has another next hop on line {}", key.prefix().text(), first.number));
        }
        if (metric < first.metric) first = {key, nexthop, number, metric};
        passedOver();
    }
    void problem(U32 number, Belmo::String text) { file_.problems.push_back({number, std::move(text)}); }

    /** Numbers the next hops. `place` says where a route stands. */
    template <class PlaceOf>
    RouteFile finished(PlaceOf const& place) {
        file_.nexthops = nexthops_.assigned();
        file_.routes.reserve(routes_.size());
        for (auto const& [key, nexthop, number, metric] : routes_) {
            if (!nexthop.isNamed) {
                file_.routes.push_back({key, nexthop.value, number});
            } else if (nexthop.value < file_.nexthops.size()) {
                file_.routes.push_back({key, file_.nexthops[nexthop.value].number, number});
            } else {
                problem(number,
                        fmt::format("{}: next hop {} is one too many: cells tell {} apart",
                                    place(key, number), inQuotes(nexthops_.name(nexthop)), maxNexthop));
            }
        }
        std::ranges::stable_sort(file_.problems, {}, &FileProblem::number);
        return std::move(file_);
    }

private:
    struct Read {
        LpmKey key;
        Nexthop nexthop;
        U32 number;
        U64 metric;
    };

    U32 vrfs_;
    RouteFile file_;
    Nexthops nexthops_;
    std::vector<Read> routes_;
    Sorn::HashMap<LpmKey, U32> positions_;
};

/** Takes the next word from the front of a line; empty at its end. */
std::string_view takeWord(std::string_view& line) {
    constexpr std::string_view space = " \t\r";
    line.remove_prefix(std::min(line.find_first_not_of(space), line.size()));
    auto const word = line.substr(0, line.find_first_of(space));
    line.remove_prefix(word.size());
    return word;
}

void takeLine(std::string_view line, U32 number, Routes& routes) {
    line = line.substr(0, line.find('#'));
    auto const prefixText = takeWord(line);
    if (prefixText.empty()) return;
    auto const prefix = prefixOf(prefixText);
    auto const nexthopText = takeWord(line);
    auto const vrfText = takeWord(line);
    if (!takeWord(line).empty()) refuse("there is more than a prefix, a next hop and a VRF");
    U64 vrf = 0;
    if (!vrfText.empty() && !readNumber(vrfText, vrf)) refuse(fmt::format("{} is no VRF", inQuotes(vrfText)));
    U64 nexthop = 0;
    LpmKey const key(routes.vrf(vrf), prefix);
    routes.add(key,
               readNumber(nexthopText, nexthop) ? routes.nexthops().numbered(nexthop)
                                                : routes.nexthops().named(nexthopText),
               number, 0, true);
}

RouteFile plainRoutes(std::string_view text, U32 vrfs) {
    Routes routes(RouteFormat::plain, vrfs);
    routes.reserve(static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1);
    for (U32 number = 1; !text.empty(); ++number) {
        auto const end = std::min(text.find('\n'), text.size());
        try {
            takeLine(text.substr(0, end), number, routes);
        } catch (NoRoute const& failure) {
            routes.problem(number, fmt::format("line {}: {}", number, failure.text));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return routes.finished([](LpmKey const&, U32 number) { return fmt::format("line {}", number); });
}

/** A text member, or an empty text if it is left out. */
std::string_view textOf(Json const& object, char const* name) {
    auto const* member = optionalMember(object, name);
    if (member == nullptr) return {};
    if (!member->is_string()) refuseKind(*member, "a text", Place().member(name));
    return member->get_ref<Belmo::String const&>();
}

/** A number, or 0 if it is left out. */
U64 numberOf(Json const& object, char const* name) {
    auto const* member = optionalMember(object, name);
    return member == nullptr ? 0 : numberFromJson(*member, ~U64{0}, Place().member(name));
}

bool isTrue(Json const& object, char const* name) {
    auto const* member = optionalMember(object, name);
    return member != nullptr && *member == true;
}

/** Address and interface of a next hop, whichever it has. */
Belmo::String pathName(std::string_view address, std::string_view interface) {
    auto const* const space = address.empty() || interface.empty() ? "" : " ";
    return fmt::format("{}{}{}", address, space, interface);
}

/** One name for all paths of a route. */
Belmo::String nameOf(std::vector<Belmo::String> paths) {
    std::ranges::sort(paths);
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    return fmt::format("{}", fmt::join(paths, ", "));
}

/** The paths of a route, objects in the member "nexthops"; null without it. */
Json const* pathsOf(Json const& entry) {
    auto const* paths = optionalMember(entry, "nexthops");
    if (paths == nullptr) return paths;
    Place const route;
    auto const place = route.member("nexthops");
    if (!paths->is_array()) refuseKind(*paths, "an array", place);
    for (auto const& path : *paths) {
        if (!path.is_object()) refuseKind(path, "objects", place);
    }
    return paths;
}

/** A path of an `ip` route: the address may be one of another family. */
Belmo::String ipPath(Json const& path) {
    auto const* via = optionalMember(path, "via");
    return pathName(via == nullptr ? textOf(path, "gateway") : textOf(*via, "host"), textOf(path, "dev"));
}

/** The next hop of an `ip` route; routes that drop packets are named by how they do. */
Belmo::String ipNexthop(Json const& route) {
    auto const type = textOf(route, "type");
    if (!type.empty() && type != "unicast") return Belmo::String(type);
    std::vector<Belmo::String> names;
    if (auto const* paths = pathsOf(route)) {
        std::ranges::transform(*paths, std::back_inserter(names), ipPath);
    } else {
        names.push_back(ipPath(route));
    }
    return nameOf(std::move(names));
}

/** Whether an `ip` route is of the host itself, or not one of this kind at all. */
bool isPassedOver(Json const& route) {
    auto const type = textOf(route, "type");
    return isIpv6(requiredString(route, "dst", Place())) || type == "local" || type == "broadcast" ||
           type == "multicast" || type == "anycast" || textOf(route, "table") == "local";
}

void takeIpRoute(Json const& route, U32 number, Routes& routes) {
    auto const& destination = requiredString(route, "dst", Place());
    if (isPassedOver(route)) {
        routes.passedOver();
        return;
    }
    auto const table = textOf(route, "table");
    if (!table.empty() && table != "main" && table != "default")
        refuse(fmt::format("nobody knows the VRF of table {}", inQuotes(table)));
    auto const prefix = prefixOf(destination);
    routes.add({0, prefix}, routes.nexthops().named(ipNexthop(route)), number, numberOf(route, "metric"));
}

/** What a path is called in a daemon's routes. */
Belmo::String daemonPath(Json const& path) {
    if (isTrue(path, "blackhole")) return "blackhole";
    if (isTrue(path, "unreachable") || isTrue(path, "reject")) return "unreachable";
    return pathName(textOf(path, "ip"), textOf(path, "interfaceName"));
}

/** The next hop of a daemon's route: the paths in use, which are told from those that lead to them. */
Belmo::String daemonNexthop(Json const& route) {
    std::vector<Belmo::String> names;
    auto const* paths = pathsOf(route);
    auto const take = [&](char const* mark) {
        for (auto const& path : paths == nullptr ? Json::array() : *paths) {
            if (isTrue(path, mark) && !isTrue(path, "recursive")) names.push_back(daemonPath(path));
        }
    };
    take("fib");
    if (names.empty()) take("active");
    if (names.empty()) refuse("no next hop is active");
    return nameOf(std::move(names));
}

void takeDaemonRoutes(Belmo::String const& prefixText, Json const& entries, U32 number, Routes& routes) {
    if (!entries.is_array()) refuseKind(entries, "an array of routes", Place());
    if (isIpv6(prefixText)) {
        routes.passedOver(entries.size());
        return;
    }
    auto const prefix = prefixOf(prefixText);
    for (auto const& route : entries) {
        if (!route.is_object()) refuseKind(route, "a route", Place());
        if (!isTrue(route, "selected")) {
            routes.passedOver();
            continue;
        }
        LpmKey const key(routes.vrf(numberOf(route, "vrfId")), prefix);
        routes.add(key, routes.nexthops().named(daemonNexthop(route)), number);
    }
}

/** Runs `take`, and keeps what is wrong with the entry as a problem. */
template <class Take>
void takeEntry(Routes& routes, U32 number, Belmo::String const& place, Take const& take) {
    try {
        take();
    } catch (NoRoute const& failure) {
        routes.problem(number, fmt::format("{}: {}", place, failure.text));
    } catch (JsonException const& failure) {
        routes.problem(number, fmt::format("{}: {}", place, failure.what()));
    }
}

Belmo::String routePlace(U32 number, std::string_view prefix) {
    return prefix.empty() ? fmt::format("route {}", number)
                          : fmt::format("route {}, {}", number, inQuotes(prefix));
}

RouteFile ipRoutes(std::string_view text, U32 vrfs) {
    Routes routes(RouteFormat::ipRoute, vrfs);
    auto const entries = parseJson(text);
    U32 number = 0;
    for (auto const& route : entries) {
        ++number;
        auto const* destination = route.is_object() ? optionalMember(route, "dst") : nullptr;
        bool const isNamed = destination != nullptr && destination->is_string();
        takeEntry(routes, number,
                  routePlace(number, isNamed ? destination->get_ref<Belmo::String const&>() : ""),
                  [&] { takeIpRoute(route, number, routes); });
    }
    return routes.finished([](LpmKey const& key, U32 at) { return routePlace(at, key.prefix().text()); });
}

RouteFile daemonRoutes(std::string_view text, U32 vrfs) {
    Routes routes(RouteFormat::showIpRoute, vrfs);
    U32 number = 0;
    forEachMember(text, [&](Belmo::String const& prefix, Json const& entries) {
        ++number;
        takeEntry(routes, number, routePlace(number, prefix),
                  [&] { takeDaemonRoutes(prefix, entries, number, routes); });
    });
    return routes.finished([](LpmKey const& key, U32 at) { return routePlace(at, key.prefix().text()); });
}

}  // namespace

RouteFile routesFromText(std::string_view text, U32 vrfs) {
    BELMO_ASSERT(vrfs <= 256);
    auto const first = text.find_first_not_of(" \t\r\n");
    if (first != std::string_view::npos && text[first] == '[') return ipRoutes(text, vrfs);
    if (first != std::string_view::npos && text[first] == '{') return daemonRoutes(text, vrfs);
    return plainRoutes(text, vrfs);
}

RouteFile readRouteFile(Belmo::String const& path, U32 vrfs) {
    return routesFromText(textOfFile(path), vrfs);
}

}  // namespace Agent
