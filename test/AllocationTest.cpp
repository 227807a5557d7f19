#include <gtest/gtest.h>

#include "NerioSwitchApi/TableFramework.h"

#include "AllocationCount.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;

TEST(Allocations, AnUpdateOfAPresentKeyAllocatesNothing) {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework(profile, chip, NerioSwitchApi::memoryShadowStore());
    auto const ports = portConfigTableFactory("ports");
    framework.tableIs(ports, NerioSwitchApi::StartMode::cold);
    PortConfigKey const key(NerioSwitch::ChipPortId(5));
    PortConfigResult const results[] = {PortConfigResult().portModeIs(PortConfigMode::trunk),
                                        PortConfigResult().portModeIs(PortConfigMode::qinq)};
    ports->entryIs(key, results[0]);

    auto const before = allocationCount();
    for (int i = 1; i <= 1000; ++i) {
        ports->entryIs(key, results[i % 2]);  // changed
        ports->entryIs(key, results[i % 2]);  // unchanged
    }
    EXPECT_EQ(allocationCount(), before);
    EXPECT_EQ(chip->read(chip->address("egress/port[5]/vlan_cfg")), 0u);
}

}  // namespace
