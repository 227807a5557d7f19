#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "NerioSwitch/VlanGroupKey.h"

#include "NerioSwitchTable/NerioTableVlanGroup.h"

namespace Agent {

/** The VLANs that packets leave each port in, in ascending order; ports without VLANs are left out. */
using PortVlans = std::map<NerioSwitch::ChipPortId, std::vector<Bridging::VlanId>>;

/**
 * Shares the groups of VLANs out among those who send packets in them. A group has a list for each port, so
 * two users may have the same group if no port's lists differ. Rows are counted by their users.
 *
 * Counting and writing are apart: `use` and `release` say what is wanted, `program` writes lists that are in
 * use, and `clear` removes those that are no longer. Both let failures of the bus through, and the next call
 * goes on where they stopped.
 */
class VlanGroups {
public:
    static constexpr U8 groups = NerioSwitchTable::VlanGroupRow::rowsPerPort;
    static constexpr std::size_t vlansPerPort = std::size_t{2} * NerioSwitchTable::VlanGroupRow::pairs;

    explicit VlanGroups(Belmo::Ptr<NerioSwitchTable::VlanGroupTable> table);

    /** What the table's rows of a group say of those ports, in use or not. */
    PortVlans vlansOf(U8 group, U64 ports) const;
    /**
     * The group that holds most of these lists already and none that differs from them, the first one of
     * several; nothing if there is none.
     */
    std::optional<U8> groupFor(PortVlans const& vlans) const;
    /** Counts a user of these lists, none of which differs from those that the group has. */
    void use(U8 group, PortVlans const& vlans);
    void release(U8 group, PortVlans const& vlans);
    /** Rows without users that the table had from an earlier life are to be cleared as well. */
    void othersDel();

    void program();
    void clear();

    /** Lists in use. */
    std::size_t rowsInUse() const { return rows_.size(); }

private:
    struct Row {
        std::vector<Bridging::VlanId> vlans;
        std::size_t users = 0;
    };

    Belmo::Ptr<NerioSwitchTable::VlanGroupTable> table_;
    std::map<NerioSwitch::VlanGroupKey, Row> rows_;
    /** Rows that may differ in the table from what is wanted. */
    std::set<NerioSwitch::VlanGroupKey> changed_;
};

}  // namespace Agent
