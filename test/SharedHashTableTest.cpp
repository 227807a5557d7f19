// Two software tables in the rows of one physical table: either may be made first, each sees its own rows.
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <random>

#include "NerioSwitchApi/TableFramework.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchApi;
using namespace NerioSwitchTable;
using TableIndex = NerioSwitchTable::TableIndex;

struct StatusOf {
    U32 key() const { return key_; }
    StatusOf& keyIs(U32 key) { return key_ = key, *this; }
    EntryProgrammedStatus status() const { return status_; }
    StatusOf& statusIs(EntryProgrammedStatus status) { return status_ = status, *this; }
    Belmo::Duration lastHit() const { return lastHit_; }
    StatusOf& lastHitIs(Belmo::Duration time) { return lastHit_ = time, *this; }

private:
    U32 key_ = 0;
    EntryProgrammedStatus status_ = EntryProgrammedStatus::entryProgrammed;
    Belmo::Duration lastHit_ = Belmo::Duration::never();
};

struct Item final : HashTableItem<U32, U32> {
    explicit Item(U32 key) : HashTableItem(key) {}
    U32 getHash(U8 number) const override { return key() >> number * 3 & 7; }
    Belmo::String toStrep() const override { return Sorn::_fmt("Item( %u )", key()); }
};

constexpr PhysicalHashGeometry geometry{1, 8, 3, 2, 1, 3, 0, 1};

/** Word 0 is the key, word 1 the result with the kind of table on top, word 2 the control word. */
class SharingTable final : public HashTable<Item, StatusOf> {
public:
    enum class Kind : U32 { left = 0x40000000, right = 0x80000000 };
    static constexpr U32 kindBits = 0xC0000000;

    explicit SharingTable(Kind kind) : HashTable(kind == Kind::left ? "left" : "right"), kind_(kind) {}

    Kind kind() const { return kind_; }
    Belmo::Ptr<PhysicalHashTableConvertor> profileConvertorFactory() const override;
    Belmo::Ptr<HashBaseHelper> hashBaseHelperFactory() const override;

protected:
    Belmo::Ptr<Item> newItem(U32 const& key) const override { return Belmo::make<Item>(key); }
    char const* className() const override { return "SharingTable"; }
    Sorn::TraceHandle const& trace() const override {
        static Sorn::TraceHandle handle("SharedHashTableTest");
        return handle;
    }

private:
    Kind kind_;
};

class Helper final : public NerioTableHashHelper {
public:
    Helper() : NerioTableHashHelper(TableIndex(36)) {}
    bool sharesTable() const override { return true; }
    Belmo::Ptr<PhysicalHashProperties> doGetPhysTableProperties() const override {
        return Belmo::make<PhysicalHashProperties>(geometry);
    }
    bool entryOwned(HwIndex index) const override {
        auto const stored = convertor()->hwTable(0)->storedEntry(index);
        return stored && (stored->data(1) & SharingTable::kindBits) == static_cast<U32>(table().kind());
    }
    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override {
        reinterpret_cast<U32*>(buffer)[2] = 0x8000u | U32{location.table} << 14 | location.row;
    }
    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override {
        auto const& item = static_cast<Item const&>(*entry);
        auto* const words = reinterpret_cast<U32*>(buffer);
        words[0] = item.key();
        words[1] = item.valid() ? item.result() | static_cast<U32>(table().kind()) : 0;
        setStaticBuffer(location, buffer);
    }
    Ptr nullHashEntry() override { return table().createHashEntry(0, false); }
    Ptr decodeHwEntry(HwIndex index) override {
        auto const stored = convertor()->hwTable(0)->storedEntry(index);
        EXPECT_TRUE(entryOwned(index)) << "asked for a row of the other table";
        auto const item = table().createHashEntry(stored->data(0), true);
        item->resultIs(stored->data(1) & ~SharingTable::kindBits);
        item->validIs(true);
        return item;
    }

private:
    SharingTable& table() const { return static_cast<SharingTable&>(*swTable()); }
};

class Convertor final : public PhysicalHashTableConvertor {
public:
    Convertor() { hwStaticWordIs(2, 0xFFFFFFFF); }
    void doCreateHwTables(TableState state) override {
        auto const registers =
            addressesOf("pipeline[0]/processor/", {"hash_data0", "hash_data1", "hash_ctl"});
        createHwTable(0, state, 0, 15, Belmo::make<HwTableRegisterMappingConst>("shared", registers));
    }
    void doInitTableStats() override {
        initEntryCounter(TableGauge::TableKey("shared", "Pipe0", "rows"), 16, 0);
    }
};

