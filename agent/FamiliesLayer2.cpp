#include <algorithm>

#include "NerioSwitchTable/NerioTableFloodSet.h"
#include "NerioSwitchTable/NerioTableL2Control.h"
#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "NerioSwitchTable/NerioTableNativeVlan.h"
#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "agent/FamilyOf.h"

namespace Agent {

namespace {

/** Flood sets: an entry says its key and its time as well, of which rows hold nothing. */
template <class Table>
class FloodSetJsonTable final : public KeyedJsonTable<Table> {
public:
    using KeyedJsonTable<Table>::KeyedJsonTable;

    std::size_t defaultEntryCount() const override {
        auto const& entries = this->keyed().entries();
        return static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), [](auto const& each) {
            return each.second.result() == NerioSwitchTable::FloodSetResult();
        }));
    }
};

}  // namespace

std::vector<Family> layer2Families() {
    return {
        familyOf<PlainJsonTable>(
            "nativeVlan", "Per chip port, the VLAN, drop eligibility and priority of untagged packets.",
            NerioSwitchTable::nativeVlanTableFactory),
        familyOf<PlainJsonTable>("vlanMembership", "Per VLAN, its ports and what its packets may do.",
                                 NerioSwitchTable::vlanMembershipTableFactory),
        familyOf<PlainJsonTable>(
            "macVlan",
            "Layer 2 forwarding by row number: the address that a row matches, its ports, and its flags.",
            NerioSwitchTable::macVlanTableFactory),
        familyOf<PlainJsonTable>("l2Control", "Per chip port, how addresses are learned.",
                                 NerioSwitchTable::l2ControlTableFactory),
        familyOf<FloodSetJsonTable>(
            "floodSet",
            "Per VLAN, the ports that packets of unknown unicast and multicast destinations are flooded to.",
            NerioSwitchTable::floodSetTableFactory),
    };
}

}  // namespace Agent
