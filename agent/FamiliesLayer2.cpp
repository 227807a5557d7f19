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
        familyOf<PlainJsonTable>("nativeVlan", NerioSwitchTable::nativeVlanTableFactory),
        familyOf<PlainJsonTable>("vlanMembership", NerioSwitchTable::vlanMembershipTableFactory),
        familyOf<PlainJsonTable>("macVlan", NerioSwitchTable::macVlanTableFactory),
        familyOf<PlainJsonTable>("l2Control", NerioSwitchTable::l2ControlTableFactory),
        familyOf<FloodSetJsonTable>("floodSet", NerioSwitchTable::floodSetTableFactory),
    };
}

}  // namespace Agent