Belmo::Ptr<PhysicalHashTableConvertor> SharingTable::profileConvertorFactory() const {
    return Belmo::make<Convertor>();
}

Belmo::Ptr<HashBaseHelper> SharingTable::hashBaseHelperFactory() const {
    return Belmo::make<Helper>();
}

using Kind = SharingTable::Kind;
using Model = std::map<U32, U32>;

/** A chip and a shadow, and a process over them that holds one table, or both. */
class SharedHashTableTest : public ::testing::TestWithParam<std::pair<Kind, Kind>> {
protected:
    Kind first() const { return GetParam().first; }
    Kind second() const { return GetParam().second; }

    void processIs() {
        tables.clear();
        framework = std::make_unique<TableFramework>(profile, bus, shadows);
    }
    SharingTable& tableIs(Kind kind, StartMode mode) {
        auto const table = Belmo::make<SharingTable>(kind);
        tables[kind] = table;
        framework->tableIs(table, mode);
        return *table;
    }
    SharingTable& table(Kind kind) { return *tables.at(kind); }
    void bothAre(StartMode mode) {
        processIs();
        tableIs(first(), mode);
        tableIs(second(), mode);
    }
    static Model entriesOf(SharingTable const& table) {
        Model model;
        for (auto const& [key, result] : table.entries())
            model[key] = result;
        return model;
    }
    std::optional<U32> lookUp(Kind kind, U32 key) {
        auto const& memory = chip->indirectMemory(memoryName);
        for (U32 way = 0; way < 2; ++way) {
            auto const row = memory.row(way * 8 + (key >> way * 3 & 7));
            if (row[0] == key && (row[1] & SharingTable::kindBits) == static_cast<U32>(kind))
                return row[1] & ~SharingTable::kindBits;
        }
        return std::nullopt;
    }
    U32 used() { return framework->gauges().counters().front()->used(); }

    static constexpr char const* memoryName = "pipeline[0]/processor/hashTest";
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Belmo::Ptr<Chip::RecordingBus> bus = Belmo::make<Chip::RecordingBus>(chip);
    Belmo::Ptr<ShadowStore> shadows = memoryShadowStore();
    std::unique_ptr<TableFramework> framework;
    std::map<Kind, Belmo::Ptr<SharingTable>> tables;
};

TEST_P(SharedHashTableTest, BothPlaceTheirEntriesInTheSameRows) {
    bothAre(StartMode::cold);
    EXPECT_EQ(table(first()).hashConvertor(), table(second()).hashConvertor());
    EXPECT_EQ(table(first()).hashConvertor()->swTables(), 2u);
    table(first()).entryIs(0x09, 1);
    table(second()).entryIs(0x09, 2);
    EXPECT_EQ(lookUp(first(), 0x09), 1u);
    EXPECT_EQ(lookUp(second(), 0x09), 2u);
    EXPECT_EQ(used(), 2u);
    EXPECT_EQ(table(first()).cachedItem(0x09)->hwIndex(), 1u);
    EXPECT_EQ(table(second()).cachedItem(0x09)->hwIndex(), 9u) << "the first row was taken";
}

TEST_P(SharedHashTableTest, TheSecondTableToStartLeavesTheRowsOfTheFirst) {
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        processIs();
        tableIs(first(), StartMode::cold).entryIs(0x09, 1);
        bus->take();
        tableIs(second(), mode);
        EXPECT_TRUE(bus->take().empty()) << "its rows are in order already";
        EXPECT_EQ(lookUp(first(), 0x09), 1u);
        EXPECT_TRUE(entriesOf(table(second())).empty());
    }
}

TEST_P(SharedHashTableTest, ARestartFindsRowsOfBothAndWritesNone) {
    bothAre(StartMode::cold);
    table(first()).entryIs(0x09, 1);
    table(second()).entryIs(0x09, 2);
    table(second()).entryIs(0x12, 3);
    bus->take();
    bothAre(StartMode::warm);
    EXPECT_TRUE(bus->take().empty());
    EXPECT_EQ(entriesOf(table(first())), (Model{{0x09, 1}}));
    EXPECT_EQ(entriesOf(table(second())), (Model{{0x09, 2}, {0x12, 3}}));
    EXPECT_EQ(used(), 3u);
}

