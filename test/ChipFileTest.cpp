#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "ChildProcess.h"
#include "ChipMemories.h"
#include "TemporaryDirectory.h"
#include "chip/FaultyBus.h"
#include "chip/MemoryMap.h"
#include "chip/SimulatedChip.h"

namespace {

using Chip::simulatedChip;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

class ChipFile : public testing::Test {
protected:
    Belmo::Ptr<Chip::SimulatedChip> open() const {
        return Belmo::make<Chip::SimulatedChip>(*profile_, memories_, path_);
    }
    /** The text of the failure to open the file; empty if it opens. */
    std::string openFailure() const {
        try {
            open();
        } catch (Belmo::ResourceException const& failure) {
            return failure.what();
        }
        return {};
    }
    void writeAclRow(NerioSwitchApi::RegisterBus& bus, U32 row, U32 word) const {
        for (auto const& data : memories_[0].dataRegisters)
            bus.write(bus.address(data), word);
        bus.write(bus.address(memories_[0].controlRegister), 1u << 18 | row);
    }

    TemporaryDirectory directory_;
    std::string path_ = directory_.path("chip.memory");
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_ = NerioSwitch::profilePreset("default");
    std::vector<Chip::MemoryDescription> memories_{aclMemory(), l3LagMemory()};
};

TEST_F(ChipFile, StartsAsZeroAndHoldsWhatAChipWithoutFileHolds) {
    auto const chip = open();
    EXPECT_THAT(chip->memory(), Each(0u));
    auto const other = Belmo::make<Chip::SimulatedChip>(*profile_, memories_, std::nullopt);
    for (auto const& bus : {chip, other})
        writeAclRow(*bus, 5, 99);
    EXPECT_THAT(chip->memory(), ElementsAreArray(other->memory()));
}

TEST_F(ChipFile, OutlivesTheProcessThatIsKilled) {
    ChildProcess child([&] {
        auto const chip = open();
        chip->write(chip->address("egress/port[51]/vlan_cfg"), 0x1234);
        writeAclRow(*chip, 1499, 99);
        return ::raise(SIGKILL);
    });
    ASSERT_EQ(child.ended(), -SIGKILL);
    auto const chip = open();
    EXPECT_EQ(chip->read(chip->address("egress/port[51]/vlan_cfg")), 0x1234u);
    EXPECT_THAT(chip->indirectMemory("acl[0]").row(1499), ElementsAre(99, 99, 99, 99));
}

TEST_F(ChipFile, TellsAWriteBeforeWhichFromOneAfterWhichTheProcessWasKilled) {
    auto const killedWith = [&](Chip::Fault fault) {
        ChildProcess child([&] {
            Chip::FaultyBus bus(open());
            bus.faultIs(fault, 5);
            writeAclRow(bus, 7, 99);
            return 0;
        });
        return child.ended();
    };
    ASSERT_EQ(killedWith(Chip::Fault::killBefore), -SIGKILL);
    EXPECT_THAT(open()->indirectMemory("acl[0]").row(7), ElementsAre(0, 0, 0, 0));
    ASSERT_EQ(killedWith(Chip::Fault::killAfter), -SIGKILL);
    EXPECT_THAT(open()->indirectMemory("acl[0]").row(7), ElementsAre(99, 99, 99, 99));
}

TEST_F(ChipFile, IsHeldByOneChipAtATime) {
    auto chip = open();
    EXPECT_EQ(openFailure(), path_ + ".lock is held by process " + std::to_string(::getpid()));
    ChildProcess child([&] { return openFailure().empty() ? 1 : 0; });
    EXPECT_EQ(child.ended(), 0);
    chip.reset();
    EXPECT_EQ(openFailure(), "");
}

TEST_F(ChipFile, OfAnotherChipIsRefusedAndLeftAlone) {
    writeAclRow(*open(), 7, 99);
    auto const before = contentsOf(path_);
    auto const refused = [&] {
        auto const failure = openFailure();
        EXPECT_THAT(failure, HasSubstr(path_ + " has other registers or memories: found "));
        EXPECT_EQ(contentsOf(path_), before);
        return !failure.empty();
    };
    profile_->vlanRegVer = 1;
    EXPECT_TRUE(refused()) << "other registers of the same number";
    profile_ = NerioSwitch::profilePreset("default");
    memories_[1].rowsPerWay = 55;
    EXPECT_TRUE(refused()) << "a shorter memory";
    memories_[1] = l3LagMemory();
    memories_[1].selected = 10;
    EXPECT_TRUE(refused()) << "a memory of another number";
    memories_.pop_back();
    EXPECT_TRUE(refused()) << "a memory less";
    memories_ = {l3LagMemory(), aclMemory()};
    EXPECT_TRUE(refused()) << "another order";
    memories_ = {aclMemory(), l3LagMemory()};
    EXPECT_EQ(openFailure(), "");
}

TEST_F(ChipFile, OfAChipThatKnewFewerMemoriesIsRefusedAndLeftAlone) {
    memories_ = Chip::chipMemories(*profile_);
    auto const known = memories_;
    memories_.erase(memories_.begin());
    open()->write({7}, 99);
    auto const before = contentsOf(path_);
    memories_ = known;
    EXPECT_THAT(openFailure(), HasSubstr(path_ + " has other registers or memories: found "));
    EXPECT_EQ(contentsOf(path_), before);
}

TEST_F(ChipFile, OfTheProfilesChipHoldsItsMemoriesAndFurtherOnes) {
    auto further = l3LagMemory();
    simulatedChip(*profile_, path_, {further})->write({7}, 99);
    auto const chip = simulatedChip(*profile_, path_, {further});
    EXPECT_EQ(chip->read({7}), 99u);
    EXPECT_EQ(chip->indirectMemory("pipeline[1]/processor/hashTest").description().rows(), 16u);
    EXPECT_EQ(chip->indirectMemory("l3Lag[0]").description().rows(), 56u);
}

TEST_F(ChipFile, AtFaultIsRefusedAndLeftAlone) {
    open();
    auto const whole = contentsOf(path_);
    auto const failureWith = [&](std::string const& contents) {
        contentsOfIs(path_, contents);
        auto failure = openFailure();
        EXPECT_EQ(contentsOf(path_), contents);
        return failure;
    };
    auto const changed = [&](std::size_t position, std::string const& bytes) {
        return std::string(whole).replace(position, bytes.size(), bytes);
    };
    auto const number = [](U32 value) {
        std::string bytes(sizeof(value), '\0');
        std::memcpy(bytes.data(), &value, sizeof(value));
        return bytes;
    };
    EXPECT_EQ(failureWith("#!/bin/sh\nexit 0\n"), path_ + " is not a chip memory");
    EXPECT_EQ(failureWith(changed(0, "NERIOSH")), path_ + " is not a chip memory");
    EXPECT_EQ(failureWith(changed(8, number(0x04030201))), path_ + " has the other byte order");
    EXPECT_EQ(failureWith(changed(12, number(2))),
              path_ + " was written by a newer version (found 2, this is 1)");
    EXPECT_EQ(failureWith(changed(40, "?")), path_ + " is damaged: wrong checksum of its head");
    EXPECT_THAT(failureWith(""), HasSubstr(path_ + " is too short: 0 bytes of "));
    EXPECT_THAT(failureWith(whole.substr(0, whole.size() - 1)), HasSubstr(path_ + " is too short: "));
    EXPECT_THAT(failureWith(whole + "x"), HasSubstr(path_ + " is damaged: "));
    EXPECT_EQ(failureWith(whole), "");
}

TEST_F(ChipFile, WithoutRoomIsNotMade) {
    ChildProcess child([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit{4096, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        return openFailure() == "cannot allocate " + path_ + ": File too large" ? 0 : 1;
    });
    EXPECT_EQ(child.ended(), 0);
    EXPECT_THAT(directory_.names(), ElementsAre("chip.memory.lock"));
}

TEST_F(ChipFile, ThatCannotBeMadeSaysWhy) {
    path_ = directory_.path("none/chip.memory");
    EXPECT_EQ(openFailure(), "cannot open " + path_ + ".lock: No such file or directory");
    contentsOfIs(directory_.path("file"), "");
    path_ = directory_.path("file/chip.memory");
    EXPECT_EQ(openFailure(), "cannot open " + path_ + ".lock: Not a directory");
    EXPECT_THAT(directory_.names(), ElementsAre("file"));
}

}  // namespace
