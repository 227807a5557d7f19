// An agent that looks on: it hears of every change of a table, and when the rows of a port become scarce.
#include <cstdio>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTableVlanGroup.h"
#include "chip/SimulatedChip.h"

using namespace NerioSwitchTable;
using NerioSwitch::VlanGroupKey;

namespace {

VlanGroupResult vlans(U16 first, U16 second) {
    VlanGroupResult result;
    return result.groupIs(0, first).groupIs(1, second).numVlansIs(2);
}

}  // namespace

int main() {
    auto const profile = NerioSwitch::profilePreset("default");
    NerioSwitchApi::TableFramework framework(profile, Chip::simulatedChip(*profile),
                                             NerioSwitchApi::memoryShadowStore());
    auto const groups = vlanGroupTableFactory("groups");
    framework.tableIs(groups, NerioSwitchApi::StartMode::cold);

    // Every change of an entry. The subscription is dropped with `watch`.
    int changes = 0;
    auto const watch = groups->publisher().observe("entry", [&](Belmo::Change const& change) {
        auto const key = *change.key.as<VlanGroupKey>();
        ++changes;
        std::printf("port %d, group %2d: %s\n", key.portId().value(), key.vlanGroupId().value(),
                    groups->entry(key).resultString().c_str());
    });

    // Each port has rows of its own, counted apart: this one reports at 12 of 16, and again at 8.
    int raised = 0;
    int lowered = 0;
    auto const& rows = framework.gauges().counters().at(7);
    rows->thresholdsAre(12, 8);
    rows->nearlyFullObserverIs([&](TableGauge::Counter const& counter) {
        (counter.nearlyFull() ? raised : lowered) = static_cast<int>(counter.used());
        std::printf("%s, %s: %u of %u rows, %s\n", counter.key().table().c_str(),
                    counter.key().pipe().c_str(), counter.used(), counter.capacity(),
                    counter.nearlyFull() ? "nearly full" : "room again");
    });

    for (U16 group = 0; group < 14; ++group)
        groups->entryIs(VlanGroupKey(7, group), vlans(100 + group, 200 + group));
    groups->entryIs(VlanGroupKey(7, 3), vlans(103, 203));  // as it is already: no change
    for (U16 group = 0; group < 10; ++group)
        groups->entryDel(VlanGroupKey(7, group));

    std::printf("%d changes, nearly full at %d rows, room again at %d\n", changes, raised, lowered);
    return changes == 24 && raised == 12 && lowered == 8 ? 0 : 1;
}
