#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "Dovra/Cuckoo.h"
#include "NerioSwitch/LpmKey.h"
#include "Sorn/HashMap.h"

#include "NerioSwitchTable/LpmResult.h"

/*
 * The routes of one hashing stage, by the key that they share. Most keys have one route, and there may be
 * a million of them, of which the chip holds a small part: what is kept of each is 44 bytes, and 24 to 48 in
 * the index.
 */
namespace Agent {

/** The routes of a stage's three lengths under one key: one, two and four of them. */
struct RouteGroup {
    static constexpr U8 maxRoutes = 7;
    using Link = U32;

    enum class Place : U8 {
        /** Nothing was tried yet; or a removal failed. */
        none,
        /** Its key has a row. */
        placed,
        /** No row can be had for its key. */
        waiting,
        /** The group is not in use. */
        free,
    };
    /** Neighbours in the list of those with the same row in a way. */
    struct Links {
        Link next;
        Link previous;
    };

    /** In host order, cut to the key's length. */
    U32 address = 0;
    U8 vrf = 0;
    /** A bit per route that there is. */
    U8 routes = 0;
    Place place = Place::none;
    /** A call of the stage failed half way: what it holds of the key may differ. */
    bool unsure = false;
    std::array<U16, maxRoutes> nexthops{};
    /** The rows of its key, one in each way. */
    std::array<U16, 2> rows{};
    std::array<Links, 2> links{};

    bool has(U8 number) const { return (routes >> number & 1) != 0; }
};
static_assert(sizeof(RouteGroup) == 44, "there may be a million of them");

/** A pool of groups with an index by key. Groups keep their number; references end when one is added. */
class RouteGroups {
public:
    using Id = RouteGroup::Link;
    static constexpr Id none = 0xFFFFFFFF;

    /** For keys of `baseLen` bits, 12 to 30. */
    explicit RouteGroups(U8 baseLen) : baseLen_(baseLen), index_(0, Hash{{&groups_}}, Equal{{&groups_}}) {}
    RouteGroups(RouteGroups const&) = delete;
    RouteGroups& operator=(RouteGroups const&) = delete;

    /** The group of an address; `none` if there is none. */
    Id find(U8 vrf, U32 address) const;
    /** A new group for an address that has none; whoever adds it knows its rows. */
    Id add(U8 vrf, U32 address);
    void del(Id id);

    RouteGroup& operator[](Id id) { return groups_[id]; }
    RouteGroup const& operator[](Id id) const { return groups_[id]; }
    /** Numbers lie below this; some of them may be free. */
    Id end() const { return static_cast<Id>(groups_.size()); }
    /** Groups in use. */
    std::size_t size() const { return index_.size(); }

    U8 baseLen() const { return baseLen_; }
    NerioSwitch::LpmKey keyOf(Id id) const;
    /** Which of a group's routes that is: first that of the key's length, then the longer ones. */
    U8 numberOf(Lanvo::Prefix const& route) const;
    /** The inverse. */
    NerioSwitch::LpmKey routeOf(Id id, U8 number) const;
    /** The longest of a group's routes that covers the cell. */
    std::optional<U8> ownerOf(Id id, U8 cell) const;
    /** The cell of an address. */
    U8 cellOf(U32 address) const { return address >> (30 - baseLen_) & 3; }
    /** What the stage is to hold for a group. */
    NerioSwitchTable::LpmResult resultOf(Id id) const;

private:
    struct Key {
        U8 vrf;
        U32 address;
        friend bool operator==(Key, Key) = default;
    };
    /** The index holds numbers of groups, and is asked for keys. */
    struct ByKey {
        std::vector<RouteGroup> const* groups;

        Key of(Key key) const { return key; }
        Key of(Id id) const { return {(*groups)[id].vrf, (*groups)[id].address}; }
    };
    struct Hash : ByKey {
        template <class Any>
        std::size_t operator()(Any const& any) const {
            Key const key = of(any);
            return Sorn::hashOf(U64{key.vrf} << 32 | key.address);
        }
    };
    struct Equal : ByKey {
        using is_transparent = void;
        template <class Left, class Right>
        bool operator()(Left const& left, Right const& right) const {
            return of(left) == of(right);
        }
    };

    Key keyOf(U8 vrf, U32 address) const { return {vrf, address & Lanvo::Prefix::mask(baseLen_)}; }

    U8 baseLen_;
    std::vector<RouteGroup> groups_;
    Sorn::HashSet<Id, Hash, Equal> index_;
    /** The first group that is not in use; its link leads to the next one. */
    Id free_ = none;
};

/** Groups by the rows that their keys have: a list for each row of each way. */
class RowLists {
public:
    using Id = RouteGroups::Id;
    using Slot = Dovra::Cuckoo::Slot;

    explicit RowLists(U32 rowsPerWay)
        : rowsPerWay_(rowsPerWay), heads_(ways * rowsPerWay, RouteGroups::none) {}

    void link(RouteGroups& groups, Id id);
    void unlink(RouteGroups& groups, Id id);
    /** The first group of a row. */
    Id first(Slot slot) const { return heads_[slot]; }
    /** The one behind it. */
    Id next(RouteGroups const& groups, Slot slot, Id id) const { return groups[id].links[wayOf(slot)].next; }

    static constexpr U8 ways = 2;
    U32 rowsPerWay() const { return rowsPerWay_; }
    U32 slots() const { return static_cast<U32>(heads_.size()); }
    U8 wayOf(Slot slot) const { return slot < rowsPerWay_ ? 0 : 1; }
    Slot slotOf(U8 way, RouteGroup const& group) const { return way * rowsPerWay_ + group.rows[way]; }

private:
    U32 rowsPerWay_;
    std::vector<Id> heads_;
};

}  // namespace Agent
