#pragma once

#include <algorithm>
#include <array>
#include <random>
#include <unordered_set>
#include <utility>
#include <vector>

#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/LpmKey.h"

namespace NerioTest {

/** How many routes there are of each length. */
using RouteLengths = std::array<double, 33>;

/** As in the IPv4 table of a router without a default route: routes per million. */
inline constexpr RouteLengths internetLengths{
    0,    0,     0,     0,     0,     0,      0,      0,      20, 15, 40, 115, 330, 645, 1335, 2330, 14960,
    9130, 15300, 27575, 47245, 56270, 120440, 107010, 596180, 20, 5,  10, 20,  20,  5,   5,    980};

/** Every length as often as any other. */
inline constexpr RouteLengths evenLengths = [] {
    RouteLengths lengths{};
    lengths.fill(1);
    return lengths;
}();

/**
 * Makes up routes in the likeness of a router's: many stand beside the one before, as networks announce
 * their blocks one by one, and some lie within it. The same seed makes the same routes.
 */
class RandomRoutes {
public:
    explicit RandomRoutes(U64 seed, U8 vrfs = 1, RouteLengths const& lengths = internetLengths)
        : random_(seed), vrfs_(vrfs), lengths_(lengths.begin(), lengths.end()) {}

    /** A route, which may be one of those before. */
    NerioSwitch::LpmKey next() {
        auto const length = static_cast<U8>(lengths_(random_));
        U32 address = address_;
        switch (random_() % 8) {
            case 0:
                address ^= static_cast<U32>(random_() & 0xFFFF);
                break;
            case 1:
            case 2:
            case 3:
                address += length == 0 ? 0 : U32{1} << (32 - length);
                break;
            default:
                address = static_cast<U32>(random_());
        }
        address_ = address & Lanvo::Prefix::mask(length);
        auto const vrf = static_cast<U8>(random_() % vrfs_);
        return {vrf, {Lanvo::IpAddr::fromHostOrder(address_), length}};
    }

    /** Routes that differ from one another, in no order. */
    std::vector<NerioSwitch::LpmKey> distinct(std::size_t count) {
        struct Hash {
            std::size_t operator()(NerioSwitch::LpmKey const& key) const { return key.hash(0); }
        };
        std::unordered_set<NerioSwitch::LpmKey, Hash> known;
        std::vector<NerioSwitch::LpmKey> routes;
        while (routes.size() < count) {
            auto const route = next();
            if (known.insert(route).second) routes.push_back(route);
        }
        std::shuffle(routes.begin(), routes.end(), random_);
        return routes;
    }

    /** A next hop that every stage's rows can carry. */
    U32 nexthop() {
        auto const number = static_cast<U32>(random_() % 0x1000);
        return number == NerioSwitch::NexthopIndexes::null ? number + 1 : number;
    }

    std::mt19937_64& random() { return random_; }

private:
    std::mt19937_64 random_;
    U8 vrfs_;
    std::discrete_distribution<U32> lengths_;
    U32 address_ = 0;
};

}  // namespace NerioTest
