// One screen of an agent: a table over a simulated chip, an entry on its way to a register and back.
#include <cstdio>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "chip/SimulatedChip.h"

using namespace NerioSwitchTable;

int main() {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework(profile, chip, NerioSwitchApi::memoryShadowStore());

    auto const ports = portConfigTableFactory("ports");
    framework.tableIs(ports, NerioSwitchApi::StartMode::cold);

    auto const watch = ports->publisher().observe("entry", [&](Belmo::Change const& change) {
        auto const key = *change.key.as<PortConfigKey>();
        std::printf("port %d: %s\n", key.portId().value(), ports->entry(key).resultString().c_str());
    });
    ports->entryIs(PortConfigKey(5), PortConfigResult().portModeIs(PortConfigMode::trunk).txDisabledIs(true));

    auto const word = chip->read(chip->address("egress/port[5]/vlan_cfg"));
    std::printf("register egress/port[5]/vlan_cfg holds 0x%x\n", word);
    return word == 0x4 ? 0 : 1;
}
