#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchApi;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/** What a probe table's hardware table looks like. */
using MakeMapping = std::function<Belmo::Ptr<HwTableRegisterMapping>(Belmo::String const& name)>;

/** A convertor that writes down what the framework asks of it, over one hardware table of three rows. */
class ProbeConvertor : public SwTableProfileConvertor {
public:
    ProbeConvertor(std::vector<std::string>& calls, MakeMapping mapping)
        : calls_(calls), mapping_(std::move(mapping)) {}

    void doInitTableStats() override {
        calls_.emplace_back("doInitTableStats");
        initEntryCounter(TableGauge::TableKey("probe", "Pipe0", "probes"), 3, 0);
    }
    void doCreateHwTables(TableState state) override {
        calls_.emplace_back(state == TableState::reset ? "doCreateHwTables reset" : "doCreateHwTables live");
        auto const name = SwTable::hwTableName("probes", profile()->profileName(), "Probe", 0);
        descriptorIs(0, descriptorConfig().hwTableDescIs(name, 0, profile()->profileName(), state, 4, 6,
                                                         mapping_(name)));
        hwTableIs(0, collection().hwTable(name)->config());
    }
    void initHwEntries(bool resetHw, U32) override {
        calls_.emplace_back(std::string("initHwEntries ") + (resetHw ? "true" : "false") +
                            (descriptor(0)->initialized() ? " initialized" : ""));
    }
    void syncEntries(U32) override {
        calls_.emplace_back(std::string("syncEntries") +
                            (descriptor(0)->initialized() ? " initialized" : ""));
    }
    void handleInitialized() override {
        calls_.emplace_back(std::string("handleInitialized") +
                            (descriptor(0)->initialized() ? " initialized" : ""));
    }

private:
    std::vector<std::string>& calls_;
    MakeMapping mapping_;
};

class ProbeTable : public SwTable {
public:
    ProbeTable(std::vector<std::string>& calls, MakeMapping mapping)
        : SwTable("probes"), calls_(calls), mapping_(std::move(mapping)) {}

    void doSetProfileConvertor(Belmo::Ptr<SwTableTypes> const& types) override {
        calls_.emplace_back(profile() ? "doSetProfileConvertor" : "doSetProfileConvertor without profile");
        auto const convertor = Belmo::make<ProbeConvertor>(calls_, mapping_);
        convertor->typesAre(*types);
        convertor->profileIs(profile());
        profileConvertorPtrIs(convertor);
    }
    void doInitComplete() override {
        calls_.emplace_back(initialized() ? "doInitComplete again" : "doInitComplete");
        SwTable::doInitComplete();
    }

private:
    std::vector<std::string>& calls_;
    MakeMapping mapping_;
};

Belmo::Ptr<HwTableRegisterMapping> vlanRegisters(Belmo::String const& name) {
    return Belmo::make<HwTableRegisterMappingConst>(
        name, addressesOf("ingress/vlan[0]/", {"vlan_data0", "vlan_data1", "vlan_ctl"}));
}

class TableFrameworkTest : public ::testing::Test {
protected:
    Belmo::Ptr<ProbeTable> probe(MakeMapping mapping = vlanRegisters) {
        return Belmo::make<ProbeTable>(calls, std::move(mapping));
    }
    Belmo::Ptr<HwTableConfig> hwTable(ProbeTable const& table) {
        return table.profileConvertorPtr()->hwTable(0);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Belmo::Ptr<Chip::RecordingBus> bus = Belmo::make<Chip::RecordingBus>(chip);
    TableFramework framework{profile, bus, memoryShadowStore()};
    std::vector<std::string> calls;
};

TEST_F(TableFrameworkTest, AColdStartCallsInOrder) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    EXPECT_THAT(calls, ElementsAre("doSetProfileConvertor", "doCreateHwTables reset", "doInitTableStats",
                                   "handleInitialized initialized", "initHwEntries true initialized",
                                   "doInitComplete"));
    EXPECT_TRUE(table->initialized());
}

TEST_F(TableFrameworkTest, AWarmStartReadsTheShadowBackBeforeAnythingMayBeWritten) {
    auto const table = probe();
    framework.tableIs(table, StartMode::warm);
    EXPECT_THAT(calls, ElementsAre("doSetProfileConvertor", "doCreateHwTables live", "doInitTableStats",
                                   "syncEntries", "handleInitialized initialized",
                                   "initHwEntries false initialized", "doInitComplete"));
}

TEST_F(TableFrameworkTest, ARowGoesToItsRegistersInWordOrderAndTheRestStaysInTheShadow) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    HwEntryConfig entry(5);
    for (U32 word = 0; word < 5; ++word)
        entry.dataIs(word, 10 + word);
    hwTable(*table)->entryIs(entry);
    EXPECT_THAT(bus->takeByPath(),
                ElementsAre(Pair("ingress/vlan[0]/vlan_data0", 10), Pair("ingress/vlan[0]/vlan_data1", 11),
                            Pair("ingress/vlan[0]/vlan_ctl", 12)));
    EXPECT_EQ(hwTable(*table)->entry(5), entry);
    EXPECT_EQ(hwTable(*table)->entry(6), std::nullopt);
}

