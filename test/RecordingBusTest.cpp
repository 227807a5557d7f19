#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chip/FaultyBus.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using Chip::RegisterWrite;
using NerioSwitchApi::RegisterHandle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct RecordingBus : testing::Test {
    Belmo::Ptr<Chip::FaultyBus> inner =
        Belmo::make<Chip::FaultyBus>(Chip::simulatedChip(*NerioSwitch::profilePreset("default")));
    Belmo::Ptr<Chip::RecordingBus> bus = Belmo::make<Chip::RecordingBus>(inner);
    RegisterHandle a = bus->address("egress/port[0]/vlan_cfg");
    RegisterHandle b = bus->address("egress/port[1]/vlan_cfg");
    RegisterHandle c = bus->address("egress/port[2]/vlan_cfg");
};

TEST_F(RecordingBus, KeepsWritesInOrderAndHandsThemOutOnce) {
    bus->write(b, 1);
    bus->write(a, 2);
    bus->write(b, 1);
    EXPECT_THAT(bus->take(), ElementsAre(RegisterWrite{b, 1}, RegisterWrite{a, 2}, RegisterWrite{b, 1}));
    EXPECT_THAT(bus->take(), IsEmpty());
    EXPECT_EQ(bus->read(a), 2u);
}

TEST_F(RecordingBus, KeepsRowsWordByWord) {
    std::vector<RegisterHandle> const row{a, RegisterHandle(), c};
    U32 const words[] = {1, 2, 3};
    bus->writeRow(row, words);
    EXPECT_THAT(bus->take(), ElementsAre(RegisterWrite{a, 1}, RegisterWrite{c, 3}));
}

TEST_F(RecordingBus, KeepsOnlyWhatTookEffect) {
    inner->faultIs(Chip::Fault::fail, 2);
    std::vector<RegisterHandle> const row{a, b, c};
    U32 const words[] = {1, 2, 3};
    EXPECT_THROW(bus->writeRow(row, words), NerioSwitchApi::BusException);
    EXPECT_THAT(bus->take(), ElementsAre(RegisterWrite{a, 1}));
}

TEST_F(RecordingBus, NamesRegistersOnRequest) {
    bus->write(b, 1);
    bus->write(a, 2);
    EXPECT_THAT(bus->takeByPath(),
                ElementsAre(Pair("egress/port[1]/vlan_cfg", 1u), Pair("egress/port[0]/vlan_cfg", 2u)));
    EXPECT_THAT(bus->take(), IsEmpty());
}

TEST_F(RecordingBus, SwitchedOffItPassesWritesOnOnly) {
    bus->write(a, 1);
    bus->recordingIs(false);
    bus->write(b, 2);
    U32 const words[] = {3};
    bus->writeRow({&c, 1}, words);
    bus->recordingIs(true);
    EXPECT_THAT(bus->take(), ElementsAre(RegisterWrite{a, 1}));
    EXPECT_EQ(bus->read(b), 2u);
    EXPECT_EQ(bus->read(c), 3u);
}

}  // namespace