TEST_P(SharedHashTableTest, RowsOfATableThatIsNotThereStayUntilItComesBack) {
    bothAre(StartMode::cold);
    table(first()).entryIs(0x09, 1);
    table(second()).entryIs(0x09, 2);
    processIs();
    auto& alone = tableIs(first(), StartMode::warm);
    EXPECT_EQ(alone.hashConvertor()->rowsInUse(), 1u);
    alone.entryDel(0x09);
    for (U32 number = 0; number < 3; ++number)
        alone.entryIs(0x09 | number << 6, 7);
    EXPECT_EQ(alone.hashConvertor()->rowsInUse(), 1u) << "the other row of these keys is not ours";
    EXPECT_EQ(lookUp(second(), 0x09), 2u);
    tableIs(second(), StartMode::warm);
    EXPECT_EQ(entriesOf(table(second())), (Model{{0x09, 2}}));
    EXPECT_EQ(used(), 2u);
}

TEST_P(SharedHashTableTest, AColdStartOfTheOtherTableClearsItsOldRows) {
    bothAre(StartMode::cold);
    table(first()).entryIs(0x09, 1);
    table(second()).entryIs(0x09, 2);
    processIs();
    tableIs(first(), StartMode::warm);
    tableIs(second(), StartMode::cold);
    EXPECT_EQ(lookUp(first(), 0x09), 1u);
    EXPECT_EQ(lookUp(second(), 0x09), std::nullopt);
    EXPECT_EQ(used(), 1u);
}

TEST_P(SharedHashTableTest, ATableThatEndsLeavesItsRowsAndTheOtherWorksOn) {
    for (auto const gone : {first(), second()}) {
        bothAre(StartMode::cold);
        table(first()).entryIs(0x09, 1);
        table(second()).entryIs(0x12, 2);
        auto const left = gone == first() ? second() : first();
        tables.erase(gone);
        EXPECT_EQ(table(left).hashConvertor()->swTables(), 1u);
        table(left).entryIs(0x1B, 3);
        EXPECT_EQ(lookUp(left, 0x1B), 3u);
        table(left).entryDel(0x1B);
        EXPECT_EQ(lookUp(left, 0x1B), std::nullopt);
        EXPECT_EQ(lookUp(first(), 0x09), 1u);
        EXPECT_EQ(lookUp(second(), 0x12), 2u);
        tableIs(gone, StartMode::warm);
        EXPECT_EQ(entriesOf(table(gone)).size(), 1u);
    }
}

TEST_P(SharedHashTableTest, RandomOperationsAndRestartsKeepTheTablesApart) {
    std::mt19937 random(44);
    bothAre(StartMode::cold);
    std::map<Kind, Model> models;
    for (U32 step = 0; step < 4000; ++step) {
        auto const kind = random() % 2 == 0 ? Kind::left : Kind::right;
        U32 const key = random() % 128;
        if (random() % 2 == 0) {
            table(kind).entryIs(key, step + 1);
            models[kind][key] = step + 1;
        } else {
            table(kind).entryDel(key);
            models[kind].erase(key);
        }
        U32 placed = 0;
        for (auto& [each, model] : models) {
            for (U32 any = 0; any < 128; ++any) {
                bool const isThere =
                    model.contains(any) && table(each).tableStatus()->entryStatus(any).status() ==
                                               EntryProgrammedStatus::entryProgrammed;
                ASSERT_EQ(lookUp(each, any), isThere ? std::optional(model[any]) : std::nullopt);
                placed += isThere ? 1 : 0;
            }
        }
        ASSERT_EQ(used(), placed);
        if (step % 100 != 99) continue;
        for (auto& [each, model] : models) {
            std::erase_if(model, [&, kindOf = each](auto const& entry) {
                return table(kindOf).tableStatus()->entryStatus(entry.first).status() !=
                       EntryProgrammedStatus::entryProgrammed;
            });
        }
        bus->take();
        bothAre(StartMode::warm);
        ASSERT_TRUE(bus->take().empty());
        for (auto& [each, model] : models)
            ASSERT_EQ(entriesOf(table(each)), model);
    }
}

INSTANTIATE_TEST_SUITE_P(EitherFirst, SharedHashTableTest,
                         ::testing::Values(std::pair{Kind::left, Kind::right},
                                           std::pair{Kind::right, Kind::left}),
                         [](auto const& order) {
                             return order.param.first == Kind::left ? "LeftFirst" : "RightFirst";
                         });

}  // namespace