TEST_F(TableFrameworkTest, AnEntryOfFewerWordsWritesOnlyThose) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    HwEntryConfig entry(4);
    entry.dataIs(0, 63);
    hwTable(*table)->entryIs(entry);
    EXPECT_THAT(bus->takeByPath(), ElementsAre(Pair("ingress/vlan[0]/vlan_data0", 63)));
}

TEST_F(TableFrameworkTest, ARowOutsideTheTableIsRefusedAndNothingWritten) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    for (HwIndex const row : {3u, 7u, 0xFFFFFFFFu}) {
        U32 const word = 1;
        EXPECT_THROW(hwTable(*table)->entryIs(HwEntryConfig(row, std::span(&word, 1))),
                     Belmo::RangeException);
    }
    EXPECT_THAT(bus->take(), IsEmpty());
}

TEST_F(TableFrameworkTest, EachRowOfACollectionHasItsOwnRegisters) {
    auto const table = probe([](Belmo::String const& name) {
        auto mapping = Belmo::make<HwTableRegisterMappingColl>(name);
        mapping->regsIs(4, addressOf("egress/port[4]/vlan_cfg"));
        mapping->regsIs(6, addressOf("egress/port[6]/vlan_cfg"));
        return mapping;
    });
    framework.tableIs(table, StartMode::cold);
    for (HwIndex const row : {4u, 5u, 6u}) {
        HwEntryConfig entry(row);
        entry.dataIs(0, row);
        hwTable(*table)->entryIs(entry);
    }
    EXPECT_THAT(bus->takeByPath(),
                ElementsAre(Pair("egress/port[4]/vlan_cfg", 4), Pair("egress/port[6]/vlan_cfg", 6)))
        << "a row without registers lives in the shadow alone";
    EXPECT_NE(hwTable(*table)->entry(5), std::nullopt);
    EXPECT_FALSE(hwTable(*table)->rowsShareRegisters());
}

TEST_F(TableFrameworkTest, ARangeIsGivenByItsLastRow) {
    auto const table = probe([](Belmo::String const& name) {
        auto mapping = Belmo::make<HwTableRegisterMappingRange>(name);
        mapping->regsIs(4, addressesOf("egress/processor[0]/", {"lum_data", "lum_ctl_addr_data"}));
        mapping->regsIs(6, addressesOf("egress/processor[1]/", {"lum_data", "lum_ctl_addr_data"}));
        return mapping;
    });
    framework.tableIs(table, StartMode::cold);
    auto const pathOf = [&](HwIndex row) { return chip->path(hwTable(*table)->registersOf(row)[0]); };
    EXPECT_EQ(pathOf(4), "egress/processor[0]/lum_data");
    EXPECT_EQ(pathOf(5), "egress/processor[1]/lum_data");
    EXPECT_EQ(pathOf(6), "egress/processor[1]/lum_data");
    EXPECT_TRUE(hwTable(*table)->rowsShareRegisters());
}

TEST_F(TableFrameworkTest, ATableMayDeriveAMappingOfItsOwn) {
    class EveryThirdPort : public HwTableRegisterMapping {
    public:
        explicit EveryThirdPort(Belmo::String const& name) : HwTableRegisterMapping(name) {}
        Belmo::Ptr<HwAddressColl const> getRegister(HwIndex index) const override {
            auto addresses = Belmo::make<HwAddressColl>();
            if (index == 6) addresses->addressIs(0, "egress/port[18]/vlan_cfg");
            addresses->sizeIs(1);  // one address, empty for other rows
            return addresses;
        }
    };
    auto const table = probe([](Belmo::String const& name) { return Belmo::make<EveryThirdPort>(name); });
    framework.tableIs(table, StartMode::cold);
    for (HwIndex const row : {5u, 6u}) {
        HwEntryConfig entry(row);
        entry.dataIs(0, row);
        hwTable(*table)->entryIs(entry);
    }
    EXPECT_THAT(bus->takeByPath(), ElementsAre(Pair("egress/port[18]/vlan_cfg", 6)))
        << "an empty address is a word without a register";
}

TEST_F(TableFrameworkTest, ARegisterThatTheChipLacksIsNamedWithItsTableAndRow) {
    auto const table = probe([](Belmo::String const& name) {
        return Belmo::make<HwTableRegisterMappingConst>(name, addressOf("egress/port[77]/nonesuch"));
    });
    try {
        framework.tableIs(table, StartMode::cold);
        FAIL() << "the start went through";
    } catch (UnknownRegisterException const& failure) {
        EXPECT_STREQ(failure.what(),
                     "row 4 of hardware table \"probes/demo/Probe/0\": the chip has no register "
                     "\"egress/port[77]/nonesuch\"");
    }
    EXPECT_FALSE(table->initialized());
    EXPECT_FALSE(table->profileConvertorPtr());
    auto const second = probe();
    framework.tableIs(second, StartMode::cold);
    EXPECT_TRUE(second->initialized()) << "a failed start leaves nothing in the way";
}

