#pragma once

#include <string_view>
#include <vector>

#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/LpmKey.h"

namespace Agent {

/** How a file lists routes. */
enum class RouteFormat : U8 {
    /** A route a line: `prefix [next hop] [vrf]`, what follows a # is a comment. */
    plain,
    /** What `ip -json route show` prints: an array of routes. */
    ipRoute,
    /** What a routing daemon's `show ip route json` prints: an object with an array of routes per prefix. */
    showIpRoute,
};

/** A route that a file lists. */
struct FileRoute {
    NerioSwitch::LpmKey key;
    NerioSwitch::NexthopIndexes nexthop;
    /** Its line, from 1; in JSON, its number among the routes or prefixes. */
    U32 number = 0;

    friend bool operator==(FileRoute const&, FileRoute const&) = default;
};

/** A next hop that a file names, and its number. */
struct FileNexthop {
    Belmo::String name;
    U32 number;

    friend bool operator==(FileNexthop const&, FileNexthop const&) = default;
};

/** A line or an entry that is no route. */
struct FileProblem {
    U32 number;
    /** "line 3: ..." or "route 3, 10.0.0.0/8: ..." */
    Belmo::String text;
};

/**
 * The routes of a file.
 *
 * Cells carry next hops as numbers, 0 to 4095 without 57. A plain list may give the numbers themselves. What
 * is named instead, by addresses and interfaces, is numbered in the order of first appearance, with numbers
 * that the list gives itself left out; routes without any next hop share one of the name "". Several next
 * hops of one route, and an address with its interface, are one name: "10.0.0.1 eth0, 10.0.0.5 eth1", sorted.
 * A route whose next hop finds no number left is a problem.
 */
struct RouteFile {
    RouteFormat format = RouteFormat::plain;
    std::vector<FileRoute> routes;
    /** Those with a name, in the order of first appearance. */
    std::vector<FileNexthop> nexthops;
    /** In the file's order. The routes are those that have none. */
    std::vector<FileProblem> problems;
    /**
     * Routes of which the chip needs to know nothing: repeated ones, those of IPv6, of multicast and of the
     * host itself, worse ones than another route of the same prefix, and those not selected.
     */
    std::size_t passedOver = 0;
};

/**
 * The routes of a text, whose format follows from its first character. In `ip` routes, of several for one
 * prefix that with the lowest metric counts; tables other than main, whose VRF nobody knows, are problems.
 * Of a daemon's routes, the selected one of each prefix counts, with the next hops that forward packets.
 * `vrfs` is how many VRFs there are, at most 256. Throws `JsonException` for a text that begins like JSON and
 * is none.
 */
RouteFile routesFromText(std::string_view text, U32 vrfs = 256);
/** The routes of a file, which may be packed by gzip; also throws `Belmo::ResourceException` with the reason
 * alone. */
RouteFile readRouteFile(Belmo::String const& path, U32 vrfs = 256);

}  // namespace Agent
