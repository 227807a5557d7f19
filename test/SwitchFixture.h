#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "WatchedBus.h"
#include "chip/FaultyBus.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace NerioTest {

using NerioSwitchApi::StartMode;
using RegisterWrites = std::vector<std::pair<Belmo::String, U32>>;

/**
 * A simulated chip with a shadow in memory and one table over them. The table can be restarted warm over
 * both; `holdsAcrossRestart` is how a test says that something survives, and that nothing was written for it.
 */
template <class Table>
class TableFixture : public ::testing::Test {
protected:
    using Factory = std::function<Belmo::Ptr<Table>()>;

    explicit TableFixture(Factory factory) : factory_(std::move(factory)) {}

    /** What tests may change before the first start. */
    NerioSwitch::ProfileInfo& profile() { return *profile_; }

    /** Memories that the chip has behind its control registers. */
    void memoriesAre(std::vector<Chip::MemoryDescription> memories) { memories_ = std::move(memories); }
    /** Called after every single register write from here on. */
    void afterEveryWriteIs(std::function<void()> const& look) { watched_->look = look; }

    /** Makes the chip and a new table; it is not attached yet. */
    Table& make() {
        if (!chip_) {
            chip_ = Chip::simulatedChip(*profile_, memories_);
            faulty_ = Belmo::make<Chip::FaultyBus>(chip_);
            watched_ = Belmo::make<WatchedBus>(faulty_);
            recorder_ = Belmo::make<Chip::RecordingBus>(watched_);
            shadows_ = NerioSwitchApi::memoryShadowStore();
        }
        table_.reset();
        framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, recorder_, shadows_);
        table_ = factory_();
        return *table_;
    }
    void bringUp(StartMode mode) { framework_->tableIs(table_, mode); }
    Table& start(StartMode mode = StartMode::cold) {
        make();
        bringUp(mode);
        return *table_;
    }
    /** The process ends and comes back. */
    Table& restart(StartMode mode = StartMode::warm) { return start(mode); }

    auto const& gauges() const { return framework_->gauges().counters(); }

    Table& table() { return *table_; }
    Chip::SimulatedChip& chip() { return *chip_; }
    Chip::FaultyBus& faulty() { return *faulty_; }
    NerioSwitchApi::SwTableProfileConvertor& convertor() { return *table_->profileConvertorPtr(); }
    NerioSwitchApi::ShadowTable& shadow(NerioSwitchApi::HwTableId id = 0) {
        return convertor().hwTable(id)->shadow();
    }
    U32 chipRegister(Belmo::String const& path) { return chip_->read(chip_->address(path)); }
    RegisterWrites takeWrites() { return recorder_->takeByPath(); }
    /** Reads the hit bits at that time, in seconds; the number of hits. */
    U32 poll(double seconds) { return framework_->pollHitBits(Belmo::Duration(seconds)); }
    std::size_t takeWriteCount() { return recorder_->take().size(); }

    /** The words of a shadow row; empty where the shadow does not hold it. */
    std::vector<U32> shadowWords(NerioSwitchApi::HwIndex row, NerioSwitchApi::HwTableId id = 0) {
        auto const entry = convertor().hwTable(id)->storedEntry(row);
        return entry ? std::vector<U32>(entry->words().begin(), entry->words().end()) : std::vector<U32>();
    }

    /** Runs `verify`, restarts warm, and runs it again; the restart must write `owedWrites` registers. */
    void holdsAcrossRestart(std::function<void()> const& verify, std::size_t owedWrites = 0) {
        verify();
        auto const before = chip_->state();
        recorder_->take();
        restart();
        EXPECT_EQ(takeWriteCount(), owedWrites) << "register writes of the warm restart";
        if (owedWrites == 0) {
            EXPECT_EQ(chip_->state(), before);
        }
        SCOPED_TRACE("after a warm restart");
        verify();
    }

private:
    Factory factory_;
    std::vector<Chip::MemoryDescription> memories_;
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_ = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip_;
    Belmo::Ptr<Chip::FaultyBus> faulty_;
    Belmo::Ptr<WatchedBus> watched_;
    Belmo::Ptr<Chip::RecordingBus> recorder_;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_;
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    Belmo::Ptr<Table> table_;
};

}  // namespace NerioTest
