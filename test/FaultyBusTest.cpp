#include <csignal>
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "chip/FaultyBus.h"
#include "chip/SimulatedChip.h"

namespace {

using Chip::Fault;
using NerioSwitchApi::RegisterHandle;

struct FaultyBus : testing::Test {
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*NerioSwitch::profilePreset("default"));
    Belmo::Ptr<Chip::FaultyBus> bus = Belmo::make<Chip::FaultyBus>(chip);
    std::vector<RegisterHandle> row{bus->address("egress/port[0]/vlan_cfg"),
                                    bus->address("egress/port[1]/vlan_cfg"),
                                    bus->address("egress/port[2]/vlan_cfg")};
    U32 const words[3] = {11, 12, 13};
};

TEST_F(FaultyBus, PassesWritesOnAndCountsThem) {
    bus->writeRow(row, words);
    bus->write(row[0], 21);
    EXPECT_EQ(bus->writes(), 4u);
    EXPECT_EQ(bus->read(row[0]), 21u);
    EXPECT_EQ(bus->read(row[2]), 13u);
}

TEST_F(FaultyBus, AFailingWriteThrowsWithoutEffectAndTheNextOneWorks) {
    bus->faultIs(Fault::fail, 2);
    try {
        bus->writeRow(row, words);
        FAIL();
    } catch (NerioSwitchApi::BusException const& failure) {
        EXPECT_STREQ(failure.what(), "register write 2 failed: egress/port[1]/vlan_cfg = 0x0000000C");
    }
    EXPECT_EQ(bus->writes(), 2u);
    EXPECT_EQ(chip->read(row[0]), 11u);
    EXPECT_EQ(chip->read(row[1]), 0u);
    EXPECT_EQ(chip->read(row[2]), 0u);
    bus->writeRow(row, words);
    EXPECT_EQ(chip->read(row[1]), 12u);
}

TEST_F(FaultyBus, AStalledWriteIsSwallowed) {
    bus->faultIs(Fault::stall, 2);
    bus->writeRow(row, words);
    EXPECT_EQ(bus->writes(), 3u);
    EXPECT_EQ(chip->read(row[0]), 11u);
    EXPECT_EQ(chip->read(row[1]), 0u);
    EXPECT_EQ(chip->read(row[2]), 13u);
}

TEST_F(FaultyBus, AFaultForAWritePastIsNeverMet) {
    bus->write(row[0], 1);
    bus->faultIs(Fault::fail, 1);
    bus->writeRow(row, words);
    EXPECT_EQ(bus->writes(), 4u);
}

TEST_F(FaultyBus, AKilledProcessEndsBySigkill) {
    for (auto const fault : {Fault::killBefore, Fault::killAfter}) {
        ChildProcess child([&] {
            bus->faultIs(fault, 2);
            bus->writeRow(row, words);
            return 0;
        });
        EXPECT_EQ(child.ended(), -SIGKILL);
    }
}

}  // namespace