TEST_F(TableFrameworkTest, TwoLivingTablesCannotShareAHardwareTableName) {
    auto first = probe();
    framework.tableIs(first, StartMode::cold);
    auto const second = probe();
    EXPECT_THROW(framework.tableIs(second, StartMode::cold), Belmo::ResourceException);
    first.reset();
    framework.tableIs(second, StartMode::cold);
    EXPECT_TRUE(second->initialized());
}

TEST_F(TableFrameworkTest, CapacityCountersAreMadeByTheTable) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    ASSERT_EQ(framework.gauges().counters().size(), 1u);
    auto const& counter = *framework.gauges().counters().front();
    EXPECT_EQ(counter.key(), TableGauge::TableKey("probe", "Pipe0", "probes"));
    EXPECT_EQ(counter.capacity(), 3u);
    EXPECT_EQ(table->profileConvertorPtr()->entryCounter(0).get(), &counter);
    EXPECT_FALSE(table->profileConvertorPtr()->entryCounter(1));
}

TEST_F(TableFrameworkTest, StaticWordsAreDeclaredAndWithdrawn) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    auto& convertor = *table->profileConvertorPtr();
    EXPECT_EQ(convertor.hwStaticWord(3), 0u);
    convertor.hwStaticWordIs(3, 0xFFFFFFF0);
    EXPECT_EQ(convertor.hwStaticWord(3), 0xFFFFFFF0u);
    convertor.hwStaticWordDel(3);
    EXPECT_EQ(convertor.hwStaticWord(3), 0u);
}

TEST_F(TableFrameworkTest, TwoFrameworksInOneProcessDoNotMeet) {
    TableFramework other(profile, Chip::simulatedChip(*profile), memoryShadowStore());
    auto const here = NerioSwitchTable::portConfigTableFactory("ports");
    auto const there = NerioSwitchTable::portConfigTableFactory("ports");
    framework.tableIs(here, StartMode::cold);
    other.tableIs(there, StartMode::cold);
    bus->take();
    there->entryIs(NerioSwitchTable::PortConfigKey(5),
                   NerioSwitchTable::PortConfigResult().txDisabledIs(true));
    EXPECT_THAT(bus->take(), IsEmpty());
    EXPECT_FALSE(here->entryHas(NerioSwitchTable::PortConfigKey(5)));
}

TEST_F(TableFrameworkTest, TheAgentsLastReferenceEndsTheTable) {
    auto table = NerioSwitchTable::portConfigTableFactory("ports");
    framework.tableIs(table, StartMode::cold);
    EXPECT_EQ(table->references(), 1u) << "neither the framework nor the convertor holds the table";
}

TEST(HwTableName, IsUniquePerTableProfileStemAndId) {
    EXPECT_EQ(SwTable::hwTableName("ports", "demo", "PortConfig", 3), "ports/demo/PortConfig/3");
    EXPECT_NE(SwTable::hwTableName("a/b", "c", "d", 0), SwTable::hwTableName("a", "b/c", "d", 0));
    EXPECT_NE(SwTable::hwTableName("a%2Fb", "c", "d", 0), SwTable::hwTableName("a/b", "c", "d", 0));
}

TEST(HwEntryConfigTest, HoldsEightWordsAndRefusesANinth) {
    HwEntryConfig entry(HwEntryConfig::noIndex);
    EXPECT_EQ(entry.size(), 0);
    EXPECT_EQ(entry.index(), 0xFFFFFFFFu);
    entry.dataIs(7, 9);
    EXPECT_EQ(entry.size(), 8);
    EXPECT_EQ(entry.data(0), 0u);
    EXPECT_EQ(entry.data(7), 9u);
    try {
        entry.dataIs(8, 1);
        FAIL() << "a ninth word was taken";
    } catch (Belmo::RangeException const& failure) {
        EXPECT_STREQ(failure.what(),
                     "NerioSwitchApi::DataArrayIndex::value < NerioSwitchApi::DataArrayIndex::min or > "
                     "NerioSwitchApi::DataArrayIndex::max not allowed");
    }
}

using TableFrameworkDeathTest = TableFrameworkTest;

TEST_F(TableFrameworkDeathTest, ATableIsBroughtUpOnce) {
    auto const table = probe();
    framework.tableIs(table, StartMode::cold);
    EXPECT_DEATH(framework.tableIs(table, StartMode::warm), "!table->initialized\\(\\)");
}

}  // namespace
